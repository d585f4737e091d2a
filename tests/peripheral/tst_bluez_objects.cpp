#include "BluezObjects.h"
#include "FakeBluez.h"
#include "Literals.h"
#include "LogCapture.h"

#include <QDBusConnectionInterface>
#include <QDBusVariant>
#include <QEventLoop>
#include <QPointer>
#include <QSignalSpy>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <algorithm>

using plim::detail::BluezObjects;

namespace {

const QString adapter = QStringLiteral("/org/bluez/hci0");
const QString phone = QStringLiteral("/org/bluez/hci0/dev_1");
const QString adapterInterface = QStringLiteral("org.bluez.Adapter1");
const QString deviceInterface = QStringLiteral("org.bluez.Device1");
const QString alias = QStringLiteral("Alias");

QVariantMap named(const char* name)
{
    return {{alias, QString::fromLatin1(name)}};
}

/** Writes down what a mirror says, in its order. */
struct Record
{
    explicit Record(const BluezObjects& objects)
    {
        QObject::connect(&objects, &BluezObjects::objectAdded, &context,
                         [&](const auto& path, const auto& interface) {
                             lines << "+ " + path + ' ' + interface + ' ' +
                                          objects.value(path, interface, alias).toString();
                         });
        QObject::connect(
            &objects, &BluezObjects::objectRemoved, &context,
            [&](const auto& path, const auto& interface) { lines << "- " + path + ' ' + interface; });
        QObject::connect(&objects, &BluezObjects::propertiesChanged, &context,
                         [&](const auto& path, const auto& interface, const QStringList& names) {
                             lines << "= " + path + ' ' + names.join(',') + ' ' +
                                          objects.value(path, interface, alias).toString();
                         });
        QObject::connect(&objects, &BluezObjects::started, &context, [&] { lines << "started"_qs; });
        QObject::connect(&objects, &BluezObjects::ended, &context, [&] { lines << "ended"_qs; });
    }

    QStringList taken() { return std::exchange(lines, {}); }

    QObject context;
    QStringList lines;
};

} // namespace

class tst_bluez_objects : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void whatIsThereIsAnnouncedAtTheStart();
    void theDaemonMayStartLater();
    void nothingIsKnownBeforeTheDaemonHasDescribedItself();
    void changesOfObjectsAreFollowed();
    void propertiesMayBeWithdrawn();
    void anAdditionOfSomethingKnownIsAChange();
    void unknownObjectsAreNotInvented();
    void whatComesBeforeTheDescriptionIsNotLost_data();
    void whatComesBeforeTheDescriptionIsNotLost();
    void aRestartRemovesAndReadsAgain();
    void anEarlierDaemonsAnswerIsDropped();
    void anotherOwnerReplacesTheFirst();
    void strangersAreNotHeard();
    void aRefusedDescriptionIsAskedForAgain();
    void anotherAnswerThanObjectsIsNone();
    void callsReachTheDaemonAndEnd();
    void callsWithoutADaemonFail();
    void whatCannotBeSentIsNotSent();
    void noCallbackComesAfterItsContext();
    void allOfAThreadShareOne();
    void anotherThreadHasItsOwn();
    void slotsMayReleaseTheLastReference();
    void aSlotsEventLoopSeesLaterChangesInOrder();
    void itMayBeReleasedInASlotsEventLoop();

private:
    void startDaemon()
    {
        m_bluez->objects = {{QDBusObjectPath(adapter), {{adapterInterface, named("one")}}}};
        QVERIFY(m_bluez->appear());
        QTRY_VERIFY(m_objects->isStarted());
        m_record->taken();
    }

    std::unique_ptr<FakeBluez> m_bluez;
    std::shared_ptr<BluezObjects> m_objects;
    std::unique_ptr<Record> m_record;
};

void tst_bluez_objects::init()
{
    m_bluez = std::make_unique<FakeBluez>("fake"_qs);
    m_objects = BluezObjects::shared();
    m_record = std::make_unique<Record>(*m_objects);
}

