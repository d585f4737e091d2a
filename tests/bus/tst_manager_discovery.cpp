#include "SimulatorScenario.h"

using namespace Scenario;

/** How the manager finds BlueZ's managers, and follows them as they come and go. */
class tst_manager_discovery : public QObject
{
    Q_OBJECT

private slots:
    void thereIsOneManager();
    void bothManagersOnOneObjectAreFoundWithoutALogLine();
    void managersOnDifferentObjectsAreFound();
    void theFirstObjectInPathOrderIsTaken();
    void theFirstCallWaitsForTheDaemonsAnswer();
    void theObjectsAreAskedForOnce();
    void withoutADaemonNothingIsLogged();
    void anErrorForTheObjectListLeavesBothManagersAbsent();
    void whatWasAddedBeforeTheDaemonStartsIsRegisteredInOrder();
    void aSecondObjectTakesOverAndNothingIsUnregistered();
    void anotherObjectsLossClearsTheGattManager();
    void anotherObjectsLossClearsTheAdvertisingManager();
    void losingAnUnknownInterfaceChangesNothing();
    void anObjectWithOneManagerReplacesOnlyThatOne();
    void theLinesOfAnAppearance();
    void theLinesOfALoss();
};

void tst_manager_discovery::thereIsOneManager()
{
    BleManager* manager = BleManager::instance();
    QVERIFY(manager);
    QCOMPARE(BleManager::instance(), manager);
    QVERIFY(!manager->parent());
    QCoreApplication::processEvents(); // Qt's first use of the bus leaves something to do behind
}

void tst_manager_discovery::bothManagersOnOneObjectAreFoundWithoutALogLine()
{
    const Simulator daemon(acceptEverything);
    const LogCapture log;
    BleManager* manager = BleManager::instance();
    QVERIFY(log.lines().isEmpty());

    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    manager->add(&app);
    manager->add(&adv);
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterApplication(/app, {})",
                                          "/org/bluez/hci0 RegisterAdvertisement(/adv, {})"}));
}

void tst_manager_discovery::managersOnDifferentObjectsAreFound()
{
    Simulator daemon({"--accept-everything", "--adapter", "hci0", "--adapter", "hci1"});
    daemon.withdraw("/org/bluez/hci0", {gattManager});
    daemon.withdraw("/org/bluez/hci1", {advertisingManager});
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci1 RegisterApplication(/app, {})",
                                          "/org/bluez/hci0 RegisterAdvertisement(/adv, {})"}));
}

void tst_manager_discovery::theFirstObjectInPathOrderIsTaken()
{
    const Simulator daemon({"--adapter", "hci7", "--adapter", "hci1", "--adapter", "hci3"});
    const Application app("/app");
    BleManager::instance()->add(&app);
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList("/org/bluez/hci1 RegisterApplication(/app, {})"));
}

void tst_manager_discovery::theFirstCallWaitsForTheDaemonsAnswer()
{
    Simulator daemon;
    daemon.answerLate("GetManagedObjects", 200);
    const Application app("/app");
    BleManager::instance()->add(&app);
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList("/org/bluez/hci0 RegisterApplication(/app, {})"));
}

void tst_manager_discovery::theObjectsAreAskedForOnce()
{
    Simulator daemon(acceptEverything);
    const Application app("/app");
    BleManager::instance()->add(&app);
    daemon.addAdapter("hci1");
    daemon.restart();
    EVENTUALLY_VERIFY(daemon.calls().size() >= 2);
    daemon.settle();
    QCOMPARE(daemon.callsOf("GetManagedObjects"), 1);
}

void tst_manager_discovery::withoutADaemonNothingIsLogged()
{
    const LogCapture log;
    BleManager::instance();
    QCoreApplication::processEvents();
    QVERIFY(log.lines().isEmpty());
}

void tst_manager_discovery::anErrorForTheObjectListLeavesBothManagersAbsent()
{
    Simulator daemon(acceptEverything);
    daemon.answerWithError("GetManagedObjects", "org.bluez.Error.Failed", "No list today");
    const LogCapture log;
    BleManager* manager = BleManager::instance();
    QVERIFY(log.lines().isEmpty());

    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    manager->add(&app);
    manager->add(&adv);
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList());

    daemon.addAdapter("hci1");
    EVENTUALLY_COMPARE(daemon.calls(), QStringList({"/org/bluez/hci1 RegisterApplication(/app, {})",
                                                    "/org/bluez/hci1 RegisterAdvertisement(/adv, {})"}));
}

void tst_manager_discovery::whatWasAddedBeforeTheDaemonStartsIsRegisteredInOrder()
{
    // The order of adding is neither that of the paths nor that of the addresses in an array.
    const Application apps[] = {Application("/z"), Application("/m"), Application("/a")};
    const GapAdvertisement late(nullptr, "/late");
    const GapAdvertisement early(nullptr, "/early");
    BleManager* manager = BleManager::instance();
    manager->add(&early);
    manager->add(&apps[1]);
    manager->add(&apps[0]);
    manager->add(&late);
    manager->add(&apps[2]);

    const Simulator daemon(acceptEverything);
    EVENTUALLY_COMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterApplication(/m, {})",
                                                    "/org/bluez/hci0 RegisterApplication(/z, {})",
                                                    "/org/bluez/hci0 RegisterApplication(/a, {})",
                                                    "/org/bluez/hci0 RegisterAdvertisement(/early, {})",
                                                    "/org/bluez/hci0 RegisterAdvertisement(/late, {})"}));
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 5);
}

