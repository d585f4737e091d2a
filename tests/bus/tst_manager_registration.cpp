#include "SimulatorScenario.h"

using namespace Scenario;

/** What the manager sends for the objects that it is given, and what it writes about that. */
class tst_manager_registration : public QObject
{
    Q_OBJECT

private slots:
    void addingWithoutADaemonOnlyHolds();
    void addingRegistersAndReportsTheAnswer();
    void addingTwiceSendsNothingMore();
    void removingUnregistersAndReportsTheAnswer();
    void removingWhatWasNeverAddedSendsNothing();
    void removedObjectsAreForgotten();
    void anAddedAgainObjectComesLast();
    void aChangedTreeIsUnregisteredThenRegistered();
    void aChangedAdvertisementIsUnregisteredThenRegistered();
    void aChangeWithoutADaemonSendsNothing();
    void optionsAreAnEmptyDictionary();
    void withoutAnAdvertisingManagerOnlyApplicationsAreSent();
    void withoutAGattManagerOnlyAdvertisementsAreSent();
    void theStepsWorkForObjectsThatAreNotHeld();
    void aPathThatCannotBeSentIsReported();
    void nullObjectsAreReported();
};

void tst_manager_registration::addingWithoutADaemonOnlyHolds()
{
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    const LogCapture log;
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    QCOMPARE(managerLines(log),
             QStringList({"DEBUG Enter BleManager::add: /app", "INFO Add application: /app",
                          "DEBUG Enter BleManager::registerApp: /app", "DEBUG Enter BleManager::add: /adv",
                          "INFO Add advertisement: /adv", "DEBUG Enter BleManager::registerAdv: /adv"}));
    Simulator daemon({"--accept-everything", "--absent"});
    daemon.appear();
    EVENTUALLY_COMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterApplication(/app, {})",
                                                    "/org/bluez/hci0 RegisterAdvertisement(/adv, {})"}));
}

void tst_manager_registration::addingRegistersAndReportsTheAnswer()
{
    const Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    LogCapture log;
    BleManager::instance()->add(&app);
    const QStringList answered{"TRACE Enter BleManager::on_dbusWatcher_finished: ",
                               "DEBUG D-Bus call success: registerApp"};
    EVENTUALLY_COMPARE(managerLines(log).mid(3), answered);
    QCOMPARE(daemon.applications(), QStringList("/app"));

    log.clear();
    BleManager::instance()->add(&adv);
    const QStringList alsoAnswered{"TRACE Enter BleManager::on_dbusWatcher_finished: ",
                                   "DEBUG D-Bus call success: registerAdv"};
    EVENTUALLY_COMPARE(managerLines(log).mid(3), alsoAnswered);
    QCOMPARE(daemon.advertisements(), QStringList("/adv"));
}

void tst_manager_registration::addingTwiceSendsNothingMore()
{
    const Simulator daemon(acceptEverything);
    Application app("/app");
    GapAdvertisement adv(nullptr, "/adv");
    LogCapture log;
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(completions(log).size(), 2);
    log.clear();
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    daemon.settle();
    QCOMPARE(managerLines(log),
             QStringList({"DEBUG Enter BleManager::add: /app", "DEBUG Enter BleManager::add: /adv"}));
    QCOMPARE(daemon.calls().size(), 2);

    app.change();
    adv.setAppearance(1);
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 6);
    BleManager::instance()->remove(&app);
    BleManager::instance()->remove(&adv);
    app.change();
    adv.setAppearance(2);
    daemon.settle();
    QCOMPARE(daemon.calls().mid(6), QStringList({"/org/bluez/hci0 UnregisterApplication(/app)",
                                                 "/org/bluez/hci0 UnregisterAdvertisement(/adv)"}));
}

void tst_manager_registration::removingUnregistersAndReportsTheAnswer()
{
    const Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    LogCapture log;
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(completions(log).size(), 2);

    log.clear();
    BleManager::instance()->remove(&app);
    const QStringList removed{
        "DEBUG Enter BleManager::remove: /app", "INFO Remove application: /app",
        "DEBUG Enter BleManager::unregisterApp: /app",
        "TRACE Enter BleManager::on_dbusWatcher_finished: ", "DEBUG D-Bus call success: unregisterApp"};
    EVENTUALLY_COMPARE(managerLines(log), removed);
    QCOMPARE(daemon.applications(), QStringList());

    log.clear();
    BleManager::instance()->remove(&adv);
    const QStringList alsoRemoved{
        "DEBUG Enter BleManager::remove: /adv", "INFO Remove advertisement: /adv",
        "DEBUG Enter BleManager::unregisterAdv: /adv",
        "TRACE Enter BleManager::on_dbusWatcher_finished: ", "DEBUG D-Bus call success: unregisterAdv"};
    EVENTUALLY_COMPARE(managerLines(log), alsoRemoved);
    QCOMPARE(daemon.advertisements(), QStringList());
}