void tst_bluez_objects::cleanup()
{
    m_record.reset();
    m_objects.reset();
    m_bluez.reset();
    // The name has to be free for the next one.
    QTRY_VERIFY(!QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"_qs).value());
}

void tst_bluez_objects::whatIsThereIsAnnouncedAtTheStart()
{
    m_bluez->objects = {{QDBusObjectPath(phone), {{deviceInterface, named("phone")}}},
                        {QDBusObjectPath(adapter), {{adapterInterface, named("one")}}}};
    QVERIFY(m_bluez->appear());
    QTRY_COMPARE(m_record->lines,
                 QStringList({"+ /org/bluez/hci0 org.bluez.Adapter1 one"_qs,
                              "+ /org/bluez/hci0/dev_1 org.bluez.Device1 phone"_qs, "started"_qs}));
    QVERIFY(m_objects->isStarted());
    QCOMPARE(m_objects->paths(deviceInterface), QStringList(phone));
    QCOMPARE(m_objects->properties(phone, deviceInterface), named("phone"));
    QVERIFY(m_objects->contains(adapter, adapterInterface));
    QVERIFY(!m_objects->contains(adapter, deviceInterface));
}

void tst_bluez_objects::theDaemonMayStartLater()
{
    QCoreApplication::processEvents();
    QVERIFY(!m_objects->isStarted());
    m_objects.reset();
    QVERIFY(m_bluez->appear());
    m_objects = BluezObjects::shared(); // now it is there before
    QTRY_VERIFY(m_objects->isStarted());
}

void tst_bluez_objects::nothingIsKnownBeforeTheDaemonHasDescribedItself()
{
    m_bluez->holdsDescription = true;
    QVERIFY(m_bluez->appear());
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    QVERIFY(!m_objects->isStarted());
    m_bluez->send(m_bluez->description(m_bluez->calls.first()));
    QTRY_COMPARE(m_record->lines, QStringList("started"_qs));
}

void tst_bluez_objects::changesOfObjectsAreFollowed()
{
    startDaemon();
    m_bluez->add(phone, {{deviceInterface, named("phone")}, {"org.bluez.Battery1"_qs, {}}});
    m_bluez->change(phone, deviceInterface, named("mine"));
    m_bluez->remove(phone, {deviceInterface});
    QTRY_COMPARE(m_record->lines, QStringList({"+ /org/bluez/hci0/dev_1 org.bluez.Battery1 "_qs,
                                               "+ /org/bluez/hci0/dev_1 org.bluez.Device1 phone"_qs,
                                               "= /org/bluez/hci0/dev_1 Alias mine"_qs,
                                               "- /org/bluez/hci0/dev_1 org.bluez.Device1"_qs}));
    QVERIFY(!m_objects->contains(phone, deviceInterface));
    QVERIFY(m_objects->contains(phone, "org.bluez.Battery1"_qs));
}

void tst_bluez_objects::propertiesMayBeWithdrawn()
{
    startDaemon();
    m_bluez->change(adapter, adapterInterface, {{"Powered"_qs, true}}, {alias});
    QTRY_COMPARE(m_record->lines, QStringList("= /org/bluez/hci0 Powered,Alias "_qs));
    QCOMPARE(m_objects->properties(adapter, adapterInterface), QVariantMap({{"Powered"_qs, true}}));
}

void tst_bluez_objects::anAdditionOfSomethingKnownIsAChange()
{
    startDaemon();
    m_bluez->add(adapter, {{adapterInterface, {{alias, "one"_qs}, {"Powered"_qs, true}}}});
    m_bluez->add(adapter, {{adapterInterface, {{alias, "one"_qs}, {"Powered"_qs, true}}}});
    m_bluez->add(adapter, {{adapterInterface, {{alias, "two"_qs}}}});
    QTRY_COMPARE(m_record->lines,
                 QStringList({"= /org/bluez/hci0 Powered one"_qs, "= /org/bluez/hci0 Alias,Powered two"_qs}));
}

void tst_bluez_objects::unknownObjectsAreNotInvented()
{
    startDaemon();
    m_bluez->change(phone, deviceInterface, named("phone"));
    m_bluez->remove(phone, {deviceInterface});
    m_bluez->change(adapter, adapterInterface, named("last"));
    QTRY_COMPARE(m_record->lines, QStringList("= /org/bluez/hci0 Alias last"_qs));
}

void tst_bluez_objects::whatComesBeforeTheDescriptionIsNotLost_data()
{
    QTest::addColumn<bool>("describesLate");
    QTest::newRow("the answer knows the changes") << true;
    QTest::newRow("the answer is older than the changes") << false;
}

void tst_bluez_objects::whatComesBeforeTheDescriptionIsNotLost()
{
    QFETCH(bool, describesLate);
    m_bluez->holdsDescription = true;
    const QString gone = "/org/bluez/hci0/dev_0"_qs;
    m_bluez->objects = {{QDBusObjectPath(adapter), {{adapterInterface, named("one")}}},
                        {QDBusObjectPath(gone), {{deviceInterface, named("gone")}}}};
    QVERIFY(m_bluez->appear());
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    const QDBusMessage early = m_bluez->description(m_bluez->calls.first());
    m_bluez->remove(gone, {deviceInterface});
    m_bluez->change(adapter, adapterInterface, named("two"));
    m_bluez->add(phone, {{deviceInterface, named("phone")}});
    m_bluez->change(adapter, adapterInterface, named("three"));
    m_bluez->objects = {{QDBusObjectPath(adapter), {{adapterInterface, named("three")}}},
                        {QDBusObjectPath(phone), {{deviceInterface, named("phone")}}}};
    m_bluez->send(describesLate ? m_bluez->description(m_bluez->calls.first()) : early);
    QTRY_VERIFY(m_objects->isStarted());
    QTRY_COMPARE(m_objects->paths(deviceInterface), QStringList(phone));
    QTRY_COMPARE(m_objects->value(adapter, adapterInterface, alias).toString(), "three"_qs);
}

void tst_bluez_objects::aRestartRemovesAndReadsAgain()
{
    startDaemon();
    m_bluez->add(phone, {{deviceInterface, named("phone")}});
    QTRY_VERIFY(m_objects->contains(phone, deviceInterface));
    m_record->taken();
    m_bluez->vanish();
    QTRY_COMPARE(m_record->lines, QStringList({"- /org/bluez/hci0/dev_1 org.bluez.Device1"_qs,
                                               "- /org/bluez/hci0 org.bluez.Adapter1"_qs, "ended"_qs}));
    QVERIFY(!m_objects->isStarted());
    QVERIFY(m_bluez->appear());
    QTRY_COMPARE(m_record->lines.mid(3),
                 QStringList({"+ /org/bluez/hci0 org.bluez.Adapter1 one"_qs, "started"_qs}));
}

void tst_bluez_objects::anEarlierDaemonsAnswerIsDropped()
{
    m_bluez->holdsDescription = true;
    m_bluez->objects = {{QDBusObjectPath("/old"_qs), {{adapterInterface, named("old")}}}};
    QVERIFY(m_bluez->appear());
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    m_bluez->vanish();
    QTRY_COMPARE(m_record->lines, QStringList("ended"_qs));
    QVERIFY(m_bluez->appear());
    QTRY_COMPARE(m_bluez->calls.size(), 2);
    m_bluez->send(m_bluez->description(m_bluez->calls.at(0)));
    m_bluez->objects = {{QDBusObjectPath("/new"_qs), {{adapterInterface, named("new")}}}};
    m_bluez->send(m_bluez->description(m_bluez->calls.at(1)));
    QTRY_VERIFY(m_objects->isStarted());
    QCOMPARE(m_record->lines.mid(1), QStringList({"+ /new org.bluez.Adapter1 new"_qs, "started"_qs}));
}

void tst_bluez_objects::anotherOwnerReplacesTheFirst()
{
    startDaemon();
    FakeBluez second("second"_qs);
    second.objects = {{QDBusObjectPath(adapter), {{adapterInterface, named("second")}}}};
    auto* queue = QDBusConnection("second"_qs).interface();
    queue->registerService("org.bluez"_qs, QDBusConnectionInterface::QueueService);
    m_bluez->vanish(); // the name goes to the second without a moment in between
    QTRY_COMPARE(m_record->lines,
                 QStringList({"- /org/bluez/hci0 org.bluez.Adapter1"_qs, "ended"_qs,
                              "+ /org/bluez/hci0 org.bluez.Adapter1 second"_qs, "started"_qs}));
    m_record->taken();
    m_bluez->change(adapter, adapterInterface, named("first again"));
    second.change(adapter, adapterInterface, named("second again"));
    QTRY_COMPARE(m_record->lines, QStringList("= /org/bluez/hci0 Alias second again"_qs));
}

void tst_bluez_objects::strangersAreNotHeard()
{
    startDaemon();
    FakeBluez stranger("stranger"_qs);
    stranger.add(phone, {{deviceInterface, named("forged")}});
    stranger.change(adapter, adapterInterface, named("forged"));
    stranger.remove(adapter, {adapterInterface});
    // The same sent to this program alone, which no match rule keeps away.
    QDBusMessage direct =
        QDBusMessage::createTargetedSignal(QDBusConnection::systemBus().baseService(), adapter,
                                           "org.freedesktop.DBus.Properties"_qs, "PropertiesChanged"_qs);
    direct << adapterInterface << named("forged") << QStringList();
    stranger.send(direct);
    // What the stranger has sent is through once the bus has answered it.
    QDBusConnection("stranger"_qs).interface()->isServiceRegistered("org.bluez"_qs);
    m_bluez->change(adapter, adapterInterface, named("true"));
    QTRY_COMPARE(m_record->lines, QStringList("= /org/bluez/hci0 Alias true"_qs));
}

void tst_bluez_objects::aRefusedDescriptionIsAskedForAgain()
{
    const LogCapture log;
    m_bluez->holdsDescription = true;
    m_bluez->objects = {{QDBusObjectPath(adapter), {{adapterInterface, named("one")}}}};
    QVERIFY(m_bluez->appear());
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    m_bluez->add(phone, {{deviceInterface, named("phone")}});
    m_bluez->send(m_bluez->calls.first().createErrorReply("org.example.Busy"_qs, "Busy"_qs));
    QTRY_COMPARE(m_record->lines, QStringList("+ /org/bluez/hci0/dev_1 org.bluez.Device1 phone"_qs));
    QVERIFY(!m_objects->isStarted());
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL), QStringList("BlueZ does not name its objects: Busy"_qs));
    m_bluez->holdsDescription = false;
    m_bluez->objects.insert(QDBusObjectPath(phone), {{deviceInterface, named("phone")}});
    QTRY_COMPARE_WITH_TIMEOUT(m_record->lines.mid(1),
                              QStringList({"+ /org/bluez/hci0 org.bluez.Adapter1 one"_qs, "started"_qs}),
                              20000);
}

