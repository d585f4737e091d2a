#include "RegistrationScenario.h"

#include <QDBusError>
#include <QEventLoop>
#include <QThread>

using namespace Scenario;

/** What an observer of the manager is told. */
class tst_registration_observer : public QObject
{
    Q_OBJECT

private slots:
    void everyStepIsToldWithItsPathsAndOutcome();
    void anErrorIsToldWithItsNameAndText();
    void aStepThatCannotBeSentIsTold();
    void aStepWithoutAManagerIsNoStep();
    void managersThatComeAndGoAreTold();
    void anotherObjectsLossNamesTheManagerThatWasLost();
    void theManagersOfAKilledDaemonAreGone();
    void aReleaseIsTold();
    void aReleaseOnAnotherThreadIsTold();
    void aReleaseOfWhatIsNotHeldIsNotTold();
    void aReleaseIsToldOnceHoweverOftenItWasAdded();
    void aNewObserverHearsNothingOld();
    void anObserverIsHeardOnlyWhileItIsSet();
    void everyManagerHasItsOwnObserver();
    void observingChangesNeitherLogNorCalls();
};

void tst_registration_observer::everyStepIsToldWithItsPathsAndOutcome()
{
    const Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    const Told told;
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    QCOMPARE(told.events().size(), 0);
    EVENTUALLY_COMPARE(told.events().size(), 2);
    BleManager::instance()->remove(&app);
    BleManager::instance()->remove(&adv);
    QCOMPARE(told.events().size(), 2);
    EVENTUALLY_COMPARE(told.events().size(), 4);
    const QStringList steps{"RegisterApplication", "RegisterAdvertisement", "UnregisterApplication",
                            "UnregisterAdvertisement"};
    QStringList heard;
    for (const Event& event : told.events()) {
        const bool isApp = event.step.endsWith("Application");
        heard << event.step;
        QCOMPARE(event.objectPath, QString(isApp ? "/app" : "/adv"));
        QCOMPARE(event.managerInterface, isApp ? gattManager : advertisingManager);
        QCOMPARE(event.managerPath, firstAdapter);
        QCOMPARE(event.kind, Event::StepSucceeded);
        QVERIFY(!event.superseded);
    }
    QCOMPARE(QSet<QString>(heard.begin(), heard.end()), QSet<QString>(steps.begin(), steps.end()));
}

void tst_registration_observer::anErrorIsToldWithItsNameAndText()
{
    Simulator daemon(acceptEverything);
    daemon.answerWithError("RegisterApplication", "org.bluez.Error.NotReady", "Not today");
    daemon.answerWithError("RegisterAdvertisement", "org.bluez.Error.Failed", "");
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    const Told told;
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(told.events().size(), 2);
    const QStringList lines = told.sortedLines();
    const Event& refusal = told.events().at(told.lines().indexOf(lines.at(1)));
    QCOMPARE(refusal.kind, Event::StepFailed);
    QCOMPARE(refusal.errorName, QString("org.bluez.Error.NotReady"));
    QCOMPARE(refusal.errorMessage, QString("Not today"));
    QVERIFY(!refusal.superseded);
    QCOMPARE(lines, QStringList({"RegisterAdvertisement of /adv at /org/bluez/hci0: failed: "
                                 "org.bluez.Error.Failed",
                                 "RegisterApplication of /app at /org/bluez/hci0: failed: Not today "
                                 "(org.bluez.Error.NotReady)"}));
}

void tst_registration_observer::aStepThatCannotBeSentIsTold()
{
    const Simulator daemon;
    const LogCapture log;
    const GapAdvertisement adv(nullptr, "no path");
    const Told told;
    BleManager::instance()->add(&adv);
    QCOMPARE(told.events().size(), 0);
    EVENTUALLY_COMPARE(told.events().size(), 1);
    QCOMPARE(told.events().at(0).kind, Event::StepFailed);
    QCOMPARE(told.events().at(0).step, QString("RegisterAdvertisement"));
    QCOMPARE(told.events().at(0).objectPath, QString("no path"));
    QCOMPARE(told.events().at(0).errorName, QDBusError::errorString(QDBusError::InvalidObjectPath));
    QCOMPARE(told.events().at(0).errorMessage, QString("Invalid object path: no path"));
}

void tst_registration_observer::aStepWithoutAManagerIsNoStep()
{
    Application app("/app");
    const Told told;
    BleManager::instance()->add(&app);
    app.change();
    BleManager::instance()->remove(&app);
    QCoreApplication::processEvents();
    QCOMPARE(told.lines(), QStringList());
}

