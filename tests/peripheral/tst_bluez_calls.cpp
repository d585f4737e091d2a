#include "ObservedObjects.h"

#include <QDBusVariant>
#include <QEventLoop>
#include <QPointer>
#include <QThread>
#include <QTimer>

using namespace ObjectsScenario;
using plim::detail::BluezObjects;

/** Calls by way of BlueZ's mirror, its threads and its end. */
class tst_bluez_calls : public QObject, private ObservedObjects
{
    Q_OBJECT

private slots:
    void init() { begin(); }
    void cleanup() { end(); }
    void callsReachTheDaemonAndEnd();
    void callsWithoutADaemonFail();
    void aCallBeforeTheDaemonIsLookedForReachesIt();
    void whatCannotBeSentIsNotSent();
    void noCallbackComesAfterItsContext();
    void allOfAThreadShareOne();
    void anotherThreadHasItsOwn();
    void slotsMayReleaseTheLastReference();
    void aSlotsEventLoopSeesLaterChangesInOrder();
    void aSlotsEventLoopSeesWhatWasDescribedAtOnce();
    void itMayBeReleasedInASlotsEventLoop();
};

void tst_bluez_calls::callsReachTheDaemonAndEnd()
{
    startDaemon();
    QStringList ends;
    const auto note = [&](const QDBusError& error) {
        ends << (error.isValid() ? error.name() + ' ' + error.message() : "done"_qs);
    };
    m_objects->set(adapter, adapterInterface, alias, "new"_qs, this, note);
    m_objects->call(adapter, adapterInterface, "RemoveDevice"_qs,
                    {QVariant::fromValue(QDBusObjectPath(phone))}, this, note);
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 2);
    const QDBusMessage set = m_bluez->calls.at(0);
    QCOMPARE(set.path() + ' ' + set.interface() + '.' + set.member() + ' ' + set.signature(),
             "/org/bluez/hci0 org.freedesktop.DBus.Properties.Set ssv"_qs);
    QCOMPARE(set.arguments().at(2).value<QDBusVariant>().variant().toString(), "new"_qs);
    QCOMPARE(m_bluez->calls.at(1).signature(), "o"_qs);
    QVERIFY(ends.isEmpty());
    m_bluez->send(set.createReply());
    m_bluez->send(m_bluez->calls.at(1).createErrorReply("org.bluez.Error.DoesNotExist"_qs, "Gone"_qs));
    EVENTUALLY_COMPARE(ends, QStringList({"done"_qs, "org.bluez.Error.DoesNotExist Gone"_qs}));
}

void tst_bluez_calls::callsWithoutADaemonFail()
{
    QString end;
    m_objects->call(adapter, adapterInterface, "RemoveDevice"_qs, {}, this,
                    [&](const QDBusError& error) { end = error.name(); });
    QVERIFY(end.isEmpty());
    EVENTUALLY_COMPARE(end, "org.freedesktop.DBus.Error.ServiceUnknown"_qs);
    m_objects->call(adapter, adapterInterface, "RemoveDevice"_qs, {}, this, {});
    QCoreApplication::processEvents();
}

void tst_bluez_calls::aCallBeforeTheDaemonIsLookedForReachesIt()
{
    startDaemon();
    m_record.reset();
    m_objects.reset();
    m_objects = BluezObjects::shared();
    QVERIFY(!m_objects->isStarted());
    QString end;
    bool called = false;
    auto ending = std::make_unique<QObject>();
    m_objects->call(adapter, adapterInterface, "First"_qs, {}, this,
                    [&](const QDBusError& error) { end = error.isValid() ? error.name() : "done"_qs; });
    m_objects->call(adapter, adapterInterface, "Second"_qs, {}, ending.get(),
                    [&](const QDBusError&) { called = true; });
    ending.reset();
    m_objects->call(adapter, adapterInterface, "Third"_qs, {}, this, {});
    QTRY_COMPARE(m_bluez->calls.size(), 2);
    QCOMPARE(m_bluez->calls.at(0).member() + ' ' + m_bluez->calls.at(1).member(), "First Third"_qs);
    m_bluez->send(m_bluez->calls.at(0).createReply());
    QTRY_COMPARE(end, "done"_qs);
    QVERIFY(!called);
}

void tst_bluez_calls::whatCannotBeSentIsNotSent()
{
    startDaemon();
    QStringList ends;
    const auto note = [&](const QDBusError& error) { ends << error.name(); };
    m_objects->set(adapter, adapterInterface, alias, QVariant(), this, note);
    m_objects->call(adapter, adapterInterface, "RemoveDevice"_qs, {QVariant::fromValue(QDBusObjectPath())},
                    this, note);
    m_objects->set("no path"_qs, adapterInterface, alias, 1, this, note);
    EVENTUALLY_COMPARE(ends.size(), 3);
    QCOMPARE(ends.count("org.freedesktop.DBus.Error.InvalidArgs"_qs), 2);
    QVERIFY(m_bluez->calls.isEmpty());
}

