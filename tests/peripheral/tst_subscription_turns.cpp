#include "SocketScenario.h"

#include <QSignalSpy>

#include <optional>
#include <utility>

using plim::Access;
using plim::Central;
using plim::Centrals;
using plim::Characteristic;

/** Subscriptions that begin and end while a slot runs an event loop, as a dialog does. The test is BlueZ. */
class tst_subscription_turns : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void aSubscriptionMayEndWhileItIsTold();
    void aCentralMaySubscribeWhileTheEndOfAllIsTold();
    void allSubscriptionsEndBeforeOneIsTold_data();
    void allSubscriptionsEndBeforeOneIsTold();
    void bluezMayEndBeforeASubscriptionIsTold_data();
    void bluezMayEndBeforeASubscriptionIsTold();
    void aForgottenCentralMayComeBackMeanwhile();
    void aBondedCentralThatLeavesStaysSubscribed();

private:
    /** @param centrals  whose slots are called before those of the characteristic */
    void begin(std::unique_ptr<Centrals> centrals = nullptr, const QString& version = "0552"_qs)
    {
        m_centrals = std::move(centrals);
        m_scenario = std::make_unique<SocketScenario>(Access().notify(), version);
        m_characteristic = m_scenario->characteristic;
    }
    /** A central subscribes without a socket. */
    bool subscribe(const QString& device)
    {
        m_scenario->bluez->send(m_scenario->path, "AcquireNotify"_qs,
                                {FakeBluez::options(device, "LE"_qs, 247)});
        m_scenario->bluez->send(m_scenario->path, "StartNotify"_qs);
        return m_scenario->roundTrip();
    }
    static QDBusPendingCall acquire(FakeBluez& bluez, const Characteristic* characteristic)
    {
        QDBusPendingCall call = bluez.call(characteristic->dbusPath(), "AcquireNotify"_qs,
                                           {FakeBluez::options(phonePath, "LE"_qs, 247)});
        (void)QTest::qWaitFor([&] { return call.isFinished(); }, 10000);
        return call;
    }
    static std::unique_ptr<BluezEnd> socketOf(const QDBusPendingCall& call)
    {
        const QDBusPendingReply<QDBusUnixFileDescriptor, quint16> reply = call;
        return reply.isValid() ? std::make_unique<BluezEnd>(reply.value()) : nullptr;
    }

    std::unique_ptr<SocketScenario> m_scenario;
    std::unique_ptr<Centrals> m_centrals;
    Characteristic* m_characteristic = nullptr;
    const Central m_phone{phonePath};
    const Central m_tablet{tabletPath};
};

void tst_subscription_turns::cleanup()
{
    m_centrals.reset();
    m_scenario.reset();
}

void tst_subscription_turns::aSubscriptionMayEndWhileItIsTold()
{
    begin();
    QVERIFY(m_scenario->ready());
    std::optional<QDBusPendingCall> call;
    bool hasReturned = false;
    connect(m_characteristic, &Characteristic::subscribed, this, [&] {
        QTRY_VERIFY(call->isFinished());
        call.reset(); // and with it BlueZ's end of the socket
        QTRY_COMPARE(m_characteristic->subscribers(), QList<Central>());
        hasReturned = true;
    });
    call = m_scenario->bluez->call(m_scenario->path, "AcquireNotify"_qs,
                                   {FakeBluez::options(phonePath, "LE"_qs, 247)});
    QTRY_VERIFY(hasReturned);
    QVERIFY(!m_characteristic->notifying());
}

void tst_subscription_turns::aCentralMaySubscribeWhileTheEndOfAllIsTold()
{
    begin(nullptr, QString()); // nobody gets a socket
    QVERIFY(m_scenario->ready());
    QVERIFY(subscribe(phonePath) && subscribe(tabletPath));
    QSignalSpy unsubscribed(m_characteristic, &Characteristic::unsubscribed);
    bool hasReturned = false;
    connect(m_characteristic, &GattCharacteristic::notifyStateChanged, this, [&](bool notifying) {
        if (!notifying) {
            hasReturned = subscribe(tabletPath);
        }
    });
    m_scenario->bluez->send(m_scenario->path, "StopNotify"_qs);
    QTRY_VERIFY(hasReturned);
    QVERIFY(m_scenario->roundTrip());
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_tablet});
    QVERIFY(m_characteristic->notifying());
    QCOMPARE(unsubscribed.size(), 1);
    QCOMPARE(unsubscribed.first().first().value<Central>(), m_phone);
}

