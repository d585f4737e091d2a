#include "BleManager.h"
#include "Eventually.h"
#include "GapAdvertisement.h"
#include "GattTree.h"
#include "LogCapture.h"
#include "RawBusClient.h"
#include "Simulator.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <memory>

namespace {

/** A thread with an event loop, on which things can be done. */
class OtherThread
{
public:
    OtherThread()
    {
        m_context.moveToThread(&m_thread);
        m_thread.start();
    }
    ~OtherThread()
    {
        m_thread.quit();
        m_thread.wait();
    }
    Q_DISABLE_COPY(OtherThread)

    /** Returns when it is done. */
    template <typename Function>
    void run(Function function)
    {
        QMetaObject::invokeMethod(&m_context, function, Qt::BlockingQueuedConnection);
    }

private:
    QThread m_thread;
    QObject m_context;
};

/** What another thread may make. */
struct Held
{
    GattApplication app{nullptr, "/elsewhere", "org.plim.elsewhere"};
    GapAdvertisement adv{nullptr, "/elsewhere/adv"};

    Held() { app.createService("0000180f-0000-1000-8000-00805f9b34fb", true); }
    void change()
    {
        app.services().constFirst()->createCharacteristic("00002a19-0000-1000-8000-00805f9b34fb", readWrite,
                                                          nullptr);
        adv.setAppearance(1);
    }
};

QStringList errors(const LogCapture& log)
{
    return log.texts(log4cplus::ERROR_LOG_LEVEL);
}

} // namespace

/** What a caller should not do ends in a clear result. What read callbacks may do: tst_lifetime_callbacks. */
class tst_callers_mistakes : public QObject
{
    Q_OBJECT

private slots:
    void aSlowCallbackDelaysOthersAndNothingElse();
    void callbacksThatSpinAreNotNestedWithoutEnd();
    void nullPointersAreLogged();
    void attributesWithoutAParentAnswer();
    void anApplicationAddedAThousandTimesIsRegisteredOnce();
    void invalidPathsAndNamesAreLoggedAndKeptOffTheBus_data();
    void invalidPathsAndNamesAreLoggedAndKeptOffTheBus();
    void valuesThatTheBusCannotCarryStayLocal();
    void aDescriptorsEndlessValueStaysLocal();
    void objectsOfAnotherThreadAreFollowed();
    void objectsOfAnotherThreadMayEndWhileTheDaemonRestarts();
    void aRemovedObjectOfAnotherThreadIsNotTouchedAnyMore();
    void whatTheProgramHasQueuedRunsInItsTurn();
};

void tst_callers_mistakes::aSlowCallbackDelaysOthersAndNothingElse()
{
    // The daemon gives up after 30 s by itself; what matters is that it may, and that nothing is lost.
    const int wanted = qEnvironmentVariableIntValue("PLIM_SLOW_CALLBACK_SECONDS");
    const int seconds = wanted > 0 ? wanted : 2;
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    GattTree tree;
    tree.control->setValue("quick");
    tree.plain->setReadCallback([seconds] {
        QThread::sleep(ulong(seconds));
        return QByteArray("slow");
    });
    RawBusClient client;
    BusCall impatient{tree.plain->dbusPath(), characteristicInterface(), "ReadValue", "a{sv}", {"0"}};
    impatient.timeoutMs = 500;
    const int given = client.start(impatient);
    BusCall patient{tree.control->dbusPath(), characteristicInterface(), "ReadValue", "a{sv}", {"0"}};
    patient.timeoutMs += seconds * 1000;
    const int waiting = client.start(patient);
    QVERIFY(client.answer(given).isError());
    QCOMPARE(client.answer(waiting).bytes(), QByteArray("quick"));
    QCOMPARE(tree.plain->value(), QByteArray("slow"));
}

void tst_callers_mistakes::callbacksThatSpinAreNotNestedWithoutEnd()
{
    constexpr int reads = 2000;
    GattTree tree;
    tree.plain->setValue("old");
    int depth = 0;
    int deepest = 0;
    tree.plain->setReadCallback([&] {
        deepest = qMax(deepest, ++depth);
        QEventLoop loop;
        QTimer::singleShot(0, &loop, &QEventLoop::quit);
        loop.exec();
        --depth;
        return QByteArray("spun");
    });
    const LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    RawBusClient client;
    QVector<int> calls;
    for (int i = 0; i < reads; ++i) {
        calls << client.start(
            {tree.plain->dbusPath(), characteristicInterface(), "ReadValue", "a{sv}", {"0"}});
    }
    for (const int call : calls) {
        const QByteArray answer = client.answer(call).bytes();
        QVERIFY2(answer == "spun" || answer == "old", answer.constData());
    }
    QVERIFY2(deepest <= 32, qPrintable(QString::number(deepest)));
    QVERIFY2(log.lines().isEmpty() || deepest == 32, qPrintable(QString::number(deepest)));
}

