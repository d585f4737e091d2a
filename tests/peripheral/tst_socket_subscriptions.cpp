#include "SocketScenario.h"

#include <QSignalSpy>
#include <QThread>

#include <vector>

using plim::Central;
using plim::Characteristic;

/** Where sockets, the bus and subscriptions that BlueZ has forgotten meet, with the test as BlueZ. */
class tst_socket_subscriptions : public SocketVersionsTest
{
    Q_OBJECT

private slots:
    void initTestCase() { listen(); }
    void init() { begin(); }
    void cleanup() { m_scenario.reset(); }
    void before569ASecondSocketOfACentralIsUsed();
    void before569AClosedSocketEndsTheSubscription();
    void before576ACentralThatIsNotConnectedIsNotNotifiedAlone();
    void aRequestWithoutAReplyGetsNoSocket();
    void theNumberOfSocketsIsLimited();
    void aNewSocketIsGivenBeforeTheHangUpIsKnown();
    void aHangUpLeavesTheSubscribersOnTheBus();
    void stopNotifyEndsLostSubscriptions();
    void anUnbondedCentralIsLostUntilItDisconnects();
    void aDisconnectionAtAnotherAdapterClosesNoSocket();

private:
    bool showsSocket() const { return m_characteristic->property("NotifyAcquired").toBool(); }
};

void tst_socket_subscriptions::before569ASecondSocketOfACentralIsUsed()
{
    const auto first = m_scenario->subscribe();
    const auto second = m_scenario->subscribe();
    QVERIFY(first && second && m_characteristic->notify("one"));
    QCOMPARE(first->readAll(), QByteArrayList());
    QCOMPARE(second->readAll(), QByteArrayList{"one"});
}

void tst_socket_subscriptions::before569AClosedSocketEndsTheSubscription()
{
    m_scenario->set(phonePath, "Bonded"_qs, true);
    auto phone = m_scenario->subscribe();
    phone.reset();
    m_scenario->set(phonePath, "Connected"_qs, false);
    m_scenario->set(phonePath, "Connected"_qs, true);
    EVENTUALLY_VERIFY(!showsSocket());
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(!m_characteristic->notifying());
}

void tst_socket_subscriptions::before576ACentralThatIsNotConnectedIsNotNotifiedAlone()
{
    const auto phone = m_scenario->subscribe();
    m_scenario->set(tabletPath, "Connected"_qs, false);
    m_scenario->set(phonePath, "Connected"_qs, false);
    QVERIFY(!m_characteristic->notify(m_phone, "one"));
    QVERIFY(phone->read().isNull());
}

void tst_socket_subscriptions::aRequestWithoutAReplyGetsNoSocket()
{
    QSignalSpy unsubscribed(m_characteristic, &Characteristic::unsubscribed);
    m_scenario->bluez->send(m_scenario->path, "AcquireNotify"_qs,
                            {FakeBluez::options(phonePath, "LE"_qs, 247)});
    m_scenario->roundTrip();
    QTest::qWait(100); // a socket that nobody has received is closed soon
    QCOMPARE(unsubscribed.size(), 0);
    QVERIFY(!showsSocket());
}

void tst_socket_subscriptions::theNumberOfSocketsIsLimited()
{
    constexpr int most = 256;
    std::vector<std::unique_ptr<BluezEnd>> phones;
    for (int i = 0; i < most; ++i) {
        phones.push_back(m_scenario->subscribe("/org/bluez/hci0/dev_%1"_qs.arg(i)));
        QVERIFY2(phones.back(), qPrintable(QString::number(i)));
    }
    QCOMPARE(m_scenario->acquire("AcquireNotify"_qs).errorName(), "org.bluez.Error.NotSupported"_qs);
    QSignalSpy unsubscribed(m_characteristic, &Characteristic::unsubscribed);
    phones.front().reset();
    EVENTUALLY_COMPARE(unsubscribed.size(), 1);
    QVERIFY(m_scenario->subscribe());
}

void tst_socket_subscriptions::aNewSocketIsGivenBeforeTheHangUpIsKnown()
{
    QSignalSpy unsubscribed(m_characteristic, &Characteristic::unsubscribed);
    auto phone = m_scenario->subscribe();
    const QDBusPendingCall again = m_scenario->bluez->call(m_scenario->path, "AcquireNotify"_qs,
                                                           {FakeBluez::options(phonePath, "LE"_qs, 247)});
    // The request has arrived when the event loop runs next. It comes before what sockets have to tell.
    QThread::msleep(500);
    phone.reset();
    EVENTUALLY_VERIFY(again.isFinished());
    const QDBusPendingReply<QDBusUnixFileDescriptor, quint16> reply = again;
    QVERIFY2(reply.isValid(), qPrintable(reply.error().message()));
    BluezEnd next(reply.value());
    EVENTUALLY_COMPARE(unsubscribed.size(), 1);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    QVERIFY(m_characteristic->notifying() && m_characteristic->notify("one"));
    QCOMPARE(next.readAll(), QByteArrayList{"one"});
}

void tst_socket_subscriptions::aHangUpLeavesTheSubscribersOnTheBus()
{
    auto phone = m_scenario->subscribe();
    m_scenario->bluez->send(m_scenario->path, "StartNotify"_qs);
    m_scenario->roundTrip();
    phone.reset();
    EVENTUALLY_VERIFY(!showsSocket());
    QVERIFY(m_characteristic->notifying());
    QVERIFY(m_characteristic->notify("one"));
    QCOMPARE(onBus(), 1);
}

void tst_socket_subscriptions::stopNotifyEndsLostSubscriptions()
{
    m_scenario->set(phonePath, "Bonded"_qs, true);
    auto phone = m_scenario->subscribe(phonePath);
    const auto tablet = m_scenario->subscribe(tabletPath);
    phone.reset();
    m_scenario->set(phonePath, "Connected"_qs, false);
    m_scenario->set(phonePath, "Connected"_qs, true);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), (QList<Central>{m_tablet, m_phone}));
    m_scenario->bluez->send(m_scenario->path, "StopNotify"_qs);
    m_scenario->roundTrip();
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_tablet});
    QVERIFY(m_characteristic->notify("one"));
    QCOMPARE(tablet->readAll(), QByteArrayList{"one"});
    QCOMPARE(onBus(), 0);
}

void tst_socket_subscriptions::anUnbondedCentralIsLostUntilItDisconnects()
{
    auto phone = m_scenario->subscribe(phonePath);
    auto tablet = m_scenario->subscribe(tabletPath);
    // The tablet disconnects, and both sockets are closed.
    phone.reset();
    tablet.reset();
    m_scenario->set(tabletPath, "Connected"_qs, false);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    m_scenario->set(phonePath, "Connected"_qs, false);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>());
    m_scenario->set(phonePath, "Connected"_qs, true);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(!m_characteristic->notifying());
}

void tst_socket_subscriptions::aDisconnectionAtAnotherAdapterClosesNoSocket()
{
    const QString other = "/org/bluez/hci1/dev_00_AA_01_01_00_02"_qs;
    m_scenario->bluez->add(other, {{m_scenario->deviceInterface, {{"Connected"_qs, true}}}});
    auto phone = m_scenario->subscribe();
    m_scenario->set(other, "Connected"_qs, false);
    phone.reset();
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(!m_characteristic->notifying());
}

QTEST_GUILESS_MAIN(tst_socket_subscriptions)
#include "tst_socket_subscriptions.moc"
