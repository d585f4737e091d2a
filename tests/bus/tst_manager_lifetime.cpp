#include "SimulatorScenario.h"

#include <QDBusPendingCallWatcher>
#include <QMutex>
#include <QProcess>
#include <QSet>

using namespace Scenario;

// Qt's hook for tools that follow every object; indices 3 and 4 hold what to call when one is made and when
// one ends.
extern "C" Q_CORE_EXPORT quintptr qtHookData[];

namespace {

QMutex objectsMutex;
QSet<QObject*> objects;

void objectMade(QObject* object)
{
    const QMutexLocker lock(&objectsMutex);
    objects.insert(object);
}

void objectEnds(QObject* object)
{
    const QMutexLocker lock(&objectsMutex);
    objects.remove(object);
}

/** Follows all objects that are made from now on. */
void followObjects()
{
    qtHookData[3] = reinterpret_cast<quintptr>(&objectMade);
    qtHookData[4] = reinterpret_cast<quintptr>(&objectEnds);
}

/** The watchers of pending calls that live at this moment. */
int watchers()
{
    const QMutexLocker lock(&objectsMutex);
    int count = 0;
    for (const QObject* object : qAsConst(objects)) {
        if (object->thread() == QThread::currentThread() &&
            qobject_cast<const QDBusPendingCallWatcher*>(object)) {
            ++count;
        }
    }
    return count;
}

constexpr char abortingVariable[] = "PLIM_ABORTING";

/** What a child process that runs the current test function once more says before it aborts. */
QString lastWordsOfChild()
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(abortingVariable, "1");
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), {"-nocrashhandler", QTest::currentTestFunction()});
    if (!child.waitForFinished() || child.exitStatus() != QProcess::CrashExit) {
        return "no abort: " + child.readAll();
    }
    return child.readAllStandardError();
}

} // namespace

/** Managers that were made directly and end again, and what ends the process. */
class tst_manager_lifetime : public QObject
{
    Q_OBJECT

private slots:
    void destroyingAManagerSendsAndWritesNothing();
    void aDestroyedManagerFollowsNothingAnyMore();
    void watchersEndWithTheirAnswers();
    void watchersOfUnansweredCallsEndWithTheManager();
    void aManagerEndsWithItsParent();
    void removingADisconnectedApplicationAborts();
    void removingADisconnectedAdvertisementAborts();
};

void tst_manager_lifetime::destroyingAManagerSendsAndWritesNothing()
{
    const Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    LogCapture log;
    {
        BleManager manager(nullptr);
        manager.add(&app);
        manager.add(&adv);
        EVENTUALLY_COMPARE(completions(log).size(), 2);
        log.clear();
    }
    QVERIFY(log.lines().isEmpty());
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 2);
    QCOMPARE(daemon.applications(), QStringList("/app"));
    QCOMPARE(daemon.advertisements(), QStringList("/adv"));
}

void tst_manager_lifetime::aDestroyedManagerFollowsNothingAnyMore()
{
    Simulator daemon(acceptEverything);
    Application app("/app");
    auto adv = std::make_unique<GapAdvertisement>(nullptr, "/adv");
    {
        BleManager manager(nullptr);
        manager.add(&app);
        manager.add(adv.get());
    }
    daemon.settle();
    const LogCapture log;
    app.change();
    adv->setAppearance(1);
    adv.reset();
    daemon.addAdapter("hci1");
    daemon.settle();
    QCOMPARE(managerLines(log), QStringList());
    QCOMPARE(daemon.calls().size(), 2);
}

void tst_manager_lifetime::watchersEndWithTheirAnswers()
{
    followObjects();
    Simulator daemon;
    daemon.answerWithError("UnregisterApplication", "org.bluez.Error.Failed", "No");
    const Application app("/app");
    BleManager manager(nullptr);
    const int before = watchers();
    manager.registerApp(&app);
    manager.unregisterApp(&app);
    QCOMPARE(watchers(), before + 2);
    EVENTUALLY_COMPARE(watchers(), before);
}

void tst_manager_lifetime::watchersOfUnansweredCallsEndWithTheManager()
{
    followObjects();
    Simulator daemon;
    daemon.neverAnswer("RegisterApplication");
    const Application app("/app");
    const int before = watchers();
    auto manager = std::make_unique<BleManager>(nullptr);
    manager->add(&app);
    daemon.settle();
    QCOMPARE(watchers(), before + 1);
    manager.reset();
    EVENTUALLY_COMPARE(watchers(), before);
}

void tst_manager_lifetime::aManagerEndsWithItsParent()
{
    const Simulator daemon;
    auto parent = std::make_unique<QObject>();
    const QPointer<BleManager> manager = new BleManager(parent.get());
    const Application app("/app");
    manager->add(&app);
    QCOMPARE(manager->parent(), parent.get());
    parent.reset();
    QVERIFY(!manager);
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 1);
}

void tst_manager_lifetime::removingADisconnectedApplicationAborts()
{
    if (!qEnvironmentVariableIsSet(abortingVariable)) {
        QCOMPARE(lastWordsOfChild(), QString("plim: assertion failed: disconnectSucceeded\n"));
        return;
    }
    const LogCapture log;
    const Application app("/app");
    BleManager::instance()->add(&app);
    QVERIFY(app.disconnect());
    BleManager::instance()->remove(&app);
}

void tst_manager_lifetime::removingADisconnectedAdvertisementAborts()
{
    if (!qEnvironmentVariableIsSet(abortingVariable)) {
        QCOMPARE(lastWordsOfChild(), QString("plim: assertion failed: disconnectSucceeded\n"));
        return;
    }
    const LogCapture log;
    const GapAdvertisement adv(nullptr, "/adv");
    BleManager::instance()->add(&adv);
    QVERIFY(adv.disconnect());
    BleManager::instance()->remove(&adv);
}

QTEST_GUILESS_MAIN(tst_manager_lifetime)
#include "tst_manager_lifetime.moc"