void tst_callers_mistakes::nullPointersAreLogged()
{
    BleManager* manager = BleManager::instance();
    const Simulator daemon;
    daemon.settle();
    const LogCapture log;
    manager->add(static_cast<GattApplication*>(nullptr));
    manager->add(static_cast<GapAdvertisement*>(nullptr));
    manager->remove(static_cast<GattApplication*>(nullptr));
    manager->remove(static_cast<GapAdvertisement*>(nullptr));
    manager->registerApp(nullptr);
    manager->unregisterApp(nullptr);
    manager->registerAdv(nullptr);
    manager->unregisterAdv(nullptr);
    QCOMPARE(errors(log).size(), 8);
    QCOMPARE(log.lines().size(), 8);
}

void tst_callers_mistakes::attributesWithoutAParentAnswer()
{
    const GattService service(nullptr, "s", true, "/alone/s");
    GattCharacteristic characteristic(nullptr, "c", "/alone/c", readWriteNotify, nullptr);
    GattDescriptor descriptor(nullptr, "d", "/alone/d", descriptorReadWrite);
    characteristic.setValue("c");
    QCOMPARE(characteristic.service(), QDBusObjectPath("/alone"));
    QCOMPARE(descriptor.characteristic(), QDBusObjectPath("/alone"));
    RawBusClient client;
    QCOMPARE(client.getAll("/alone/s", serviceInterface()).type, "method_return");
    QCOMPARE(client.getAll("/alone/c", characteristicInterface()).type, "method_return");
    QCOMPARE(
        client.getAll("/alone/d", descriptorInterface()).text,
        R"({"Characteristic": <o "/alone">, "Flags": <as ["read", "write"]>, "UUID": <s "d">, "Value": <ay []>})");
}

void tst_callers_mistakes::anApplicationAddedAThousandTimesIsRegisteredOnce()
{
    Simulator daemon;
    daemon.settle();
    GattTree tree;
    daemon.clearCalls();
    for (int i = 0; i < 1000; ++i) {
        BleManager::instance()->add(tree.app.get());
    }
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 1);
    BleManager::instance()->remove(tree.app.get());
    BleManager::instance()->remove(tree.app.get());
    daemon.settle();
    QCOMPARE(daemon.calls().size(), 2);
}

void tst_callers_mistakes::invalidPathsAndNamesAreLoggedAndKeptOffTheBus_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("busName");
    QTest::addColumn<QString>("uuid");
    QTest::addColumn<int>("failures");
    QTest::newRow("all well") << "/app"
                              << "org.plim.mistakes"
                              << "aaaa" << 0;
    QTest::newRow("empty path") << ""
                                << "org.plim.mistakes"
                                << "aaaa" << 1;
    QTest::newRow("no path") << "no path"
                             << "org.plim.mistakes"
                             << "aaaa" << 4;
    QTest::newRow("root") << "/"
                          << "org.plim.mistakes"
                          << "aaaa" << 3;
    QTest::newRow("empty name") << "/app"
                                << ""
                                << "aaaa" << 0;
    QTest::newRow("no name") << "/app"
                             << "no name"
                             << "aaaa" << 0;
    QTest::newRow("somebody's name") << "/app"
                                     << "org.freedesktop.DBus"
                                     << "aaaa" << 0;
    QTest::newRow("empty UUID") << "/app"
                                << "org.plim.mistakes"
                                << "" << 3;
    QTest::newRow("UUID in braces") << "/app"
                                    << "org.plim.mistakes"
                                    << "{aaaa}" << 3;
    QTest::newRow("UUID with a zero") << "/app"
                                      << "org.plim.mistakes" << QString("a") + QChar(0) << 3;
    QTest::newRow("half a surrogate") << "/app"
                                      << "org.plim.mistakes" << QString(QChar(0xd800)) << 3;
}

