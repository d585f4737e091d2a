#include "LogCapture.h"
#include "ObservedObjects.h"

using namespace ObjectsScenario;
using plim::detail::BluezObjects;

/** What BlueZ's mirror knows and tells. */
class tst_bluez_objects : public QObject, private ObservedObjects
{
    Q_OBJECT

private slots:
    void init() { begin(); }
    void cleanup() { end(); }
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
};

void tst_bluez_objects::whatIsThereIsAnnouncedAtTheStart()
{
    m_bluez->objects = {{QDBusObjectPath(phone), {{deviceInterface, named("phone")}}},
                        {QDBusObjectPath(adapter), {{adapterInterface, named("one")}}}};
    QVERIFY(m_bluez->appear());
    EVENTUALLY_COMPARE(m_record->lines,
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
    EVENTUALLY_VERIFY(m_objects->isStarted());
}

void tst_bluez_objects::nothingIsKnownBeforeTheDaemonHasDescribedItself()
{
    m_bluez->holdsDescription = true;
    QVERIFY(m_bluez->appear());
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 1);
    QVERIFY(!m_objects->isStarted());
    m_bluez->send(m_bluez->description(m_bluez->calls.first()));
    EVENTUALLY_COMPARE(m_record->lines, QStringList("started"_qs));
}

void tst_bluez_objects::changesOfObjectsAreFollowed()
{
    startDaemon();
    m_bluez->add(phone, {{deviceInterface, named("phone")}, {"org.bluez.Battery1"_qs, {}}});
    m_bluez->change(phone, deviceInterface, named("mine"));
    m_bluez->remove(phone, {deviceInterface});
    EVENTUALLY_COMPARE(m_record->lines, QStringList({"+ /org/bluez/hci0/dev_1 org.bluez.Battery1 "_qs,
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
    EVENTUALLY_COMPARE(m_record->lines, QStringList("= /org/bluez/hci0 Powered,Alias "_qs));
    QCOMPARE(m_objects->properties(adapter, adapterInterface), QVariantMap({{"Powered"_qs, true}}));
}

void tst_bluez_objects::anAdditionOfSomethingKnownIsAChange()
{
    startDaemon();
    m_bluez->add(adapter, {{adapterInterface, {{alias, "one"_qs}, {"Powered"_qs, true}}}});
    m_bluez->add(adapter, {{adapterInterface, {{alias, "one"_qs}, {"Powered"_qs, true}}}});
    m_bluez->add(adapter, {{adapterInterface, {{alias, "two"_qs}}}});
    EVENTUALLY_COMPARE(m_record->lines, QStringList({"= /org/bluez/hci0 Powered one"_qs,
                                                     "= /org/bluez/hci0 Alias,Powered two"_qs}));
}

void tst_bluez_objects::unknownObjectsAreNotInvented()
{
    startDaemon();
    m_bluez->change(phone, deviceInterface, named("phone"));
    m_bluez->remove(phone, {deviceInterface});
    m_bluez->change(adapter, adapterInterface, named("last"));
    EVENTUALLY_COMPARE(m_record->lines, QStringList("= /org/bluez/hci0 Alias last"_qs));
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
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 1);
    const QDBusMessage early = m_bluez->description(m_bluez->calls.first());
    m_bluez->remove(gone, {deviceInterface});
    m_bluez->change(adapter, adapterInterface, named("two"));
    m_bluez->add(phone, {{deviceInterface, named("phone")}});
    m_bluez->change(adapter, adapterInterface, named("three"));
    m_bluez->objects = {{QDBusObjectPath(adapter), {{adapterInterface, named("three")}}},
                        {QDBusObjectPath(phone), {{deviceInterface, named("phone")}}}};
    m_bluez->send(describesLate ? m_bluez->description(m_bluez->calls.first()) : early);
    EVENTUALLY_VERIFY(m_objects->isStarted());
    EVENTUALLY_COMPARE(m_objects->paths(deviceInterface), QStringList(phone));
    EVENTUALLY_COMPARE(m_objects->value(adapter, adapterInterface, alias).toString(), "three"_qs);
}

void tst_bluez_objects::aRestartRemovesAndReadsAgain()
{
    startDaemon();
    m_bluez->add(phone, {{deviceInterface, named("phone")}});
    EVENTUALLY_VERIFY(m_objects->contains(phone, deviceInterface));
    m_record->taken();
    m_bluez->vanish();
    EVENTUALLY_COMPARE(m_record->lines, QStringList({"- /org/bluez/hci0/dev_1 org.bluez.Device1"_qs,
                                                     "- /org/bluez/hci0 org.bluez.Adapter1"_qs, "ended"_qs}));
    QVERIFY(!m_objects->isStarted());
    QVERIFY(m_bluez->appear());
    EVENTUALLY_COMPARE(m_record->lines.mid(3),
                       QStringList({"+ /org/bluez/hci0 org.bluez.Adapter1 one"_qs, "started"_qs}));
}

void tst_bluez_objects::anEarlierDaemonsAnswerIsDropped()
{
    m_bluez->holdsDescription = true;
    m_bluez->objects = {{QDBusObjectPath("/old"_qs), {{adapterInterface, named("old")}}}};
    QVERIFY(m_bluez->appear());
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 1);
    m_bluez->vanish();
    EVENTUALLY_COMPARE(m_record->lines, QStringList("ended"_qs));
    QVERIFY(m_bluez->appear());
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 2);
    m_bluez->send(m_bluez->description(m_bluez->calls.at(0)));
    m_bluez->objects = {{QDBusObjectPath("/new"_qs), {{adapterInterface, named("new")}}}};
    m_bluez->send(m_bluez->description(m_bluez->calls.at(1)));
    EVENTUALLY_VERIFY(m_objects->isStarted());
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
    EVENTUALLY_COMPARE(m_record->lines,
                       QStringList({"- /org/bluez/hci0 org.bluez.Adapter1"_qs, "ended"_qs,
                                    "+ /org/bluez/hci0 org.bluez.Adapter1 second"_qs, "started"_qs}));
    m_record->taken();
    m_bluez->change(adapter, adapterInterface, named("first again"));
    second.change(adapter, adapterInterface, named("second again"));
    EVENTUALLY_COMPARE(m_record->lines, QStringList("= /org/bluez/hci0 Alias second again"_qs));
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
    EVENTUALLY_COMPARE(m_record->lines, QStringList("= /org/bluez/hci0 Alias true"_qs));
}

void tst_bluez_objects::aRefusedDescriptionIsAskedForAgain()
{
    const LogCapture log;
    m_bluez->holdsDescription = true;
    m_bluez->objects = {{QDBusObjectPath(adapter), {{adapterInterface, named("one")}}}};
    QVERIFY(m_bluez->appear());
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 1);
    m_bluez->add(phone, {{deviceInterface, named("phone")}});
    m_bluez->send(m_bluez->calls.first().createErrorReply("org.example.Busy"_qs, "Busy"_qs));
    EVENTUALLY_COMPARE(m_record->lines, QStringList("+ /org/bluez/hci0/dev_1 org.bluez.Device1 phone"_qs));
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
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 1);
    m_bluez->send(m_bluez->calls.first().createReply("text"_qs));
    m_bluez->add(phone, {{deviceInterface, named("phone")}});
    EVENTUALLY_COMPARE(m_record->lines, QStringList("+ /org/bluez/hci0/dev_1 org.bluez.Device1 phone"_qs));
    QVERIFY(!m_objects->isStarted());
}

QTEST_GUILESS_MAIN(tst_bluez_objects)
#include "tst_bluez_objects.moc"
