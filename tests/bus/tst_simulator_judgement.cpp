#include "GattCharacteristic.h"
#include "SimulatorVerdict.h"

#include <functional>

using namespace Scenario;

namespace {

const QString notParsed = QStringLiteral("org.bluez.Error.Failed: Failed to parse advertisement.");
const QString notFitting = QStringLiteral("org.bluez.Error.Failed: Failed to register advertisement");

using Setter = std::function<void(GapAdvertisement&)>;
using Builder = std::function<void(GattApplication&)>;

} // namespace

Q_DECLARE_METATYPE(Setter)
Q_DECLARE_METATYPE(Builder)

/** What the stand-in daemon accepts and refuses, as the real one does. */
class tst_simulator_judgement : public QObject
{
    Q_OBJECT

private slots:
    void applicationsAreJudged_data();
    void applicationsAreJudged();
    void advertisementsAreJudged_data();
    void advertisementsAreJudged();
};

void tst_simulator_judgement::applicationsAreJudged_data()
{
    QTest::addColumn<Builder>("build");
    QTest::addColumn<QString>("expected");
    const QString failed("org.bluez.Error.Failed: ");
    const auto row = [](const char* name, const Builder& build, const QString& expected) {
        QTest::newRow(name) << build << expected;
    };
    row(
        "nothing", [](auto&) {}, failed + "No object received");
    row(
        "a service", [](auto& app) { app.createService("180F", true); }, "accepted");
    row(
        "no UUID", [](auto& app) { app.createService("battery", true); },
        failed + "Failed to create entry in database");
    row(
        "a UUID that the daemon keeps", [](auto& app) { app.createService("1800", true); },
        failed + "Failed to create entry in database");
    row(
        "a characteristic",
        [](auto& app) {
            app.createService("180F", true)->createCharacteristic("2A19", GattCharacteristic::Read, nullptr);
        },
        "accepted");
    row(
        "no flags",
        [](auto& app) {
            app.createService("180F", true)
                ->createCharacteristic("2A19", GattCharacteristic::Option(0), nullptr);
        },
        failed + "No valid service object found");
    row(
        "a characteristic without a UUID",
        [](auto& app) {
            app.createService("180F", true)->createCharacteristic("level", GattCharacteristic::Read, nullptr);
        },
        failed + "Failed to create entry in database");
}

void tst_simulator_judgement::applicationsAreJudged()
{
    QFETCH(const Builder, build);
    QFETCH(const QString, expected);
    const Simulator daemon;
    GattApplication app(nullptr, "/app", "org.plim.scenario.app");
    build(app);
    QCOMPARE(registerApplication("/app"), expected);
    QCOMPARE(daemon.applications().size(), expected == "accepted" ? 1 : 0);
}

void tst_simulator_judgement::advertisementsAreJudged_data()
{
    QTest::addColumn<Setter>("set");
    QTest::addColumn<QString>("expected");
    const QString accepted("accepted");
    const auto row = [](const char* name, const Setter& set, const QString& expected) {
        QTest::newRow(name) << set << expected;
    };
    row(
        "nothing set", [](auto&) {}, accepted);
    row(
        "unknown type", [](auto& adv) { adv.setType(GapAdvertisement::GapDeviceType(2)); }, notParsed);
    row(
        "no UUID",
        [](auto& adv) {
            adv.setServiceUUIDs({"180F", "battery"});
        },
        notParsed);
    row(
        "shortest interval", [](auto& adv) { adv.setMaxInterval(20); }, accepted);
    row(
        "too short an interval", [](auto& adv) { adv.setMaxInterval(19); }, notParsed);
    row(
        "longest interval", [](auto& adv) { adv.setMaxInterval(10485759); }, accepted);
    row(
        "too long an interval", [](auto& adv) { adv.setMaxInterval(10485760); }, notParsed);
    row(
        "shortest above longest",
        [](auto& adv) {
            adv.setMaxInterval(100);
            adv.setMinInterval(101);
        },
        notParsed);
    row(
        "most power", [](auto& adv) { adv.setTxPower(20); }, accepted);
    row(
        "too much power", [](auto& adv) { adv.setTxPower(21); }, notParsed);
    row(
        "least power", [](auto& adv) { adv.setTxPower(-127); }, accepted);
    row(
        "too little power", [](auto& adv) { adv.setTxPower(-128); }, notParsed);
    row(
        "raw flags", [](auto& adv) { adv.setAdvData(0x01, "x"); }, notParsed);
    row(
        "raw name", [](auto& adv) { adv.setAdvData(0x09, "x"); }, notParsed);
    row(
        "raw transport discovery", [](auto& adv) { adv.setAdvData(0x26, "x"); }, accepted);
    row(
        "raw scan response name", [](auto& adv) { adv.setScanRspData(0x09, "x"); }, notParsed);
    row(
        "empty raw data", [](auto& adv) { adv.setAdvData(0x26, ""); }, notParsed);
    row(
        "full payload", [](auto& adv) { adv.setAdvData(0x26, QByteArray(29, 'x')); }, accepted);
    row(
        "payload too long",
        [](auto& adv) {
            adv.setAdvData(0x26, QByteArray(26, 'x'));
            adv.setServiceUUIDs({"180F"});
        },
        notFitting);
    row(
        "discoverable broadcast",
        [](auto& adv) {
            adv.setType(GapAdvertisement::Broadcast);
            adv.setDiscoverable(true);
        },
        notParsed);
}

void tst_simulator_judgement::advertisementsAreJudged()
{
    QFETCH(const Setter, set);
    QFETCH(const QString, expected);
    Simulator daemon;
    GapAdvertisement adv(nullptr, "/adv", GapAdvertisement::SetProperties);
    set(adv);
    QCOMPARE(registerAdvertisement("/adv"), expected);
    QCOMPARE(daemon.advertisements().size(), expected == "accepted" ? 1 : 0);

    daemon.restart();
    daemon.acceptEverything();
    QCOMPARE(registerAdvertisement("/adv"), QString("accepted"));
}

QTEST_GUILESS_MAIN(tst_simulator_judgement)
#include "tst_simulator_judgement.moc"