void tst_manager_registration::removingWhatWasNeverAddedSendsNothing()
{
    const Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    const LogCapture log;
    manager->remove(&app);
    manager->remove(&adv);
    daemon.settle();
    QCOMPARE(managerLines(log),
             QStringList({"DEBUG Enter BleManager::remove: /app", "DEBUG Enter BleManager::remove: /adv"}));
    QCOMPARE(daemon.calls(), QStringList());
}

void tst_manager_registration::removedObjectsAreForgotten()
{
    Simulator daemon(acceptEverything);
    const Application app("/app");
    const Application kept("/kept");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    manager->add(&app);
    manager->add(&kept);
    manager->add(&adv);
    manager->remove(&adv);
    manager->remove(&app);
    daemon.settle();
    daemon.clearCalls();
    daemon.addAdapter("hci1");
    EVENTUALLY_COMPARE(daemon.calls(), QStringList("/org/bluez/hci1 RegisterApplication(/kept, {})"));
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 1);
}

void tst_manager_registration::anAddedAgainObjectComesLast()
{
    Simulator daemon(acceptEverything);
    const Application first("/first");
    const Application second("/second");
    BleManager* manager = BleManager::instance();
    manager->add(&first);
    manager->add(&second);
    manager->remove(&first);
    manager->add(&first);
    daemon.settle();
    daemon.clearCalls();
    daemon.addAdapter("hci1");
    EVENTUALLY_COMPARE(daemon.calls(), QStringList({"/org/bluez/hci1 RegisterApplication(/second, {})",
                                                    "/org/bluez/hci1 RegisterApplication(/first, {})"}));
}

void tst_manager_registration::aChangedTreeIsUnregisteredThenRegistered()
{
    Simulator daemon;
    Application app("/app");
    LogCapture log;
    BleManager::instance()->add(&app);
    EVENTUALLY_COMPARE(completions(log).size(), 1);
    log.clear();
    daemon.clearCalls();

    app.createService("0000180a-0000-1000-8000-00805f9b34fb", true);
    QCOMPARE(managerLines(log), QStringList({"DEBUG Enter BleManager::on_applicationChanged: /app",
                                             "DEBUG Enter BleManager::unregisterApp: /app",
                                             "DEBUG Enter BleManager::registerApp: /app"}));
    const QStringList answered{"DEBUG D-Bus call success: unregisterApp",
                               "DEBUG D-Bus call success: registerApp"};
    EVENTUALLY_COMPARE(completions(log), answered);
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 UnregisterApplication(/app)",
                                          "/org/bluez/hci0 RegisterApplication(/app, {})"}));
    QCOMPARE(daemon.applications(), QStringList("/app"));
}

void tst_manager_registration::aChangedAdvertisementIsUnregisteredThenRegistered()
{
    Simulator daemon(acceptEverything);
    GapAdvertisement adv(nullptr, "/adv");
    LogCapture log;
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(completions(log).size(), 1);
    QCOMPARE(daemon.advertisement("/adv").value("LocalName"), QVariant(""));
    log.clear();
    daemon.clearCalls();

    adv.setLocalName("new name");
    QCOMPARE(managerLines(log), QStringList({"DEBUG Enter BleManager::on_advertisementChanged: /adv",
                                             "DEBUG Enter BleManager::unregisterAdv: /adv",
                                             "DEBUG Enter BleManager::registerAdv: /adv"}));
    const QStringList answered{"DEBUG D-Bus call success: unregisterAdv",
                               "DEBUG D-Bus call success: registerAdv"};
    EVENTUALLY_COMPARE(completions(log), answered);
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 UnregisterAdvertisement(/adv)",
                                          "/org/bluez/hci0 RegisterAdvertisement(/adv, {})"}));
    QCOMPARE(daemon.advertisement("/adv").value("LocalName"), QVariant("new name"));
}

void tst_manager_registration::aChangeWithoutADaemonSendsNothing()
{
    Application app("/app");
    GapAdvertisement adv(nullptr, "/adv");
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    const LogCapture log;
    app.change();
    adv.setDiscoverable(true);
    const Simulator daemon(acceptEverything);
    EVENTUALLY_COMPARE(sortedCompletions(log), QStringList({"DEBUG D-Bus call success: registerAdv",
                                                            "DEBUG D-Bus call success: registerApp"}));
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterApplication(/app, {})",
                                          "/org/bluez/hci0 RegisterAdvertisement(/adv, {})"}));
}