void tst_bluez_objects::anotherAnswerThanObjectsIsNone()
{
    m_bluez->holdsDescription = true;
    QVERIFY(m_bluez->appear());
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    m_bluez->send(m_bluez->calls.first().createReply("text"_qs));
    m_bluez->add(phone, {{deviceInterface, named("phone")}});
    QTRY_COMPARE(m_record->lines, QStringList("+ /org/bluez/hci0/dev_1 org.bluez.Device1 phone"_qs));
    QVERIFY(!m_objects->isStarted());
}

void tst_bluez_objects::callsReachTheDaemonAndEnd()
{
    startDaemon();
    QStringList ends;
    const auto note = [&](const QDBusError& error) {
        ends << (error.isValid() ? error.name() + ' ' + error.message() : "done"_qs);
    };
    m_objects->set(adapter, adapterInterface, alias, "new"_qs, this, note);
    m_objects->call(adapter, adapterInterface, "RemoveDevice"_qs,
                    {QVariant::fromValue(QDBusObjectPath(phone))}, this, note);
    QTRY_COMPARE(m_bluez->calls.size(), 2);
    const QDBusMessage set = m_bluez->calls.at(0);
    QCOMPARE(set.path() + ' ' + set.interface() + '.' + set.member() + ' ' + set.signature(),
             "/org/bluez/hci0 org.freedesktop.DBus.Properties.Set ssv"_qs);
    QCOMPARE(set.arguments().at(2).value<QDBusVariant>().variant().toString(), "new"_qs);
    QCOMPARE(m_bluez->calls.at(1).signature(), "o"_qs);
    QVERIFY(ends.isEmpty());
    m_bluez->send(set.createReply());
    m_bluez->send(m_bluez->calls.at(1).createErrorReply("org.bluez.Error.DoesNotExist"_qs, "Gone"_qs));
    QTRY_COMPARE(ends, QStringList({"done"_qs, "org.bluez.Error.DoesNotExist Gone"_qs}));
}