void tst_manager_discovery::aSecondObjectTakesOverAndNothingIsUnregistered()
{
    Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&app);
    manager->add(&adv);
    daemon.settle();
    daemon.clearCalls();

    daemon.addAdapter("hci1");
    EVENTUALLY_COMPARE(daemon.calls(), QStringList({"/org/bluez/hci1 RegisterApplication(/app, {})",
                                                    "/org/bluez/hci1 RegisterAdvertisement(/adv, {})"}));
    manager->remove(&adv);
    manager->remove(&app);
    daemon.settle();
    QCOMPARE(daemon.calls().mid(2), QStringList({"/org/bluez/hci1 UnregisterAdvertisement(/adv)",
                                                 "/org/bluez/hci1 UnregisterApplication(/app)"}));
}

void tst_manager_discovery::anotherObjectsLossClearsTheGattManager()
{
    Simulator daemon(acceptEverything);
    BleManager* manager = BleManager::instance();
    daemon.withdraw("/elsewhere", {"org.example.Other", gattManager});
    daemon.settle();
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    manager->add(&app);
    manager->add(&adv);
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList("/org/bluez/hci0 RegisterAdvertisement(/adv, {})"));

    daemon.clearCalls();
    daemon.announce("/org/bluez/hci0", {gattManager});
    EVENTUALLY_COMPARE(daemon.calls(), QStringList("/org/bluez/hci0 RegisterApplication(/app, {})"));
}

void tst_manager_discovery::anotherObjectsLossClearsTheAdvertisingManager()
{
    Simulator daemon(acceptEverything);
    BleManager* manager = BleManager::instance();
    daemon.withdraw("/elsewhere", {advertisingManager});
    daemon.settle();
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    manager->add(&adv);
    manager->add(&app);
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList("/org/bluez/hci0 RegisterApplication(/app, {})"));
}

void tst_manager_discovery::losingAnUnknownInterfaceChangesNothing()
{
    Simulator daemon(acceptEverything);
    BleManager* manager = BleManager::instance();
    daemon.withdraw("/org/bluez/hci0", {"org.bluez.gattmanager1", "org.bluez.LEAdvertisingManager"});
    daemon.settle();
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    manager->add(&app);
    manager->add(&adv);
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 2);
}

void tst_manager_discovery::anObjectWithOneManagerReplacesOnlyThatOne()
{
    Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&app);
    manager->add(&adv);
    daemon.settle();
    daemon.clearCalls();

    daemon.announce("/org/bluez/hci5", {advertisingManager});
    EVENTUALLY_COMPARE(daemon.calls(), QStringList("/org/bluez/hci5 RegisterAdvertisement(/adv, {})"));
    manager->remove(&app);
    daemon.settle();
    QCOMPARE(daemon.calls().mid(1), QStringList("/org/bluez/hci0 UnregisterApplication(/app)"));
}

void tst_manager_discovery::theLinesOfAnAppearance()
{
    Simulator daemon({"--accept-everything", "--adapter", "hci0"});
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    LogCapture log;
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(completions(log).size(), 2);
    log.clear();
    daemon.announce("/other/place", {advertisingManager, "org.example.Else", gattManager});
    EVENTUALLY_VERIFY(managerLines(log).size() >= 5);
    QCOMPARE(log.lines().first().function,
             "void BleManager::on_interfacesAdded(QDBusObjectPath, DBusInterfaceList)");
    const QString entry =
        "TRACE Enter BleManager::on_interfacesAdded: Interface added: /other/place, interfaces: "
        "(org.bluez.GattManager1, org.bluez.LEAdvertisingManager1, org.example.Else)";
    QCOMPARE(managerLines(log).mid(0, 5), QStringList({entry, "DEBUG Gatt Manager appears: /other/place",
                                                       "DEBUG Enter BleManager::registerApp: /app",
                                                       "DEBUG Le Avertisement Manager appears/other/place",
                                                       "DEBUG Enter BleManager::registerAdv: /adv"}));
}

void tst_manager_discovery::theLinesOfALoss()
{
    Simulator daemon;
    const Application app("/app");
    LogCapture log;
    BleManager::instance()->add(&app);
    EVENTUALLY_COMPARE(completions(log).size(), 1);
    log.clear();
    daemon.withdraw("/other/place", {advertisingManager, "org.example.Else", gattManager});
    EVENTUALLY_COMPARE(
        managerLines(log),
        QStringList(
            {"TRACE Enter BleManager::on_interfacesRemoved: Interface removed: /other/place, interfaces: "
             "(org.bluez.LEAdvertisingManager1, org.example.Else, org.bluez.GattManager1)",
             "DEBUG Gatt Manager was removed", "DEBUG Le Avertisement Manager was removed"}));
    QCOMPARE(log.lines().first().function,
             "void BleManager::on_interfacesRemoved(QDBusObjectPath, QStringList)");
    daemon.withdraw("/other/place", {});
    EVENTUALLY_COMPARE(managerLines(log).mid(3),
                       QStringList("TRACE Enter BleManager::on_interfacesRemoved: Interface removed: "
                                   "/other/place, interfaces: ()"));
}

QTEST_GUILESS_MAIN(tst_manager_discovery)
#include "tst_manager_discovery.moc"
