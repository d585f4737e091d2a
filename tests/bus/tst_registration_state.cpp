#include "RegistrationScenario.h"

#include <QDBusError>

#include <new>

using namespace Scenario;

/** How BlueZ stands to an object, as the manager tells when it is asked. */
class tst_registration_state : public QObject
{
    Q_OBJECT

private slots:
    void whatWasNeverAddedIsNotHeld();
    void withoutADaemonObjectsWaitForTheManager();
    void anObjectIsAskedForUntilTheAnswer();
    void aRefusalIsKeptWithItsReasonUntilTheNextStep();
    void removedAndDeletedObjectsAreNotHeld();
    void anOvertakenAnswerChangesNothing();
    void anAnswerAboutADeletedObjectSaysNothingOfTheNextAtItsAddress();
    void anAnswerToAStepBeforeAddingChangesNothing();
    void aKilledDaemonLeavesObjectsWithoutAManager();
    void anAnswerThatADeadDaemonOwesChangesNothing();
    void addingWhileTheDaemonIsDeadIsWaiting();
    void aLostManagerLeavesOnlyItsOwnKindWaiting();
    void theLastAnnouncedManagerCounts();
    void aReleasedAdvertisementIsDroppedUntilItChanges();
    void aReleaseWhileAskedSaysNothing();
    void stepsByHandCount();
    void aPathThatCannotBeSentIsRefused();
    void manyChangesInARowEndRegistered();
};

void tst_registration_state::whatWasNeverAddedIsNotHeld()
{
    const Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->registerApp(&app);
    QCOMPARE(phaseOf(app), State::NotHeld);
    QCOMPARE(phaseOf(adv), State::NotHeld);
    QCOMPARE(manager->registrationState(static_cast<GattApplication*>(nullptr)).phase, State::NotHeld);
    QCOMPARE(manager->registrationState(static_cast<GapAdvertisement*>(nullptr)).phase, State::NotHeld);
    QCOMPARE(manager->registrationState(&app).text(), QString("not held"));
    daemon.settle();
    QCOMPARE(phaseOf(app), State::NotHeld);
}

void tst_registration_state::withoutADaemonObjectsWaitForTheManager()
{
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&app);
    manager->add(&adv);
    QCOMPARE(phaseOf(app), State::WaitingForBlueZ);
    QCOMPARE(phaseOf(adv), State::WaitingForBlueZ);
    QCOMPARE(manager->registrationState(&adv).text(), QString("waiting for BlueZ"));
    const Simulator daemon(acceptEverything);
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
}

void tst_registration_state::anObjectIsAskedForUntilTheAnswer()
{
    Simulator daemon(acceptEverything);
    daemon.answerLate("RegisterAdvertisement", 200);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&adv);
    manager->add(&app);
    QCOMPARE(phaseOf(app), State::Pending);
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    QCOMPARE(manager->registrationState(&app).text(), QString("registered at /org/bluez/hci0"));
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
}

void tst_registration_state::aRefusalIsKeptWithItsReasonUntilTheNextStep()
{
    Simulator daemon(acceptEverything);
    daemon.answerWithError("RegisterAdvertisement", "org.bluez.Error.NotPermitted", "Maximum reached");
    GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&adv);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Refused);
    const State refused = manager->registrationState(&adv);
    QCOMPARE(refused.managerPath, firstAdapter);
    QCOMPARE(refused.errorName, QString("org.bluez.Error.NotPermitted"));
    QCOMPARE(refused.errorMessage, QString("Maximum reached"));
    QCOMPARE(refused.text(), QString("refused at /org/bluez/hci0: Maximum reached "
                                     "(org.bluez.Error.NotPermitted)"));
    daemon.answerNormally("RegisterAdvertisement");
    adv.setAppearance(1);
    const State asked = manager->registrationState(&adv);
    QCOMPARE(asked.phase, State::Pending);
    QCOMPARE(asked.errorName, QString());
    QCOMPARE(asked.text(), QString("registration pending at /org/bluez/hci0"));
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
    QCOMPARE(manager->registrationState(&adv).errorMessage, QString());
}