void tst_bluez_objects::callsWithoutADaemonFail()
{
    QString end;
    m_objects->call(adapter, adapterInterface, "RemoveDevice"_qs, {}, this,
                    [&](const QDBusError& error) { end = error.name(); });
    QVERIFY(end.isEmpty());
    QTRY_COMPARE(end, "org.freedesktop.DBus.Error.ServiceUnknown"_qs);
    m_objects->call(adapter, adapterInterface, "RemoveDevice"_qs, {}, this, {});
    QCoreApplication::processEvents();
}

void tst_bluez_objects::whatCannotBeSentIsNotSent()
{
    startDaemon();
    QStringList ends;
    const auto note = [&](const QDBusError& error) { ends << error.name(); };
    m_objects->set(adapter, adapterInterface, alias, QVariant(), this, note);
    m_objects->call(adapter, adapterInterface, "RemoveDevice"_qs, {QVariant::fromValue(QDBusObjectPath())},
                    this, note);
    m_objects->set("no path"_qs, adapterInterface, alias, 1, this, note);
    QTRY_COMPARE(ends.size(), 3);
    QCOMPARE(ends.count("org.freedesktop.DBus.Error.InvalidArgs"_qs), 2);
    QVERIFY(m_bluez->calls.isEmpty());
}

void tst_bluez_objects::noCallbackComesAfterItsContext()
{
    startDaemon();
    bool called = false;
    auto context = std::make_unique<QObject>();
    const auto note = [&](const QDBusError&) { called = true; };
    m_objects->set(adapter, adapterInterface, alias, "new"_qs, context.get(), note);
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    m_objects->set(adapter, adapterInterface, alias, QVariant(), context.get(), note);
    context.reset();
    m_bluez->send(m_bluez->calls.first().createReply());
    m_bluez->change(adapter, adapterInterface, named("new"));
    QTRY_COMPARE(m_record->lines.size(), 1);
    QVERIFY(!called);
}