void tst_registration_observer::managersThatComeAndGoAreTold()
{
    Simulator daemon;
    const Application app("/app");
    Told told;
    daemon.removeAdapter("hci0");
    EVENTUALLY_COMPARE(told.lines(),
                       QStringList({"org.bluez.GattManager1 is gone from /org/bluez/hci0",
                                    "org.bluez.LEAdvertisingManager1 is gone from /org/bluez/hci0"}));
    QCOMPARE(told.events().at(0).kind, Event::ManagerGone);
    told.clear();
    BleManager::instance()->add(&app);
    daemon.addAdapter("hci1");
    EVENTUALLY_COMPARE(told.lines(),
                       QStringList({"org.bluez.GattManager1 appeared at /org/bluez/hci1",
                                    "org.bluez.LEAdvertisingManager1 appeared at /org/bluez/hci1",
                                    "RegisterApplication of /app at /org/bluez/hci1: done"}));
    QCOMPARE(told.events().at(0).kind, Event::ManagerAppeared);
    QCOMPARE(told.events().at(2).kind, Event::StepSucceeded);
}

void tst_registration_observer::anotherObjectsLossNamesTheManagerThatWasLost()
{
    Simulator daemon;
    const Told told;
    daemon.withdraw("/elsewhere", {advertisingManager});
    EVENTUALLY_COMPARE(told.lines(),
                       QStringList("org.bluez.LEAdvertisingManager1 is gone from /org/bluez/hci0"));
    daemon.withdraw("/elsewhere", {advertisingManager});
    daemon.settle();
    QCOMPARE(told.events().size(), 1);
}

void tst_registration_observer::theManagersOfAKilledDaemonAreGone()
{
    Simulator daemon;
    const Application app("/app");
    Told told;
    BleManager::instance()->add(&app);
    EVENTUALLY_COMPARE(told.events().size(), 1);
    told.clear();
    daemon.vanish();
    EVENTUALLY_COMPARE(told.lines(),
                       QStringList({"org.bluez.GattManager1 is gone from /org/bluez/hci0",
                                    "org.bluez.LEAdvertisingManager1 is gone from /org/bluez/hci0"}));
    told.clear();
    daemon.appear();
    EVENTUALLY_COMPARE(told.lines(),
                       QStringList({"org.bluez.GattManager1 appeared at /org/bluez/hci0",
                                    "org.bluez.LEAdvertisingManager1 appeared at /org/bluez/hci0",
                                    "RegisterApplication of /app at /org/bluez/hci0: done"}));
}

void tst_registration_observer::aReleaseIsTold()
{
    Simulator daemon(acceptEverything);
    const GapAdvertisement adv(nullptr, "/adv");
    Told told;
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(told.events().size(), 1);
    told.clear();
    daemon.releaseAdvertisement("/adv");
    EVENTUALLY_COMPARE(told.lines(), QStringList("BlueZ released /adv"));
    const Event& release = told.events().at(0);
    QCOMPARE(release.kind, Event::AdvertisementReleased);
    QCOMPARE(release.objectPath, QString("/adv"));
    QCOMPARE(release.managerInterface, advertisingManager);
    QCOMPARE(release.managerPath, firstAdapter);
    QCOMPARE(release.step, QString());
}

void tst_registration_observer::aReleaseOnAnotherThreadIsTold()
{
    Simulator daemon(acceptEverything);
    QThread thread;
    auto* adv = new GapAdvertisement(nullptr, "/adv");
    adv->moveToThread(&thread);
    connect(&thread, &QThread::finished, adv, &QObject::deleteLater);
    thread.start();
    QThread* toldOn = nullptr;
    BleManager* manager = BleManager::instance();
    manager->setRegistrationObserver([&toldOn](const Event& event) {
        if (event.kind == Event::AdvertisementReleased) {
            toldOn = QThread::currentThread();
        }
    });
    manager->add(adv);
    EVENTUALLY_COMPARE(daemon.advertisements(), QStringList("/adv"));
    daemon.releaseAdvertisement("/adv");
    EVENTUALLY_COMPARE(toldOn, QThread::currentThread());
    manager->remove(adv);
    thread.quit();
    QVERIFY(thread.wait());
}

