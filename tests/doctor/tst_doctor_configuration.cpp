#include "Doctor.h"
#include "SimulatorScenario.h"

#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

namespace {

const QString hci0 = QStringLiteral("/org/bluez/hci0");
const QString adapter = QStringLiteral("org.bluez.Adapter1");

/** A main.conf, and what the doctor says about it. */
class Configuration
{
public:
    explicit Configuration(const QByteArray& text)
    {
        QFile file(path());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text);
    }

    QString path() const { return m_folder.filePath("main.conf"); }
    Doctor::Result examine() const { return Doctor::examine({"--config", path()}); }

private:
    QTemporaryDir m_folder;
};

QStringList about(const char* topic, const Doctor::Result& result)
{
    return result.names.filter(QRegularExpression(QString("^%1\\.").arg(topic)));
}

} // namespace

/** What the doctor says about main.conf, the name and pairing. */
class tst_doctor_configuration : public QObject
{
    Q_OBJECT

private slots:
    void theDefaultsAreWarnedOf();
    void aFileWithoutAValueMeansTheDefault();
    void theFileForAPeripheralHasNoWarning();
    void eitherSettingSwitchesTheClientOff_data();
    void eitherSettingSwitchesTheClientOff();
    void repairing_data();
    void repairing();
    void privacyIsAWarning();
    void theLastValueCountsAndCommentsDoNot();
    void aFileThatMayNotBeReadIsAWarning();
    void theStandInHasNoConfiguration();
    void theNameIsCompared();
    void whoCanPairIsTold();
};

void tst_doctor_configuration::theDefaultsAreWarnedOf()
{
    const Simulator simulator;
    const Doctor::Result result = Doctor::examine({"--config", "/nonexistent/main.conf"});
    QCOMPARE(about("config", result),
             (QStringList{"config.absent", "config.client", "config.repairing-never"}));
    QCOMPARE(result.line("config.absent"),
             "ok There is no /nonexistent/main.conf: bluetoothd uses its defaults.");
    QCOMPARE(
        result.line("config.client"),
        "warning bluetoothd reads the attributes of each phone that connects. Some phones then ask their "
        "users to pair. | Write ReverseServiceDiscovery = false into the section [General].");
    QCOMPARE(
        result.line("config.repairing-never"),
        "warning A phone that has forgotten this device cannot pair with it again without a comparison, "
        "until this device has forgotten the phone. | Write JustWorksRepairing = confirm into the section "
        "[General].");
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_configuration::aFileWithoutAValueMeansTheDefault()
{
    const Simulator simulator;
    const Configuration configuration("[General]\n#Privacy = device\n[Policy]\nAutoEnable=true\n");
    const Doctor::Result result = configuration.examine();
    QCOMPARE(about("config", result),
             (QStringList{"config.read", "config.client", "config.repairing-never"}));
    QCOMPARE(result.line("config.read"),
             "ok The configuration of bluetoothd is " + configuration.path() + '.');
}

void tst_doctor_configuration::theFileForAPeripheralHasNoWarning()
{
    const Simulator simulator;
    const Doctor::Result result = Doctor::examine({"--config", PLIM_MAIN_CONF});
    QCOMPARE(about("config", result), QStringList{"config.read"});
}

void tst_doctor_configuration::eitherSettingSwitchesTheClientOff_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("isWarned");
    QTest::newRow("reverse") << QByteArray("[General]\nReverseServiceDiscovery=false\n") << false;
    QTest::newRow("client") << QByteArray("[GATT]\n  Client =  false  \n") << false;
    QTest::newRow("another section") << QByteArray("[CSIS]\nClient=false\n") << true;
    QTest::newRow("no section") << QByteArray("ReverseServiceDiscovery=false\n") << true;
    QTest::newRow("on") << QByteArray("[General]\nReverseServiceDiscovery=true\n") << true;
}

void tst_doctor_configuration::eitherSettingSwitchesTheClientOff()
{
    QFETCH(const QByteArray, text);
    QFETCH(const bool, isWarned);
    const Simulator simulator;
    QCOMPARE(Configuration(text).examine().names.contains("config.client"), isWarned);
}