void tst_registration_state::removedAndDeletedObjectsAreNotHeld()
{
    Simulator daemon(acceptEverything);
    daemon.answerLate("RegisterApplication", 100);
    auto app = std::make_unique<Application>("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    const Told told;
    manager->add(app.get());
    manager->add(&adv);
    manager->remove(&adv);
    QCOMPARE(phaseOf(adv), State::NotHeld);
    const GattApplication* gone = app.get();
    app.reset();
    QCOMPARE(manager->registrationState(gone).phase, State::NotHeld);
    EVENTUALLY_COMPARE(told.events().size(), 3);
    QCOMPARE(phaseOf(adv), State::NotHeld);
    QCOMPARE(manager->registrationState(gone).phase, State::NotHeld);
}

void tst_registration_state::anOvertakenAnswerChangesNothing()
{
    Simulator daemon;
    daemon.answerLate("RegisterApplication", 3000);
    Application app("/app");
    const Told told;
    BleManager::instance()->add(&app);
    daemon.settle();
    daemon.answerWithError("RegisterApplication", "org.bluez.Error.Failed", "Not today");
    app.change();
    EVENTUALLY_COMPARE(phaseOf(app), State::Refused);
    EVENTUALLY_COMPARE(told.sortedLines(),
                       QStringList({"RegisterApplication of /app at /org/bluez/hci0: done (superseded)",
                                    "RegisterApplication of /app at /org/bluez/hci0: failed: Not today "
                                    "(org.bluez.Error.Failed)",
                                    "UnregisterApplication of /app at /org/bluez/hci0: done (superseded)"}));
    QCOMPARE(phaseOf(app), State::Refused);
}

void tst_registration_state::anAnswerAboutADeletedObjectSaysNothingOfTheNextAtItsAddress()
{
    Simulator daemon;
    daemon.answerLate("RegisterApplication", 3000);
    alignas(Application) char place[sizeof(Application)];
    auto* first = new (place) Application("/first");
    BleManager* manager = BleManager::instance();
    const Told told;
    manager->add(first);
    daemon.settle();
    first->~Application();
    daemon.answerWithError("RegisterApplication", "org.bluez.Error.Failed", "Not today");
    auto* second = new (place) Application("/second");
    manager->add(second);
    EVENTUALLY_COMPARE(phaseOf(*second), State::Refused);
    EVENTUALLY_COMPARE(told.sortedLines(),
                       QStringList({"RegisterApplication of /first at /org/bluez/hci0: done (superseded)",
                                    "RegisterApplication of /second at /org/bluez/hci0: failed: Not today "
                                    "(org.bluez.Error.Failed)"}));
    QCOMPARE(phaseOf(*second), State::Refused);
    second->~Application();
}

void tst_registration_state::anAnswerToAStepBeforeAddingChangesNothing()
{
    Simulator daemon;
    daemon.answerLate("RegisterApplication", 3000);
    const Application app("/app");
    BleManager* manager = BleManager::instance();
    const Told told;
    manager->registerApp(&app);
    daemon.settle();
    daemon.withdraw("/elsewhere", {gattManager});
    daemon.settle();
    manager->add(&app);
    QCOMPARE(phaseOf(app), State::WaitingForBlueZ);
    EVENTUALLY_COMPARE(told.sortedLines(),
                       QStringList({"RegisterApplication of /app at /org/bluez/hci0: done",
                                    "org.bluez.GattManager1 is gone from /org/bluez/hci0"}));
    QCOMPARE(phaseOf(app), State::WaitingForBlueZ);
}

void tst_registration_state::aKilledDaemonLeavesObjectsWithoutAManager()
{
    Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&app);
    manager->add(&adv);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    daemon.vanish();
    EVENTUALLY_COMPARE(phaseOf(app), State::WaitingForBlueZ);
    QCOMPARE(phaseOf(adv), State::WaitingForBlueZ);
    QCOMPARE(manager->registrationState(&app).managerPath, QString());
    daemon.appear();
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
}

void tst_registration_state::anAnswerThatADeadDaemonOwesChangesNothing()
{
    Simulator daemon;
    daemon.neverAnswer("RegisterApplication");
    const Application app("/app");
    const Told told;
    BleManager::instance()->add(&app);
    daemon.settle();
    daemon.vanish();
    EVENTUALLY_COMPARE(told.events().size(), 3);
    QCOMPARE(told.events().at(2).kind, Event::StepFailed);
    QCOMPARE(phaseOf(app), State::WaitingForBlueZ);
}