void tst_registration_observer::aReleaseOfWhatIsNotHeldIsNotTold()
{
    Simulator daemon(acceptEverything);
    const GapAdvertisement adv(nullptr, "/adv");
    Told told;
    BleManager::instance()->registerAdv(&adv);
    EVENTUALLY_COMPARE(told.lines(), QStringList("RegisterAdvertisement of /adv at /org/bluez/hci0: done"));
    const LogCapture log;
    daemon.releaseAdvertisement("/adv");
    EVENTUALLY_COMPARE(log.texts(log4cplus::DEBUG_LOG_LEVEL), QStringList("Gap advertisement release: /adv"));
    daemon.settle();
    QCOMPARE(told.events().size(), 1);
}

void tst_registration_observer::aReleaseIsToldOnceHoweverOftenItWasAdded()
{
    Simulator daemon(acceptEverything);
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&adv);
    manager->remove(&adv);
    manager->add(&adv);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
    const Told told;
    daemon.releaseAdvertisement("/adv");
    EVENTUALLY_VERIFY(!told.events().isEmpty());
    daemon.settle();
    QCOMPARE(told.lines(), QStringList("BlueZ released /adv"));
}

void tst_registration_observer::aNewObserverHearsNothingOld()
{
    const Simulator daemon;
    const LogCapture log;
    const GattApplication first(nullptr, "one path", "org.plim.scenario.first");
    const Application second("/second");
    BleManager* manager = BleManager::instance();
    manager->add(&first);
    const Told told;
    manager->add(&second);
    EVENTUALLY_COMPARE(told.lines(), QStringList("RegisterApplication of /second at /org/bluez/hci0: done"));
}

void tst_registration_observer::anObserverIsHeardOnlyWhileItIsSet()
{
    Simulator daemon;
    Application app("/app");
    BleManager* manager = BleManager::instance();
    const LogCapture log;
    const Told told;
    manager->add(&app);
    manager->setRegistrationObserver({});
    EVENTUALLY_COMPARE(completions(log).size(), 1);
    daemon.removeAdapter("hci0");
    daemon.settle();
    QCOMPARE(told.lines(), QStringList());
}

void tst_registration_observer::everyManagerHasItsOwnObserver()
{
    const Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager one(nullptr);
    BleManager other(nullptr);
    const Told first(&one);
    const Told second(&other);
    one.add(&app);
    other.add(&adv);
    EVENTUALLY_COMPARE(first.lines(), QStringList("RegisterApplication of /app at /org/bluez/hci0: done"));
    EVENTUALLY_COMPARE(second.lines(), QStringList("RegisterAdvertisement of /adv at /org/bluez/hci0: done"));
}

namespace {

/** Waits until that many steps have been answered or failed. */
bool answered(const LogCapture& log, int steps)
{
    return QTest::qWaitFor([&] { return completions(log).size() == steps; }, 10000);
}

/** Everything that a manager sends, and, sorted, writes, while much happens to it. */
QStringList lifeOfAManager(Simulator& daemon, const BleRegistrationObserver& observer)
{
    daemon.restart();
    daemon.clearCalls();
    BleManager manager(nullptr);
    daemon.settle();
    const LogCapture log;
    manager.setRegistrationObserver(observer);
    Application app("/app");
    auto adv = std::make_unique<GapAdvertisement>(nullptr, "/adv");
    const GapAdvertisement unsendable(nullptr, "no path");
    manager.add(&app);
    manager.add(adv.get());
    manager.add(&unsendable);
    bool ok = answered(log, 3);
    app.change();
    adv->setAppearance(1);
    ok = ok && answered(log, 7);
    daemon.releaseAdvertisement("/adv");
    daemon.settle();
    daemon.restart();
    ok = ok && answered(log, 10);
    daemon.removeAdapter("hci0");
    daemon.addAdapter("hci0");
    ok = ok && answered(log, 13);
    adv.reset();
    manager.remove(&app);
    ok = ok && answered(log, 14);
    QStringList lines{ok ? "all answered" : "answers are missing"};
    for (const LogLine& line : log.lines()) {
        lines << line.text;
    }
    lines.sort();
    return daemon.calls() + lines;
}

} // namespace

void tst_registration_observer::observingChangesNeitherLogNorCalls()
{
    Simulator daemon(acceptEverything);
    int events = 0;
    const QStringList unobserved = lifeOfAManager(daemon, {});
    const QStringList observed = lifeOfAManager(daemon, [&events](const Event&) { ++events; });
    QCOMPARE(observed, unobserved);
    QVERIFY(observed.contains("all answered"));
    QVERIFY(events > 14);
}

QTEST_GUILESS_MAIN(tst_registration_observer)
#include "tst_registration_observer.moc"