void tst_callers_mistakes::invalidPathsAndNamesAreLoggedAndKeptOffTheBus()
{
    QFETCH(QString, path);
    QFETCH(QString, busName);
    QFETCH(QString, uuid);
    QFETCH(int, failures);
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    GattApplication app(nullptr, path, busName);
    GattService* service = app.createService(uuid, true);
    GattCharacteristic* characteristic = service->createCharacteristic("bbbb", readWriteNotify, nullptr);
    GattDescriptor* descriptor = characteristic->addDescriptor("cccc", descriptorReadWrite);
    const auto exportFailures = log.lines().size();
    characteristic->StartNotify();
    characteristic->setValue("local");
    descriptor->WriteValue("local too", {});
    QCOMPARE(characteristic->ReadValue({}), QByteArray("local"));
    QCOMPARE(descriptor->ReadValue({}), QByteArray("local too"));
    QCOMPARE(app.services(), QList<GattService*>{service});
    BleManager::instance()->add(&app);
    BleManager::instance()->remove(&app);
    QCOMPARE(exportFailures, failures);
    RawBusClient client;
    const BusMessage objects = client.call(path.startsWith('/') ? path : "/",
                                           "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
    QCOMPARE(objects.isReply(), path.startsWith('/'));
    QCOMPARE(objects.isReply() ? objects.body.at(0).toArray().size() : 0, failures == 0 ? 3 : 0);
    client.ping();
}

void tst_callers_mistakes::valuesThatTheBusCannotCarryStayLocal()
{
    const QVariantMap data{{"bytes", QByteArray("b")},
                           {"invalid", QVariant()},
                           {"no type of the bus", QVariant::fromValue<QObject*>(this)},
                           {"empty path", QVariant::fromValue(QDBusObjectPath())},
                           {"too long", QByteArray(64 << 20, 'x')},
                           {"list", QVariantList{1, QVariant(), QVariant::fromValue<QObject*>(this)}},
                           {"map", QVariantMap{{"inner", QVariant()}, {"kept", 2}}}};
    GapAdvertisement adv(nullptr, "/adv");
    adv.setServiceData(data);
    QCOMPARE(adv.serviceData(), data);
    RawBusClient client;
    const BusMessage answer = client.get("/adv", "org.bluez.LEAdvertisement1", "ServiceData");
    QCOMPARE(answer.text,
             R"(<a{sv} {"bytes": <ay [62]>, "list": <av [<i 1>]>, "map": <a{sv} {"kept": <i 2>}>}>)");
    QVERIFY(client.getAll("/adv", "org.bluez.LEAdvertisement1").isReply());
}

void tst_callers_mistakes::aDescriptorsEndlessValueStaysLocal()
{
    QByteArray endless(70 << 20, 'x');
    GattTree tree;
    tree.descriptor->setReadCallback([&endless] { return endless; });
    RawBusClient client;
    tree.descriptor->ReadValue({});
    QCOMPARE(tree.descriptor->value(), endless);
    QVERIFY(client.get(tree.descriptor->dbusPath(), descriptorInterface(), "Value").isError());
    QVERIFY(client.getAll(tree.descriptor->dbusPath(), descriptorInterface()).isReply());
    QVERIFY(client.call("/app", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects").isReply());
}

void tst_callers_mistakes::objectsOfAnotherThreadAreFollowed()
{
    Simulator daemon({"--accept-everything"});
    daemon.settle();
    OtherThread other;
    std::unique_ptr<Held> held;
    other.run([&held] { held = std::make_unique<Held>(); });
    BleManager::instance()->add(&held->app);
    BleManager::instance()->add(&held->adv);
    EVENTUALLY_COMPARE(daemon.applications(), QStringList("/elsewhere"));
    EVENTUALLY_COMPARE(daemon.advertisements(), QStringList("/elsewhere/adv"));
    daemon.clearCalls();
    other.run([&held] { held->change(); });
    EVENTUALLY_COMPARE(daemon.calls().size(), 4);
    other.run([&held] { held.reset(); });
    daemon.clearCalls();
    daemon.restart();
    daemon.settle();
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList());
}

void tst_callers_mistakes::objectsOfAnotherThreadMayEndWhileTheDaemonRestarts()
{
    Simulator daemon({"--accept-everything"});
    daemon.settle();
    OtherThread other;
    for (int i = 0; i < 50; ++i) {
        std::unique_ptr<Held> held;
        other.run([&held] { held = std::make_unique<Held>(); });
        BleManager::instance()->add(&held->app);
        BleManager::instance()->add(&held->adv);
        // Of their changes and their end this thread hears only with the daemon's return.
        other.run([&held] {
            held->change();
            held.reset();
        });
        daemon.restart();
        daemon.settle();
    }
    EVENTUALLY_COMPARE(daemon.applications(), QStringList());
    EVENTUALLY_COMPARE(daemon.advertisements(), QStringList());
}

void tst_callers_mistakes::aRemovedObjectOfAnotherThreadIsNotTouchedAnyMore()
{
    OtherThread other;
    std::unique_ptr<GapAdvertisement> adv;
    other.run([&] { adv = std::make_unique<GapAdvertisement>(nullptr, "/adv"); });
    BleManager::instance()->add(adv.get());
    other.run([&] { adv->setAppearance(1); });
    BleManager::instance()->remove(adv.get());
    other.run([&] { adv.reset(); });
    const LogCapture log;
    QCoreApplication::processEvents();
    // The change arrives, and is dropped.
    QCOMPARE(log.texts(log4cplus::DEBUG_LOG_LEVEL),
             QStringList("Enter BleManager::on_advertisementChanged: /adv"));
    QCOMPARE(log.lines().size(), 1);
}

void tst_callers_mistakes::whatTheProgramHasQueuedRunsInItsTurn()
{
    BleManager* manager = BleManager::instance();
    OtherThread other;
    std::unique_ptr<Held> held;
    other.run([&held] { held = std::make_unique<Held>(); });
    manager->add(&held->app);
    int run = 0;
    QMetaObject::invokeMethod(
        manager, [&run] { ++run; }, Qt::QueuedConnection);
    manager->add(&held->adv);
    manager->remove(&held->adv);
    manager->remove(&held->app);
    QCOMPARE(run, 0);
    QCoreApplication::processEvents();
    QCOMPARE(run, 1);
    other.run([&held] { held.reset(); });
}

QTEST_GUILESS_MAIN(tst_callers_mistakes)
#include "tst_callers_mistakes.moc"