void tst_bluez_calls::noCallbackComesAfterItsContext()
{
    startDaemon();
    bool called = false;
    auto context = std::make_unique<QObject>();
    const auto note = [&](const QDBusError&) { called = true; };
    m_objects->set(adapter, adapterInterface, alias, "new"_qs, context.get(), note);
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 1);
    m_objects->set(adapter, adapterInterface, alias, QVariant(), context.get(), note);
    context.reset();
    m_bluez->send(m_bluez->calls.first().createReply());
    m_bluez->change(adapter, adapterInterface, named("new"));
    EVENTUALLY_COMPARE(m_record->lines.size(), 1);
    QVERIFY(!called);
}

void tst_bluez_calls::allOfAThreadShareOne()
{
    QCOMPARE(BluezObjects::shared(), m_objects);
}

void tst_bluez_calls::anotherThreadHasItsOwn()
{
    startDaemon();
    QStringList seen;
    bool isOther = false;
    const std::unique_ptr<QThread> thread(QThread::create([&] {
        const std::shared_ptr<BluezObjects> objects = BluezObjects::shared();
        isOther = objects != m_objects;
        QEventLoop loop;
        QObject::connect(objects.get(), &BluezObjects::started, &loop, &QEventLoop::quit);
        loop.exec();
        seen = objects->paths(adapterInterface);
    }));
    thread->start();
    EVENTUALLY_VERIFY(thread->isFinished());
    QVERIFY(isOther);
    QCOMPARE(seen, QStringList(adapter));
}

void tst_bluez_calls::slotsMayReleaseTheLastReference()
{
    startDaemon();
    const std::weak_ptr<BluezObjects> alive = m_objects;
    connect(m_objects.get(), &BluezObjects::objectRemoved, this, [&] { m_objects.reset(); });
    m_bluez->add(phone, {{deviceInterface, {}}});
    m_bluez->vanish();
    EVENTUALLY_VERIFY(alive.expired());
}

void tst_bluez_calls::aSlotsEventLoopSeesLaterChangesInOrder()
{
    startDaemon();
    bool sawNext = false;
    QObject context;
    connect(m_objects.get(), &BluezObjects::propertiesChanged, &context, [&] {
        if (m_objects->value(adapter, adapterInterface, alias).toString() == "two"_qs) {
            sawNext = QTest::qWaitFor([&] { return m_record->lines.contains("ended"_qs); }, 20000);
        }
    });
    m_bluez->change(adapter, adapterInterface, named("two"));
    m_bluez->change(adapter, adapterInterface, named("three"));
    m_bluez->vanish();
    EVENTUALLY_VERIFY(m_record->lines.contains("ended"_qs));
    QVERIFY(sawNext);
    QCOMPARE(m_record->lines,
             QStringList({"= /org/bluez/hci0 Alias two"_qs, "= /org/bluez/hci0 Alias three"_qs,
                          "- /org/bluez/hci0 org.bluez.Adapter1"_qs, "ended"_qs}));
}

void tst_bluez_calls::aSlotsEventLoopSeesWhatWasDescribedAtOnce()
{
    bool sawAll = false;
    QObject context;
    connect(m_objects.get(), &BluezObjects::objectAdded, &context, [&](const QString& path) {
        if (path == adapter) {
            sawAll = QTest::qWaitFor([&] { return m_record->lines.contains("started"_qs); });
        }
    });
    m_bluez->objects = {{QDBusObjectPath(adapter), {{adapterInterface, named("one")}}},
                        {QDBusObjectPath(phone), {{deviceInterface, {}}}}};
    QVERIFY(m_bluez->appear());
    QTRY_VERIFY(m_record->lines.contains("started"_qs));
    QVERIFY(sawAll);
    QCOMPARE(m_record->lines, QStringList({"+ /org/bluez/hci0 org.bluez.Adapter1 one"_qs,
                                           "+ /org/bluez/hci0/dev_1 org.bluez.Device1 "_qs, "started"_qs}));
}

void tst_bluez_calls::itMayBeReleasedInASlotsEventLoop()
{
    startDaemon();
    const QPointer<BluezObjects> objects = m_objects.get();
    bool released = false;
    connect(m_objects.get(), &BluezObjects::objectRemoved, this, [&] {
        QTimer::singleShot(0, this, [&] { m_objects.reset(); });
        released = QTest::qWaitFor([&] { return !m_objects; }, 20000);
        QTest::qWait(20);
    });
    m_bluez->vanish();
    EVENTUALLY_VERIFY(!objects);
    QVERIFY(released);
    QVERIFY(m_record->lines.contains("ended"_qs)); // what was still to tell
}

QTEST_GUILESS_MAIN(tst_bluez_calls)
#include "tst_bluez_calls.moc"
