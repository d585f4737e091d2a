#include "SimulatorScenario.h"

using namespace Scenario;

namespace {

constexpr auto SetProperties = GapAdvertisement::SetProperties;

const QStringList refused{"ERROR D-Bus call from 'registerAdv' failed: Failed to parse advertisement."};
const QStringList accepted{"DEBUG D-Bus call success: registerAdv"};

/** Adds an advertisement and waits for the daemon's verdict. */
QStringList verdict(const GapAdvertisement& adv)
{
    const LogCapture log;
    BleManager::instance()->add(&adv);
    const bool isAnswered = QTest::qWaitFor([&log] { return !completions(log).isEmpty(); }, 20000);
    return isAnswered ? completions(log) : QStringList("no verdict");
}

} // namespace

/** What the daemon makes of advertisements, strict as a stock one is or taking everything. */
class tst_advertisement_daemon : public QObject
{
    Q_OBJECT

private slots:
    void aStrictDaemonRefusesTheDefaultMode();
    void aStrictDaemonAcceptsWhatWasSet();
    void theOlderDaemonJudgesTheSame();
    void aDaemonThatTakesEverythingTakesBothModes();
    void theDaemonReadsAllTypesAsTheyAreDeclared();
    void theDaemonReadsScanResponseData();
    void aChangeIsReadAnew();
    void valuesOutOfRangeAreTheDaemonsToJudge();
};

void tst_advertisement_daemon::aStrictDaemonRefusesTheDefaultMode()
{
    const Simulator daemon;
    GapAdvertisement adv(nullptr, "/adv");
    adv.setLocalName("name");
    QCOMPARE(verdict(adv), refused);
    QCOMPARE(daemon.advertisements(), QStringList());
}

void tst_advertisement_daemon::aStrictDaemonAcceptsWhatWasSet()
{
    const Simulator daemon;
    GapAdvertisement adv(nullptr, "/adv", SetProperties);
    adv.setLocalName("name");
    adv.setServiceUUIDs({"180F"});
    QCOMPARE(verdict(adv), accepted);
    QCOMPARE(daemon.advertisements(), QStringList("/adv"));
    QCOMPARE(daemon.advertisementSignatures("/adv"),
             (QMap<QString, QString>{{"LocalName", "s"}, {"ServiceUUIDs", "as"}, {"Type", "s"}}));
}

void tst_advertisement_daemon::theOlderDaemonJudgesTheSame()
{
    const Simulator daemon({"--bluez", "5.66"});
    const GapAdvertisement complete(nullptr, "/complete");
    const GapAdvertisement sparse(nullptr, "/sparse", SetProperties);
    QCOMPARE(verdict(complete), refused);
    QCOMPARE(verdict(sparse), accepted);
}

void tst_advertisement_daemon::aDaemonThatTakesEverythingTakesBothModes()
{
    const Simulator daemon(acceptEverything);
    const GapAdvertisement complete(nullptr, "/complete");
    const GapAdvertisement sparse(nullptr, "/sparse", SetProperties);
    QCOMPARE(verdict(complete), accepted);
    QCOMPARE(verdict(sparse), accepted);
    QCOMPARE(daemon.advertisement("/complete").size(), 18);
    QCOMPARE(daemon.advertisement("/sparse"), QVariantMap({{"Type", "peripheral"}}));
}

void tst_advertisement_daemon::theDaemonReadsAllTypesAsTheyAreDeclared()
{
    const Simulator daemon(acceptEverything);
    const GapAdvertisement adv(nullptr, "/adv");
    QCOMPARE(verdict(adv), accepted);
    QCOMPARE(daemon.advertisementSignatures("/adv"), (QMap<QString, QString>{{"Appearance", "q"},
                                                                             {"Data", "a{yv}"},
                                                                             {"Discoverable", "b"},
                                                                             {"DiscoverableTimeout", "q"},
                                                                             {"Duration", "q"},
                                                                             {"Includes", "as"},
                                                                             {"LocalName", "s"},
                                                                             {"ManufacturerData", "a{qv}"},
                                                                             {"MaxInterval", "u"},
                                                                             {"MinInterval", "u"},
                                                                             {"ScanData", "a{yv}"},
                                                                             {"SecondaryChannel", "s"},
                                                                             {"ServiceData", "a{sv}"},
                                                                             {"ServiceUUIDs", "as"},
                                                                             {"SolicitUUIDs", "as"},
                                                                             {"Timeout", "q"},
                                                                             {"TxPower", "n"},
                                                                             {"Type", "s"}}));
}

void tst_advertisement_daemon::theDaemonReadsScanResponseData()
{
    const Simulator daemon;
    GapAdvertisement adv(nullptr, "/adv", SetProperties);
    adv.setScanRspData(0x26, QByteArray(29, 'x'));
    QCOMPARE(verdict(adv), accepted);
    QCOMPARE(daemon.advertisementSignatures("/adv").value("ScanResponseData"), QString("a{yv}"));

    GapAdvertisement tooLong(nullptr, "/long", SetProperties);
    tooLong.setScanRspData(0x26, QByteArray(30, 'x'));
    QCOMPARE(verdict(tooLong), refused);
}

void tst_advertisement_daemon::aChangeIsReadAnew()
{
    const Simulator daemon;
    GapAdvertisement adv(nullptr, "/adv", SetProperties);
    QCOMPARE(verdict(adv), accepted);
    const LogCapture log;
    adv.setAppearance(960);
    const QStringList answered{"DEBUG D-Bus call success: unregisterAdv",
                               "DEBUG D-Bus call success: registerAdv"};
    EVENTUALLY_COMPARE(completions(log), answered);
    QCOMPARE(daemon.advertisement("/adv").value("Appearance"), QVariant::fromValue(ushort(960)));
}

void tst_advertisement_daemon::valuesOutOfRangeAreTheDaemonsToJudge()
{
    const Simulator daemon;
    GapAdvertisement adv(nullptr, "/adv", SetProperties);
    adv.setTxPower(21);
    QCOMPARE(verdict(adv), refused);
    QCOMPARE(adv.txPower(), short(21));
    const LogCapture log;
    adv.setTxPower(20);
    EVENTUALLY_COMPARE(completions(log).filter("success"), accepted);
    QCOMPARE(daemon.advertisements(), QStringList("/adv"));
}

QTEST_GUILESS_MAIN(tst_advertisement_daemon)
#include "tst_advertisement_daemon.moc"
