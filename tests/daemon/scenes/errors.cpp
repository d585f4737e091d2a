// What becomes of each error.

#include "Expect.h"
#include "ProductStage.h"
#include "SceneTree.h"
#include "scenes.h"

namespace {

const QString attribute = SceneTree::uuid(0x5001);
const QString acknowledged = SceneTree::uuid(0x5002);
const QString noted = SceneTree::uuid(0x5003);

/** An error as the program gives it, and as the phone gets it. */
struct Row
{
    int error;
    int read;
    int write;
};

QList<Row> rows()
{
    const int improperlyConfigured = Scenes::version() == "5.66" ? 0x0e : 0xfd;
    return {
        {0x02, 0x02, 0x03}, {0x03, 0x02, 0x03},
        {0x06, 0x06, 0x06}, {0x07, 0x07, 0x07},
        {0x08, 0x08, 0x08}, {0x0d, 0x0d, 0x0d},
        {0x0e, 0x0e, 0x0e}, {0xfd, improperlyConfigured, improperlyConfigured},
        {0xfe, 0xfe, 0xfe},
    };
}

QString hex(int number)
{
    return QStringLiteral("0x%1").arg(number, 2, 16, QLatin1Char('0'));
}

class Table
{
public:
    explicit Table(ProductStage& stage) : m_stage(stage) {}

    /** What the phone gets for a read, a write and a prepared write, "0x80 0x80 0x80". */
    QString row(const QString& name, quint16 handle, int error)
    {
        const QString answer = name + " reject " + QString::number(error, 16);
        m_stage.peripheral.tell({"reads " + answer, "writes " + answer});
        AttClient& central = m_stage.central;
        return QStringList{hex(central.read(handle).error), hex(central.write(handle, "new").error),
                           hex(central.writePrepared(handle, QByteArray(150, 'n')).error)}
            .join(' ');
    }

private:
    ProductStage& m_stage;
};

void expectRow(Table& table, quint16 handle, const Row& expected)
{
    const QString got = table.row("attribute", handle, expected.error);
    Expect::equal(got, QStringList{hex(expected.read), hex(expected.write), hex(expected.write)}.join(' '),
                  "error " + hex(expected.error) + " comes as " + got + " (read, write, prepared write)");
}

} // namespace

void Scenes::errors()
{
    ProductStage stage({
        "plim-service service " + SceneTree::uuid(0x5000) + " primary",
        "plim-characteristic attribute service " + attribute + " read,write",
        "plim-characteristic acknowledged service " + acknowledged + " read,write,write-without-response",
        "plim-descriptor noted attribute " + noted + " read,write",
    });
    AttClient& central = stage.central;
    central.connectDevice();

    Table table(stage);
    for (const Row& row : rows()) {
        expectRow(table, central.handle(attribute), row);
    }
    for (int code = 0x80; code <= 0x9f; ++code) {
        expectRow(table, central.handle(attribute), {code, code, code});
    }
    Expect::equal(table.row("noted", central.handle(noted), 0x85), QString("0x85 0x85 0x85"),
                  "a descriptor's error comes as 0x85 in all three cases");
    const QString got = table.row("acknowledged", central.handle(acknowledged), 0x80);
    Expect::equal(got, QString("0x80 0x00 0x00"),
                  "beside writes without an answer, 0x80 comes as " + got + " (read, write, prepared write)");
    stage.peripheral.settle();
    Expect::equal(stage.peripheral.told("written attribute"), QStringList(), "nothing was written");
    stage.expectWitness();
}