void tst_bluez_objects::allOfAThreadShareOne()
{
    QCOMPARE(BluezObjects::shared(), m_objects);
}

void tst_bluez_objects::anotherThreadHasItsOwn()
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
    QTRY_VERIFY(thread->isFinished());
    QVERIFY(isOther);
    QCOMPARE(seen, QStringList(adapter));
}

void tst_bluez_objects::slotsMayReleaseTheLastReference()
{
    startDaemon();
    const std::weak_ptr<BluezObjects> alive = m_objects;
    connect(m_objects.get(), &BluezObjects::objectRemoved, this, [&] { m_objects.reset(); });
    m_bluez->add(phone, {{deviceInterface, {}}});
    m_bluez->vanish();
    QTRY_VERIFY(alive.expired());
}

void tst_bluez_objects::aSlotsEventLoopSeesLaterChangesInOrder()
{
    startDaemon();
    bool sawNext = false;
    QObject context;
    connect(m_objects.get(), &BluezObjects::propertiesChanged, &context, [&] {
        if (m_objects->value(adapter, adapterInterface, alias).toString() == "two"_qs) {
            sawNext = QTest::qWaitFor([&] { return m_record->lines.contains("ended"_qs); });
        }
    });
    m_bluez->change(adapter, adapterInterface, named("two"));
    m_bluez->change(adapter, adapterInterface, named("three"));
    m_bluez->vanish();
    QTRY_VERIFY(m_record->lines.contains("ended"_qs));
    QVERIFY(sawNext);
    QCOMPARE(m_record->lines,
             QStringList({"= /org/bluez/hci0 Alias two"_qs, "= /org/bluez/hci0 Alias three"_qs,
                          "- /org/bluez/hci0 org.bluez.Adapter1"_qs, "ended"_qs}));
}

void tst_bluez_objects::itMayBeReleasedInASlotsEventLoop()
{
    startDaemon();
    const QPointer<BluezObjects> objects = m_objects.get();
    bool released = false;
    connect(m_objects.get(), &BluezObjects::objectRemoved, this, [&] {
        QTimer::singleShot(0, this, [&] { m_objects.reset(); });
        released = QTest::qWaitFor([&] { return !m_objects; });
        QTest::qWait(20);
    });
    m_bluez->vanish();
    QTRY_VERIFY(!objects);
    QVERIFY(released);
    QVERIFY(m_record->lines.contains("ended"_qs)); // what was still to tell
}

QTEST_GUILESS_MAIN(tst_bluez_objects)
#include "tst_bluez_objects.moc"
