#include "SimulatorScenario.h"

using namespace Scenario;

/** How the manager takes the daemon's answers, also where they are errors, late, missing or no longer of use.
 */
class tst_manager_answers : public QObject
{
    Q_OBJECT

private slots:
    void everyStepReportsItsOwnError();
    void anErrorChangesNothingAndIsNotRetried();
    void aRefusalIsReportedWithTheDaemonsText();
    void aLateAnswerIsReportedWhenItArrives();
    void aCallThatIsNeverAnsweredHoldsUpNothing();
    void aDeletedApplicationIsForgottenWithoutACall();
    void aDeletedAdvertisementIsForgottenWithoutACall();
    void deletingObjectsWhileTheirCallsAreUnderWayIsSafe();
    void deletingTheAdvertisementThatChangesIsSafe();
    void everyRestartRegistersAllThatIsHeld();
    void theDaemonsReleaseLeavesAnAdvertisementHeld();
};

void tst_manager_answers::everyStepReportsItsOwnError()
{
    Simulator daemon(acceptEverything);
    const QMap<QString, QString> texts{{"RegisterApplication", "Not today"},
                                       {"UnregisterApplication", "Never was there"},
                                       {"RegisterAdvertisement", "100% full"},
                                       {"UnregisterAdvertisement", ""}};
    for (auto it = texts.begin(); it != texts.end(); ++it) {
        daemon.answerWithError(it.key(), "org.bluez.Error.Failed", it.value());
    }
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    const LogCapture log;
    manager->add(&app);
    manager->add(&adv);
    manager->remove(&app);
    manager->remove(&adv);
    EVENTUALLY_COMPARE(completions(log).size(), 4);
    QCOMPARE(sortedCompletions(log),
             QStringList({"ERROR D-Bus call from 'registerAdv' failed: 100% full",
                          "ERROR D-Bus call from 'registerApp' failed: Not today",
                          "ERROR D-Bus call from 'unregisterAdv' failed: ",
                          "ERROR D-Bus call from 'unregisterApp' failed: Never was there"}));
    QCOMPARE(managerLines(log).filter("TRACE Enter BleManager::on_dbusWatcher_finished: ").size(), 4);
}

void tst_manager_answers::anErrorChangesNothingAndIsNotRetried()
{
    Simulator daemon;
    daemon.answerWithError("RegisterApplication", "org.bluez.Error.Failed", "Not today");
    Application app("/app");
    const LogCapture log;
    BleManager::instance()->add(&app);
    EVENTUALLY_COMPARE(completions(log).size(), 1);
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 1);

    daemon.answerNormally("RegisterApplication");
    app.change();
    EVENTUALLY_COMPARE(completions(log),
                       QStringList({"ERROR D-Bus call from 'registerApp' failed: Not today",
                                    "ERROR D-Bus call from 'unregisterApp' failed: Does Not Exist",
                                    "DEBUG D-Bus call success: registerApp"}));
    QCOMPARE(daemon.applications(), QStringList("/app"));
}

void tst_manager_answers::aRefusalIsReportedWithTheDaemonsText()
{
    const Simulator daemon;
    const GattApplication empty(nullptr, "/empty", "org.plim.scenario.empty");
    const Application app("/app");
    BleManager* manager = BleManager::instance();
    const LogCapture log;
    manager->add(&empty);
    EVENTUALLY_COMPARE(completions(log),
                       QStringList("ERROR D-Bus call from 'registerApp' failed: No object received"));
    manager->add(&app);
    manager->registerApp(&app);
    EVENTUALLY_COMPARE(completions(log).size(), 3);
    QVERIFY(completions(log).contains("DEBUG D-Bus call success: registerApp"));
    QVERIFY(completions(log).contains("ERROR D-Bus call from 'registerApp' failed: Already Exists"));
}

void tst_manager_answers::aLateAnswerIsReportedWhenItArrives()
{
    Simulator daemon(acceptEverything);
    daemon.answerLate("RegisterApplication", 3000);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    const LogCapture log;
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    daemon.settle();
    QCOMPARE(completions(log), QStringList("DEBUG D-Bus call success: registerAdv"));
    EVENTUALLY_COMPARE(completions(log), QStringList({"DEBUG D-Bus call success: registerAdv",
                                                      "DEBUG D-Bus call success: registerApp"}));
}

void tst_manager_answers::aCallThatIsNeverAnsweredHoldsUpNothing()
{
    Simulator daemon(acceptEverything);
    daemon.neverAnswer("RegisterApplication");
    const Application app("/app");
    GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    const LogCapture log;
    manager->add(&app);
    manager->add(&adv);
    adv.setAppearance(7);
    manager->remove(&app);
    EVENTUALLY_VERIFY(completions(log).contains("DEBUG D-Bus call success: registerAdv"));
    EVENTUALLY_VERIFY(
        completions(log).contains("ERROR D-Bus call from 'unregisterApp' failed: Does Not Exist"));
    QCOMPARE(completions(log).filter(QRegularExpression("\\bregisterApp")), QStringList());
}

