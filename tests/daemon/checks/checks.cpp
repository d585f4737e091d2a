// The same questions for the real daemon and for the stand-in.

#include "Expect.h"
#include "Peripheral.h"
#include "Remote.h"
#include "SceneTree.h"
#include "Stage.h"

#include <QDBusObjectPath>
#include <QRegularExpression>

namespace {

const QString accepted;
const QString unparsable = QStringLiteral("Failed to parse advertisement.");

struct AdvertisementCase
{
    const char* what;
    QStringList properties;
    QString in566;
    QString in582;
};

/** The property, with a manufacturer's block that fills so many bytes. */
QString block(int bytes)
{
    return "manufacturer ffff " + QString("ab").repeated(bytes - 4);
}

QList<AdvertisementCase> advertisementCases()
{
    return {
        {"a name and a service", {"name Check", "uuids 180d"}, accepted, accepted},
        {"no property but the type", {"type 0"}, accepted, accepted},
        {"an empty type", {"type 7"}, unparsable, unparsable},
        {"intervals of 0", {"min-interval 0", "max-interval 0"}, accepted, unparsable},
        {"intervals of 100 ms", {"min-interval 100", "max-interval 100"}, accepted, accepted},
        {"a transmit power of 127", {"tx-power 127"}, accepted, unparsable},
        {"a transmit power of 0", {"tx-power 0"}, accepted, accepted},
        {"a UUID that is none", {"uuids nonsense"}, unparsable, unparsable},
        {"manufacturer data without a byte", {"manufacturer ffff"}, unparsable, unparsable},
        {"raw flags", {"data 01 06"}, unparsable, unparsable},
        {"a raw name", {"data 09 41"}, unparsable, unparsable},
        {"a raw block of type 0x26", {"data 26 01"}, accepted, accepted},
        {"a raw block of type 0x24", {"data 24 01"}, accepted, accepted},
        {"a raw block of type 0x27", {"data 27 01"}, unparsable, unparsable},
        {"a raw block of type 0x3d", {"data 3d 01"}, unparsable, unparsable},
        {"a raw block of type 0x3e", {"data 3e 01"}, accepted, accepted},
        {"a raw name in the scan response", {"scan-response 09 41"}, accepted, unparsable},
        {"a raw block in the scan response", {"scan-response 24 01"}, accepted, accepted},
        {"discoverable and not connectable", {"type 1", "discoverable 1"}, unparsable, unparsable},
        {"31 bytes, what fits everywhere", {block(27), "uuids 180d"}, accepted, accepted},
        {"a name of 28 bytes beside 31 others", {"name " + QString(28, 'n'), block(31)}, accepted, accepted},
    };
}

void judge(Stage& stage, Peripheral& peripheral, const AdvertisementCase& judged, const QString& exported,
           int number)
{
    const QString name = "adv" + QString::number(number);
    peripheral.tell("advertisement " + name + " /com/example/check/" + name + ' ' + exported);
    for (const QString& property : judged.properties) {
        peripheral.tell("set " + name + ' ' + property);
    }
    peripheral.tell("add " + name);
    const QString text = peripheral.answer("registerAdv", number);
    peripheral.tell("remove " + name);
    const QString expected = stage.version() == "5.66" ? judged.in566 : judged.in582;
    Expect::equal(text, expected,
                  QString("advertisement with ") + judged.what +
                      (expected.isEmpty() ? ": taken" : ": refused"));
    if (!text.isEmpty()) {
        stage.recover();
    }
}

void checkAdvertisements(Stage& stage)
{
    Peripheral peripheral("check-advertisements");
    int number = 0;
    judge(stage, peripheral, {"all properties shown", {"name Check"}, unparsable, unparsable}, "all",
          ++number);
    for (const AdvertisementCase& judged : advertisementCases()) {
        judge(stage, peripheral, judged, "set", ++number);
    }
}

void checkApplications()
{
    const QString serviceLine = "service s " + SceneTree::uuid(1) + " primary";
    const QList<QPair<QStringList, QString>> cases{
        {{}, "No object received"},
        {{"service s 00001800-0000-1000-8000-00805f9b34fb primary"}, "Failed to create entry in database"},
        {{serviceLine, "characteristic c s " + SceneTree::uuid(2) + " none"},
         "No valid service object found"},
        {{serviceLine}, accepted},
    };
    int number = 0;
    for (const auto& [lines, expected] : cases) {
        Peripheral peripheral("check-application" + QString::number(++number));
        peripheral.tell("application /com/example/check com.example.Check");
        peripheral.tell(lines);
        peripheral.tell("add application");
        Expect::equal(peripheral.answer("registerApp", 1), expected,
                      "application: " + (lines.isEmpty() ? "without a service" : lines.last()));
        if (expected == accepted) {
            peripheral.tell("register application");
            Expect::equal(peripheral.answer("registerApp", 2), "Already Exists",
                          "application: registered twice");
        }
    }
}

void checkUnknownPaths(const Stage& stage)
{
    const QVariantList nowhere{QVariant::fromValue(QDBusObjectPath("/nowhere"))};
    const QString refusal = "org.bluez.Error.DoesNotExist: Does Not Exist";
    Expect::equal(Remote::errorOf(Remote::tryCall(stage.adapter(), "org.bluez.LEAdvertisingManager1",
                                                  "UnregisterAdvertisement", nowhere)),
                  refusal, "unregistering an advertisement that is not registered");
    Expect::equal(Remote::errorOf(Remote::tryCall(stage.adapter(), "org.bluez.GattManager1",
                                                  "UnregisterApplication", nowhere)),
                  refusal, "unregistering an application that is not registered");
}

/** The keys of the options with which the daemon first called this method of the object with the UUID. */
QStringList firstOptions(const Peripheral& peripheral, const QString& method, const QString& uuid)
{
    const QString line =
        peripheral.text().split('\n').filter(method).filter("uuid: " + uuid).filter("ptions: QMap(").value(0);
    QStringList keys;
    auto key = QRegularExpression("\\(([a-z-]+), ").globalMatch(line);
    while (key.hasNext()) {
        keys << key.next().captured(1);
    }
    return keys;
}

void checkOptions(Stage& stage, Peripheral& peripheral)
{
    stage.read(SceneTree::fixed, 0);
    Expect::equal(firstOptions(peripheral, "ReadValue", SceneTree::fixed),
                  QStringList{"device", "link", "mtu"}, "the options of a read");
    Expect::equal(stage.read(SceneTree::longest, 500).size(), 12, "a read at offset 500 of 512");
    Expect::equal(firstOptions(peripheral, "ReadValue", SceneTree::longest),
                  QStringList{"device", "link", "mtu", "offset"}, "the options of a read at an offset");
    stage.read(SceneTree::description, 0);
    Expect::equal(firstOptions(peripheral, "ReadValue", SceneTree::description),
                  QStringList{"device", "link", "mtu"}, "the options of a descriptor's read");
    stage.write(SceneTree::writable, "bytes", 0);
    Expect::equal(firstOptions(peripheral, "WriteValue", SceneTree::writable),
                  QStringList{"device", "link", "mtu"}, "the options of a write");
    stage.write(SceneTree::note, "bytes", 0);
    Expect::equal(firstOptions(peripheral, "WriteValue", SceneTree::note),
                  QStringList{"device", "link", "mtu"}, "the options of a descriptor's write");
}

void checkNotifications(Stage& stage, Peripheral& peripheral)
{
    peripheral.tell("value counter 01");
    stage.subscribe(SceneTree::counter);
    Expect::eventually([&] { return peripheral.notifying("counter") == QStringList{"1"}; },
                       "subscribing: StartNotify once");
    Expect::that(stage.notified(SceneTree::counter).isEmpty(), "a value set before is not notified");
    for (const char* value : {"02", "03"}) {
        peripheral.tell(QString("value counter ") + value);
        Expect::eventually(
            [&] {
                const QList<QByteArray> values = stage.notified(SceneTree::counter);
                return !values.isEmpty() && values.last() == QByteArray::fromHex(value);
            },
            QString("value ") + value + " is notified");
    }
    stage.unsubscribe(SceneTree::counter);
    Expect::eventually(
        [&] {
            return peripheral.notifying("counter") == QStringList{"1", "0"};
        },
        "unsubscribing: StopNotify once");
    peripheral.tell("value counter 04");
    stage.read(SceneTree::fixed, 0); // what was on its way has arrived
    Expect::equal(stage.notified(SceneTree::counter).size(), 2, "afterwards nothing is notified");
}

} // namespace

void runChecks(Stage& stage)
{
    checkUnknownPaths(stage);
    checkApplications();
    {
        Peripheral peripheral("check-values");
        SceneTree::build(peripheral);
        const QStringList answers = peripheral.text().split('\n').filter("success: register");
        Expect::that(answers.value(0).contains("registerApp") && answers.value(1).contains("registerAdv"),
                     "what is registered first is answered first", Expect::text(answers));
        peripheral.tell("log TRACE");
        stage.meet(peripheral);
        checkOptions(stage, peripheral);
        checkNotifications(stage, peripheral);
    }
    checkAdvertisements(stage);
}