void tst_manager_registration::optionsAreAnEmptyDictionary()
{
    const Simulator daemon(acceptEverything);
    Application app("/app");
    GapAdvertisement adv(nullptr, "/adv");
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    app.change();
    adv.setAppearance(7);
    daemon.settle();
    QStringList forms;
    for (const QVariantMap& record : daemon.callRecords()) {
        forms << record.value("interface").toString() + '.' + record.value("member").toString() + ' ' +
                     record.value("signature").toString();
        QCOMPARE(record.value("sender").toString(), QDBusConnection::systemBus().baseService());
    }
    QCOMPARE(forms, QStringList({"org.bluez.GattManager1.RegisterApplication oa{sv}",
                                 "org.bluez.LEAdvertisingManager1.RegisterAdvertisement oa{sv}",
                                 "org.bluez.GattManager1.UnregisterApplication o",
                                 "org.bluez.GattManager1.RegisterApplication oa{sv}",
                                 "org.bluez.LEAdvertisingManager1.UnregisterAdvertisement o",
                                 "org.bluez.LEAdvertisingManager1.RegisterAdvertisement oa{sv}"}));
    QCOMPARE(daemon.calls().filter("Register").filter("{})").size(), 4);
}

void tst_manager_registration::withoutAnAdvertisingManagerOnlyApplicationsAreSent()
{
    Simulator daemon(acceptEverything);
    daemon.withdraw("/org/bluez/hci0", {advertisingManager});
    const Application app("/app");
    GapAdvertisement adv(nullptr, "/adv");
    BleManager::instance()->add(&adv);
    BleManager::instance()->add(&app);
    adv.setAppearance(7);
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList("/org/bluez/hci0 RegisterApplication(/app, {})"));
    daemon.announce("/org/bluez/hci0", {advertisingManager});
    EVENTUALLY_COMPARE(daemon.calls().mid(1), QStringList("/org/bluez/hci0 RegisterAdvertisement(/adv, {})"));
}

void tst_manager_registration::withoutAGattManagerOnlyAdvertisementsAreSent()
{
    Simulator daemon(acceptEverything);
    daemon.withdraw("/org/bluez/hci0", {gattManager});
    Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    app.change();
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList("/org/bluez/hci0 RegisterAdvertisement(/adv, {})"));
}

void tst_manager_registration::theStepsWorkForObjectsThatAreNotHeld()
{
    Simulator daemon(acceptEverything);
    Application app("/app");
    GapAdvertisement adv(nullptr, "/adv");
    BleManager* manager = BleManager::instance();
    const LogCapture log;
    manager->registerApp(&app);
    manager->registerAdv(&adv);
    EVENTUALLY_COMPARE(completions(log).size(), 2);
    manager->unregisterApp(&app);
    manager->unregisterAdv(&adv);
    EVENTUALLY_COMPARE(
        sortedCompletions(log),
        QStringList({"DEBUG D-Bus call success: registerAdv", "DEBUG D-Bus call success: registerApp",
                     "DEBUG D-Bus call success: unregisterAdv", "DEBUG D-Bus call success: unregisterApp"}));
    app.change();
    adv.setAppearance(7);
    daemon.addAdapter("hci1");
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterApplication(/app, {})",
                                          "/org/bluez/hci0 RegisterAdvertisement(/adv, {})",
                                          "/org/bluez/hci0 UnregisterApplication(/app)",
                                          "/org/bluez/hci0 UnregisterAdvertisement(/adv)"}));
}

void tst_manager_registration::aPathThatCannotBeSentIsReported()
{
    const Simulator daemon(acceptEverything);
    Application app("not a path");
    GapAdvertisement adv(nullptr, "");
    BleManager* manager = BleManager::instance();
    LogCapture log;
    manager->add(&app);
    manager->add(&adv);
    QCOMPARE(managerLines(log).filter("ERROR"),
             QStringList({"ERROR D-Bus call from 'registerApp' failed: Invalid object path: not a path",
                          "ERROR D-Bus call from 'registerAdv' failed: Invalid object path: "}));
    log.clear();
    app.change();
    adv.setAppearance(1);
    manager->remove(&app);
    manager->remove(&adv);
    daemon.settle();
    QCOMPARE(managerLines(log).filter("ERROR").size(), 6);
    QCOMPARE(daemon.calls(), QStringList());
}

void tst_manager_registration::nullObjectsAreReported()
{
    const Simulator daemon;
    const GattApplication* app = nullptr;
    const GapAdvertisement* adv = nullptr;
    BleManager* manager = BleManager::instance();
    const LogCapture log;
    manager->add(app);
    manager->add(adv);
    manager->remove(app);
    manager->remove(adv);
    manager->registerApp(app);
    manager->unregisterApp(app);
    manager->registerAdv(adv);
    manager->unregisterAdv(adv);
    daemon.settle();
    QCOMPARE(managerLines(log).size(), 8);
    QCOMPARE(
        managerLines(log).filter(QRegularExpression("^ERROR .* null (application|advertisement)$")).size(),
        8);
    QCOMPARE(daemon.calls(), QStringList());
}

QTEST_GUILESS_MAIN(tst_manager_registration)
#include "tst_manager_registration.moc"
