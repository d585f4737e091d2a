#include "RegistrationScenario.h"

#include <QEventLoop>

using namespace Scenario;

/** What an observer of the manager may do while it is called: everything. */
class tst_registration_observer_freedom : public QObject
{
    Q_OBJECT

private slots:
    void itMayDeleteTheObject();
    void itMayDeleteEverythingThatIsHeld();
    void itMayRemoveAndAddTheObject();
    void itMayAddMoreWhenAManagerAppears();
    void itMayChangeTheObject();
    void itMayClearItself();
    void aClearedObserverMissesWhatIsOnItsWay();
    void itMayReplaceItself();
    void itMayDeleteTheManager();
    void itMayRunAnEventLoop();
    void itMayThrow();
    void itMayThrowWhatIsNoException();
    void itIsNeverCalledInsideACall();
    void whatItOwnedMayUseTheManagerAsItEnds();
};

void tst_registration_observer_freedom::itMayDeleteTheObject()
{
    Simulator daemon(acceptEverything);
    auto app = std::make_unique<Application>("/app");
    auto adv = std::make_unique<GapAdvertisement>(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->setRegistrationObserver([&](const Event& event) {
        if (event.objectPath == "/app") {
            app.reset();
        } else if (event.kind == Event::AdvertisementReleased) {
            adv.reset();
        }
    });
    manager->add(app.get());
    manager->add(adv.get());
    EVENTUALLY_VERIFY(!app);
    EVENTUALLY_COMPARE(phaseOf(*adv), State::Registered);
    daemon.releaseAdvertisement("/adv");
    EVENTUALLY_VERIFY(!adv);
    daemon.settle();
}

void tst_registration_observer_freedom::itMayDeleteEverythingThatIsHeld()
{
    Simulator daemon(acceptEverything);
    std::vector<std::unique_ptr<QObject>> owned;
    BleManager* manager = BleManager::instance();
    for (const char* path : {"/one", "/two", "/three"}) {
        auto app = std::make_unique<Application>(QString(path) + "/app");
        auto adv = std::make_unique<GapAdvertisement>(nullptr, QString(path) + "/adv");
        manager->add(app.get());
        manager->add(adv.get());
        owned.push_back(std::move(app));
        owned.push_back(std::move(adv));
    }
    manager->setRegistrationObserver([&owned](const Event&) { owned.clear(); });
    daemon.restart();
    EVENTUALLY_VERIFY(owned.empty());
    daemon.settle();
    daemon.clearCalls();
    daemon.restart();
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList());
}

void tst_registration_observer_freedom::itMayRemoveAndAddTheObject()
{
    const Simulator daemon;
    const Application app("/app");
    BleManager* manager = BleManager::instance();
    int events = 0;
    manager->setRegistrationObserver([&](const Event&) {
        if (++events == 1) {
            manager->remove(&app);
            manager->add(&app);
        }
    });
    manager->add(&app);
    EVENTUALLY_COMPARE(events, 3);
    QCOMPARE(phaseOf(app), State::Registered);
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterApplication(/app, {})",
                                          "/org/bluez/hci0 UnregisterApplication(/app)",
                                          "/org/bluez/hci0 RegisterApplication(/app, {})"}));
}

void tst_registration_observer_freedom::itMayAddMoreWhenAManagerAppears()
{
    const Application held("/held");
    const Application late("/late");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&held);
    manager->setRegistrationObserver([&](const Event& event) {
        if (event.kind == Event::ManagerAppeared) {
            manager->add(&late);
            manager->add(&adv);
        }
    });
    const Simulator daemon(acceptEverything);
    EVENTUALLY_COMPARE(phaseOf(late), State::Registered);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterApplication(/held, {})",
                                          "/org/bluez/hci0 RegisterApplication(/late, {})",
                                          "/org/bluez/hci0 RegisterAdvertisement(/adv, {})"}));
}

void tst_registration_observer_freedom::itMayChangeTheObject()
{
    const Simulator daemon(acceptEverything);
    GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->setRegistrationObserver([&adv](const Event& event) {
        if (!event.superseded && adv.appearance() != 3) {
            adv.setAppearance(adv.appearance() == 0xFFFF ? 1 : adv.appearance() + 1);
        }
    });
    manager->add(&adv);
    EVENTUALLY_COMPARE(adv.appearance(), static_cast<unsigned short>(3));
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
}

void tst_registration_observer_freedom::itMayClearItself()
{
    const Simulator daemon;
    const Application app("/app");
    const Application other("/other");
    BleManager* manager = BleManager::instance();
    int events = 0;
    auto witness = std::make_shared<int>(7);
    const std::weak_ptr<int> owned = witness;
    manager->setRegistrationObserver([manager, &events, witness](const Event&) {
        manager->setRegistrationObserver({});
        events += *witness; // still owned while this runs
    });
    witness.reset();
    manager->add(&app);
    manager->add(&other);
    EVENTUALLY_COMPARE(phaseOf(other), State::Registered);
    EVENTUALLY_COMPARE(events, 7);
    daemon.settle();
    QCOMPARE(events, 7);
    QVERIFY(owned.expired());
}