void tst_subscription_turns::allSubscriptionsEndBeforeOneIsTold_data()
{
    QTest::addColumn<bool>("restarts");
    QTest::newRow("BlueZ restarts") << true;
    QTest::newRow("the tree changes") << false;
}

/** Otherwise the other characteristic would take the new subscription for an old one, and end it. */
void tst_subscription_turns::allSubscriptionsEndBeforeOneIsTold()
{
    QFETCH(const bool, restarts);
    begin();
    auto* other = Characteristic::create(m_scenario->tree.service, "c1"_qs, Access().notify());
    other->setTransport(Characteristic::Transport::Sockets);
    QVERIFY(m_scenario->ready());
    FakeBluez next("next"_qs);
    next.objects = m_scenario->bluez->objects;
    const auto phone = m_scenario->subscribe();
    const auto formerSocket = socketOf(acquire(*m_scenario->bluez, other));
    QVERIFY(phone && formerSocket);
    std::unique_ptr<BluezEnd> socket;
    bool hasReturned = false;
    connect(m_characteristic, &Characteristic::unsubscribed, this, [&] {
        if (restarts) {
            QVERIFY(next.appear());
            QTRY_COMPARE(next.descriptions, 1);
        }
        socket = socketOf(acquire(restarts ? next : *m_scenario->bluez, other));
        hasReturned = true;
    });
    if (restarts) {
        m_scenario->bluez->vanish();
    } else {
        delete m_scenario->tree.descriptor;
    }
    QTRY_VERIFY(hasReturned);
    QVERIFY(socket);
    QTest::qWait(50); // what must not happen is a matter of time
    QVERIFY(formerSocket->isHungUp());
    QVERIFY(!socket->isHungUp());
    QCOMPARE(other->subscribers(), QList<Central>{m_phone});
    QVERIFY(other->notifying());
}

void tst_subscription_turns::bluezMayEndBeforeASubscriptionIsTold_data()
{
    QTest::addColumn<QString>("version");
    QTest::newRow("with a socket") << "0552"_qs;
    QTest::newRow("over the bus") << QString();
}

/** A request tells the MTU, which centralChanged() passes on before the request is handled. */
void tst_subscription_turns::bluezMayEndBeforeASubscriptionIsTold()
{
    QFETCH(const QString, version);
    begin(std::make_unique<Centrals>(), version);
    QVERIFY(m_scenario->ready());
    bool hasEnded = false;
    connect(m_centrals.get(), &Centrals::centralChanged, this, [&] {
        m_scenario->bluez->vanish();
        hasEnded = QTest::qWaitFor([this] { return m_centrals->connected().isEmpty(); }, 10000);
    });
    const QDBusPendingCall call = acquire(*m_scenario->bluez, m_characteristic);
    QVERIFY(hasEnded);
    QCOMPARE(call.error().name(), "org.bluez.Error.NotSupported"_qs);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
}

void tst_subscription_turns::aForgottenCentralMayComeBackMeanwhile()
{
    begin(std::make_unique<Centrals>(), QString());
    QVERIFY(m_scenario->ready());
    QVERIFY(subscribe(phonePath));
    bool hasReturned = false;
    connect(m_centrals.get(), &Centrals::centralDisconnected, this, [&] {
        m_scenario->bluez->add(phonePath, {{m_scenario->deviceInterface, {{"Connected"_qs, true}}}});
        hasReturned = subscribe(phonePath);
    });
    m_scenario->bluez->remove(phonePath, {m_scenario->deviceInterface});
    QTRY_VERIFY(hasReturned);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
}

/** BlueZ then closes its socket, and notifies it over the bus when it is back. */
void tst_subscription_turns::aBondedCentralThatLeavesStaysSubscribed()
{
    begin(std::make_unique<Centrals>());
    QVERIFY(m_scenario->ready());
    m_scenario->set(phonePath, "Bonded"_qs, true);
    auto phone = m_scenario->subscribe();
    bool hasReturned = false;
    connect(m_centrals.get(), &Centrals::centralDisconnected, this, [&] {
        phone.reset();
        QTest::qWait(1500); // longer than both events may be apart
        hasReturned = true;
    });
    m_scenario->bluez->change(phonePath, m_scenario->deviceInterface, {{"Connected"_qs, false}});
    QTRY_VERIFY(hasReturned);
    QVERIFY(!m_characteristic->notifying());
    m_scenario->set(phonePath, "Connected"_qs, true);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    QVERIFY(m_characteristic->notifying());
}

QTEST_GUILESS_MAIN(tst_subscription_turns)
#include "tst_subscription_turns.moc"