void tst_registration_state::addingWhileTheDaemonIsDeadIsWaiting()
{
    Simulator daemon;
    const Told told;
    daemon.vanish();
    EVENTUALLY_COMPARE(told.events().size(), 2);
    const Application app("/app");
    BleManager::instance()->add(&app);
    EVENTUALLY_COMPARE(told.events().size(), 3);
    QCOMPARE(told.events().at(2).errorName, QString("org.freedesktop.DBus.Error.ServiceUnknown"));
    QVERIFY(!told.events().at(2).superseded);
    QCOMPARE(phaseOf(app), State::WaitingForBlueZ);
    daemon.appear();
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
}

void tst_registration_state::aLostManagerLeavesOnlyItsOwnKindWaiting()
{
    Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    daemon.withdraw("/org/bluez/hci0", {advertisingManager});
    EVENTUALLY_COMPARE(phaseOf(adv), State::WaitingForBlueZ);
    QCOMPARE(phaseOf(app), State::Registered);
    daemon.withdraw("/org/bluez/hci0", {gattManager});
    EVENTUALLY_COMPARE(phaseOf(app), State::WaitingForBlueZ);
}

void tst_registration_state::theLastAnnouncedManagerCounts()
{
    Simulator daemon;
    const Application app("/app");
    BleManager* manager = BleManager::instance();
    manager->add(&app);
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    QCOMPARE(manager->registrationState(&app).managerPath, firstAdapter);
    daemon.answerWithError("RegisterApplication", "org.bluez.Error.Failed", "Not here");
    daemon.addAdapter("hci1");
    EVENTUALLY_COMPARE(phaseOf(app), State::Refused);
    QCOMPARE(manager->registrationState(&app).managerPath, QString("/org/bluez/hci1"));
}

void tst_registration_state::aReleasedAdvertisementIsDroppedUntilItChanges()
{
    Simulator daemon(acceptEverything);
    GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&adv);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
    daemon.releaseAdvertisement("/adv");
    EVENTUALLY_COMPARE(phaseOf(adv), State::Dropped);
    QCOMPARE(manager->registrationState(&adv).text(),
             QString("held, no longer registered at /org/bluez/hci0"));
    adv.setAppearance(1);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
}

void tst_registration_state::aReleaseWhileAskedSaysNothing()
{
    Simulator daemon(acceptEverything);
    daemon.answerLate("RegisterAdvertisement", 3000);
    const GapAdvertisement adv(nullptr, "/adv");
    Told told;
    BleManager::instance()->add(&adv);
    daemon.settle(); // nothing here takes long: the answer may not come before the release
    QCOMPARE(daemon.advertisements(), QStringList("/adv"));
    daemon.releaseAdvertisement("/adv");
    daemon.settle();
    QCOMPARE(told.lines(), QStringList("BlueZ released /adv"));
    QCOMPARE(phaseOf(adv), State::Pending);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
}

void tst_registration_state::stepsByHandCount()
{
    const Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    Told told;
    manager->add(&app);
    manager->add(&adv);
    manager->unregisterApp(&app);
    manager->unregisterAdv(&adv);
    QCOMPARE(phaseOf(app), State::Dropped);
    QCOMPARE(phaseOf(adv), State::Dropped);
    EVENTUALLY_COMPARE(told.lines().filter("Unregister").size(), 2);
    QCOMPARE(phaseOf(app), State::Dropped);
    manager->registerApp(&app);
    manager->registerAdv(&adv);
    QCOMPARE(phaseOf(app), State::Pending);
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
}

void tst_registration_state::aPathThatCannotBeSentIsRefused()
{
    const Simulator daemon;
    const LogCapture log;
    const GapAdvertisement adv(nullptr, "no path");
    BleManager::instance()->add(&adv);
    const State state = BleManager::instance()->registrationState(&adv);
    QCOMPARE(state.phase, State::Refused);
    QCOMPARE(state.errorName, QDBusError::errorString(QDBusError::InvalidObjectPath));
    QCOMPARE(state.errorMessage, QString("Invalid object path: no path"));
}

void tst_registration_state::manyChangesInARowEndRegistered()
{
    const Simulator daemon(acceptEverything);
    GapAdvertisement adv(nullptr, "/adv");
    BleManager::instance()->add(&adv);
    for (unsigned short appearance = 0; appearance < 20; ++appearance) {
        adv.setAppearance(appearance);
        QCOMPARE(phaseOf(adv), State::Pending);
    }
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
    QCOMPARE(daemon.advertisement("/adv").value("Appearance").toUInt(), 19U);
}

QTEST_GUILESS_MAIN(tst_registration_state)
#include "tst_registration_state.moc"