void tst_registration_observer_freedom::aClearedObserverMissesWhatIsOnItsWay()
{
    const Simulator daemon;
    const LogCapture log;
    const GapAdvertisement first(nullptr, "one path");
    const GapAdvertisement second(nullptr, "another path");
    BleManager* manager = BleManager::instance();
    int events = 0;
    manager->setRegistrationObserver([&events, manager](const Event&) {
        ++events;
        manager->setRegistrationObserver({});
    });
    manager->add(&first);
    manager->add(&second);
    daemon.settle();
    QCOMPARE(events, 1);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL).filter("observer"), QStringList());
}

void tst_registration_observer_freedom::itMayReplaceItself()
{
    const Simulator daemon;
    const Application app("/app");
    const Application other("/other");
    BleManager* manager = BleManager::instance();
    QStringList heard;
    manager->setRegistrationObserver([&](const Event& event) {
        heard << "first: " + event.objectPath;
        manager->setRegistrationObserver([&](const Event& next) { heard << "second: " + next.objectPath; });
    });
    manager->add(&app);
    EVENTUALLY_COMPARE(heard, QStringList("first: /app"));
    manager->add(&other);
    EVENTUALLY_COMPARE(heard, QStringList({"first: /app", "second: /other"}));
}

void tst_registration_observer_freedom::itMayDeleteTheManager()
{
    Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    auto manager = std::make_unique<BleManager>(nullptr);
    int events = 0;
    manager->setRegistrationObserver([&](const Event&) {
        ++events;
        manager.reset();
    });
    manager->add(&app);
    manager->add(&adv);
    EVENTUALLY_VERIFY(!manager);
    daemon.settle();
    daemon.releaseAdvertisement("/adv");
    daemon.restart();
    daemon.settle();
    QCOMPARE(events, 1);
}

void tst_registration_observer_freedom::itMayRunAnEventLoop()
{
    const Simulator daemon;
    const Application app("/app");
    const Application other("/other");
    BleManager* manager = BleManager::instance();
    QStringList heard;
    QEventLoop loop;
    manager->setRegistrationObserver([&](const Event& event) {
        heard << event.objectPath;
        if (event.objectPath == "/app") {
            manager->add(&other);
            loop.exec();
            heard << "after the loop";
        } else {
            loop.quit();
        }
    });
    manager->add(&app);
    EVENTUALLY_COMPARE(heard, QStringList({"/app", "/other", "after the loop"}));
}

void tst_registration_observer_freedom::itMayThrow()
{
    const Simulator daemon;
    const Application app("/app");
    const Application other("/other");
    BleManager* manager = BleManager::instance();
    const LogCapture log;
    manager->setRegistrationObserver(
        [](const Event& event) { throw std::runtime_error(event.objectPath.toStdString()); });
    manager->add(&app);
    EVENTUALLY_COMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL),
                       QStringList("Registration observer failed: /app"));
    manager->add(&other);
    EVENTUALLY_COMPARE(
        log.texts(log4cplus::ERROR_LOG_LEVEL),
        QStringList({"Registration observer failed: /app", "Registration observer failed: /other"}));
    QCOMPARE(phaseOf(app), State::Registered);
}

void tst_registration_observer_freedom::itMayThrowWhatIsNoException()
{
    const Simulator daemon;
    const Application app("/app");
    BleManager* manager = BleManager::instance();
    const LogCapture log;
    manager->setRegistrationObserver([](const Event&) { throw 42; });
    manager->add(&app);
    EVENTUALLY_COMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL), QStringList("Registration observer failed"));
}

void tst_registration_observer_freedom::itIsNeverCalledInsideACall()
{
    Simulator daemon(acceptEverything);
    daemon.answerLate("RegisterApplication", 50);
    const LogCapture log;
    Application app("/app");
    GapAdvertisement adv(nullptr, "no path");
    BleManager* manager = BleManager::instance();
    bool inside = false;
    int events = 0;
    int eventsInside = 0;
    manager->setRegistrationObserver([&](const Event&) {
        ++events;
        eventsInside += inside ? 1 : 0;
    });
    const auto call = [&inside](const auto& what) {
        inside = true;
        what();
        inside = false;
    };
    call([&] { manager->add(&app); });
    EVENTUALLY_COMPARE(events, 1);
    call([&] { manager->add(&adv); });
    call([&] { adv.setAppearance(1); });
    call([&] { app.change(); });
    EVENTUALLY_COMPARE(events, 6);
    call([&] { manager->remove(&adv); });
    call([&] { manager->remove(&app); });
    EVENTUALLY_COMPARE(events, 8);
    QCOMPARE(eventsInside, 0);
}

void tst_registration_observer_freedom::whatItOwnedMayUseTheManagerAsItEnds()
{
    struct LastWords
    {
        ~LastWords() { BleManager::instance()->setRegistrationObserver({}); }
    };
    const Simulator daemon;
    const Application app("/app");
    BleManager* manager = BleManager::instance();
    auto lastWords = std::make_shared<LastWords>();
    manager->setRegistrationObserver([lastWords](const Event&) {});
    lastWords.reset();
    int events = 0;
    manager->setRegistrationObserver([&events](const Event&) { ++events; });
    manager->add(&app);
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    daemon.settle();
    QCOMPARE(events, 0); // the former one's last words count
}

QTEST_GUILESS_MAIN(tst_registration_observer_freedom)
#include "tst_registration_observer_freedom.moc"