void tst_manager_answers::aDeletedApplicationIsForgottenWithoutACall()
{
    Simulator daemon;
    auto app = std::make_unique<Application>("/app");
    const Application other("/other");
    LogCapture log;
    BleManager::instance()->add(app.get());
    BleManager::instance()->add(&other);
    EVENTUALLY_COMPARE(completions(log).size(), 2);
    daemon.clearCalls();
    log.clear();
    app.reset();
    daemon.settle();
    QCOMPARE(managerLines(log), QStringList("DEBUG Enter BleManager::on_applicationDeleted: "));
    QCOMPARE(daemon.calls(), QStringList());

    daemon.addAdapter("hci1");
    EVENTUALLY_COMPARE(daemon.calls(), QStringList("/org/bluez/hci1 RegisterApplication(/other, {})"));
}

void tst_manager_answers::aDeletedAdvertisementIsForgottenWithoutACall()
{
    Simulator daemon(acceptEverything);
    auto adv = std::make_unique<GapAdvertisement>(nullptr, "/adv");
    const GapAdvertisement other(nullptr, "/other");
    LogCapture log;
    BleManager::instance()->add(adv.get());
    BleManager::instance()->add(&other);
    EVENTUALLY_COMPARE(completions(log).size(), 2);
    daemon.clearCalls();
    log.clear();
    adv.reset();
    daemon.settle();
    QCOMPARE(managerLines(log), QStringList("DEBUG Enter BleManager::on_advertisementDeleted: "));
    QCOMPARE(daemon.calls(), QStringList());

    daemon.addAdapter("hci1");
    EVENTUALLY_COMPARE(daemon.calls(), QStringList("/org/bluez/hci1 RegisterAdvertisement(/other, {})"));
}

void tst_manager_answers::deletingObjectsWhileTheirCallsAreUnderWayIsSafe()
{
    Simulator daemon;
    daemon.answerLate("UnregisterApplication", 100);
    auto app = std::make_unique<Application>("/app");
    auto adv = std::make_unique<GapAdvertisement>(nullptr, "/adv");
    const LogCapture log;
    BleManager::instance()->add(app.get());
    BleManager::instance()->add(adv.get());
    app->change();
    BleManager::instance()->remove(app.get());
    app.reset();
    adv.reset();
    // The daemon finds nothing any more where it looks for the objects.
    EVENTUALLY_COMPARE(completions(log).filter("unregisterApp").size(), 2);
    EVENTUALLY_COMPARE(
        completions(log).filter("registerAdv"),
        QStringList("ERROR D-Bus call from 'registerAdv' failed: Failed to parse advertisement."));
    QCOMPARE(daemon.applications(), QStringList());
    QCOMPARE(daemon.advertisements(), QStringList());
}

void tst_manager_answers::deletingTheAdvertisementThatChangesIsSafe()
{
    const Simulator daemon(acceptEverything);
    auto* adv = new GapAdvertisement(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    // One slot runs before the manager's, one after it.
    int changes = 0;
    connect(adv, &GapAdvertisement::dataChanged, this, [&changes] { ++changes; });
    manager->add(adv);
    connect(adv, &GapAdvertisement::dataChanged, this,
            [](const GapAdvertisement* changed) { delete changed; });
    adv->setLocalName("last words");
    QCOMPARE(changes, 1);
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterAdvertisement(/adv, {})",
                                          "/org/bluez/hci0 UnregisterAdvertisement(/adv)",
                                          "/org/bluez/hci0 RegisterAdvertisement(/adv, {})"}));
}

void tst_manager_answers::everyRestartRegistersAllThatIsHeld()
{
    Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement first(nullptr, "/first");
    const GapAdvertisement second(nullptr, "/second");
    LogCapture log;
    BleManager::instance()->add(&second);
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&first);
    EVENTUALLY_COMPARE(completions(log).size(), 3);
    for (int restart = 0; restart < 3; ++restart) {
        daemon.clearCalls();
        log.clear();
        daemon.restart();
        EVENTUALLY_COMPARE(completions(log).filter("success").size(), 3);
        QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterApplication(/app, {})",
                                              "/org/bluez/hci0 RegisterAdvertisement(/second, {})",
                                              "/org/bluez/hci0 RegisterAdvertisement(/first, {})"}));
        QCOMPARE(daemon.applications(), QStringList("/app"));
        QCOMPARE(daemon.advertisements(), QStringList({"/second", "/first"}));
    }
}

void tst_manager_answers::theDaemonsReleaseLeavesAnAdvertisementHeld()
{
    Simulator daemon(acceptEverything);
    const GapAdvertisement adv(nullptr, "/adv");
    LogCapture log;
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(completions(log).size(), 1);
    log.clear();
    daemon.releaseAdvertisement("/adv");
    EVENTUALLY_COMPARE(log.texts(log4cplus::DEBUG_LOG_LEVEL), QStringList("Gap advertisement release: /adv"));
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 1);
    daemon.restart();
    EVENTUALLY_COMPARE(daemon.advertisements(), QStringList("/adv"));
}

QTEST_GUILESS_MAIN(tst_manager_answers)
#include "tst_manager_answers.moc"