void tst_doctor_configuration::repairing_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QStringList>("found");
    QTest::newRow("never") << QByteArray("never") << QStringList{"config.repairing-never"};
    QTest::newRow("nonsense") << QByteArray("perhaps") << QStringList{"config.repairing-never"};
    QTest::newRow("always") << QByteArray("always") << QStringList{"config.repairing-always"};
    QTest::newRow("confirm") << QByteArray("confirm") << QStringList{};
}

void tst_doctor_configuration::repairing()
{
    QFETCH(const QByteArray, value);
    QFETCH(const QStringList, found);
    const Simulator simulator;
    const Doctor::Result result = Configuration("[General]\nJustWorksRepairing=" + value + '\n').examine();
    QCOMPARE(result.names.filter("config.repairing"), found);
    if (value == "always") {
        QCOMPARE(result.finding("config.repairing-always").remedy,
                 QString("Write JustWorksRepairing = confirm into the section [General]."));
    }
}

void tst_doctor_configuration::privacyIsAWarning()
{
    const Simulator simulator;
    const Doctor::Result result = Configuration("[General]\nPrivacy = device\n").examine();
    QCOMPARE(
        result.line("config.privacy"),
        "warning The address of this device changes every few minutes. A phone that is not bonded takes it "
        "for a new device each time. | Write Privacy = off into the section [General], unless the device "
        "must not be traced.");
    QCOMPARE(result.finding("config.privacy").values, QJsonObject({{"Privacy", "device"}}));
    QVERIFY(!Configuration("[General]\nPrivacy = off\n").examine().names.contains("config.privacy"));
}

void tst_doctor_configuration::theLastValueCountsAndCommentsDoNot()
{
    const Simulator simulator;
    const Doctor::Result result =
        Configuration("[General]\nPrivacy=device\nPrivacy=off\n#Privacy=network\n").examine();
    QVERIFY(!result.names.contains("config.privacy"));
}

void tst_doctor_configuration::aFileThatMayNotBeReadIsAWarning()
{
    const Simulator simulator;
    const QTemporaryDir folder;
    // Root may read every file, but nobody a folder.
    const QString path = folder.path();
    const Doctor::Result result = Doctor::examine({"--config", path});
    QCOMPARE(about("config", result), QStringList{"config.unreadable"});
    QCOMPARE(result.line("config.unreadable"),
             "warning This user may not read the configuration of bluetoothd, " + path +
                 ". | Run this as root.");
}

void tst_doctor_configuration::theStandInHasNoConfiguration()
{
    const Simulator simulator;
    QCOMPARE(about("config", Doctor::examine()), QStringList{});
}

void tst_doctor_configuration::theNameIsCompared()
{
    Simulator simulator;
    simulator.setProperty(hci0, adapter, "Alias", "Lamp");
    QCOMPARE(Doctor::examine().line("adapter.alias"),
             "ok A phone that has connected to hci0 shows \"Lamp\".");
    QCOMPARE(about("adapter", Doctor::examine({"--local-name", "Lamp"})),
             (QStringList{"adapter.on", "adapter.alias"}));
    QCOMPARE(
        Doctor::examine({"--local-name", "My Lamp"}).line("adapter.alias-differs"),
        "warning A phone shows \"My Lamp\" at first, and \"Lamp\" after it has connected to hci0. | Give the "
        "adapter the same name: bluetoothctl system-alias \"My Lamp\"");
}

void tst_doctor_configuration::whoCanPairIsTold()
{
    Simulator simulator;
    QCOMPARE(
        Doctor::examine().line("pairing.off"),
        "warning hci0 lets nobody pair: no agent is registered, or it has closed its pairing window. Only "
        "bonded phones can use protected attributes. | Use a plim::PairingAgent in the program and open "
        "its pairing window, or start another agent.");
    simulator.setProperty(hci0, adapter, "Pairable", true);
    QCOMPARE(Doctor::examine().line("pairing.on"), "ok hci0 lets phones pair.");
}

QTEST_GUILESS_MAIN(tst_doctor_configuration)
#include "tst_doctor_configuration.moc"
