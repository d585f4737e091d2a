#include "LogCapture.h"
#include "SocketScenario.h"

#include <QSignalSpy>

using plim::Central;
using plim::Characteristic;

/** What BlueZ's versions and its faults make of sockets, with the test as BlueZ. */
class tst_sockets_versions : public SocketVersionsTest
{
    Q_OBJECT

private slots:
    void initTestCase() { listen(); }
    void init() { begin(); }
    void cleanup() { m_scenario.reset(); }
    void withoutAVersionSocketsAreDeclined();
    void aStrangerGetsNoSocket();
    void before569OneSocketIsForAll();
    void before576OneOfTheSocketsIsUsed();
    void before576OneCentralIsNotifiedAloneIfNoOtherIsConnected();
    void aSecondRequestOfACentralIsRefused();
    void aBondedCentralThatIsBackIsReachedOverTheBus();
    void anUnbondedCentralThatIsBackIsNotSubscribed();
    void aSocketThatIsClosedByMistakeIsReplacedByTheBus();
    void anUnsubscribedCentralStaysUnsubscribed();
    void aForgottenCentralIsLostNoLonger();
    void aNewSocketEndsTheUseOfTheBus();
};

void tst_sockets_versions::withoutAVersionSocketsAreDeclined()
{
    QCOMPARE(m_scenario->acquire("AcquireNotify"_qs).errorName(), "org.bluez.Error.NotSupported"_qs);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
}

void tst_sockets_versions::aStrangerGetsNoSocket()
{
    Caller stranger;
    QCOMPARE(outcome(stranger.acquireNotify(m_scenario->path, phonePath)), "NotSupported "_qs);
    QVERIFY(m_scenario->subscribe());
}

void tst_sockets_versions::before569OneSocketIsForAll()
{
    const auto first = m_scenario->subscribe(phonePath);
    // Two that subscribe at once get one each, and BlueZ uses the second.
    const auto second = m_scenario->subscribe(tabletPath);
    QVERIFY(first && second && m_characteristic->notify("one"));
    QCOMPARE(first->readAll(), QByteArrayList());
    QCOMPARE(second->readAll(), QByteArrayList{"one"});
    QCOMPARE(m_characteristic->bytesToWrite(m_phone), 0);
    m_characteristic->notify("two");
    QCOMPARE(m_characteristic->bytesToWrite(m_phone), 3);
}

void tst_sockets_versions::before576OneOfTheSocketsIsUsed()
{
    const auto phone = m_scenario->subscribe(phonePath);
    auto tablet = m_scenario->subscribe(tabletPath);
    QVERIFY(m_characteristic->notify("one"));
    QCOMPARE(phone->readAll(), QByteArrayList());
    QCOMPARE(tablet->readAll(), QByteArrayList{"one"});
    QCOMPARE(m_scenario->acquire("AcquireNotify"_qs, phonePath).errorName(), "org.bluez.Error.Failed"_qs);
    tablet.reset();
    QVERIFY(m_characteristic->notify("two")); // the hang-up is not known yet
    QCOMPARE(phone->readAll(), QByteArrayList{"two"});
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
}

void tst_sockets_versions::before576OneCentralIsNotifiedAloneIfNoOtherIsConnected()
{
    const auto phone = m_scenario->subscribe(phonePath);
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    QVERIFY(!m_characteristic->notify(m_phone, "one"));
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL).size(), 1);
    m_scenario->set(tabletPath, "Connected"_qs, false);
    QVERIFY(m_characteristic->notify(m_phone, "two"));
    QCOMPARE(phone->readAll(), QByteArrayList{"two"});
}

void tst_sockets_versions::aSecondRequestOfACentralIsRefused()
{
    const auto phone = m_scenario->subscribe();
    const QDBusMessage again = m_scenario->acquire("AcquireNotify"_qs);
    QCOMPARE(again.errorName(), "org.bluez.Error.Failed"_qs);
    QCOMPARE(again.errorMessage(), "0x0e"_qs);
    QVERIFY(m_characteristic->notify("one"));
    QCOMPARE(phone->readAll(), QByteArrayList{"one"});
    QSignalSpy unsubscribed(m_characteristic, &Characteristic::unsubscribed);
    phone->close();
    const auto next = m_scenario->subscribe(); // the hang-up is perhaps not known yet
    QVERIFY(next);
    EVENTUALLY_COMPARE(unsubscribed.size(), 1);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    QVERIFY(m_characteristic->notify("two"));
    QCOMPARE(next->readAll(), QByteArrayList{"two"});
}

void tst_sockets_versions::aBondedCentralThatIsBackIsReachedOverTheBus()
{
    m_scenario->set(phonePath, "Bonded"_qs, true);
    auto phone = m_scenario->subscribe(phonePath);
    const auto tablet = m_scenario->subscribe(tabletPath);
    QSignalSpy subscribed(m_characteristic, &Characteristic::subscribed);
    phone.reset();
    m_scenario->set(phonePath, "Connected"_qs, false);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>{m_tablet});
    m_characteristic->notify("away");
    QCOMPARE(tablet->readAll(), QByteArrayList{"away"});
    QCOMPARE(onBus(), 0);
    m_scenario->set(phonePath, "Connected"_qs, true);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), (QList<Central>{m_tablet, m_phone}));
    QCOMPARE(subscribed.size(), 1);
    QVERIFY(m_characteristic->notify("back"));
    QCOMPARE(tablet->readAll(), QByteArrayList());
    QCOMPARE(onBus(), 1);
    m_scenario->set(phonePath, "Connected"_qs, false);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>{m_tablet});
    m_characteristic->notify("away again");
    QCOMPARE(tablet->readAll(), QByteArrayList{"away again"});
    QCOMPARE(onBus(), 0);
}

void tst_sockets_versions::anUnbondedCentralThatIsBackIsNotSubscribed()
{
    auto phone = m_scenario->subscribe(phonePath);
    m_scenario->set(phonePath, "Connected"_qs, false);
    phone.reset();
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>());
    m_scenario->set(phonePath, "Connected"_qs, true);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(!m_characteristic->notifying());
}

void tst_sockets_versions::aSocketThatIsClosedByMistakeIsReplacedByTheBus()
{
    auto phone = m_scenario->subscribe(phonePath);
    auto tablet = m_scenario->subscribe(tabletPath);
    // The tablet disconnects, and both sockets are closed.
    phone.reset();
    tablet.reset();
    m_scenario->set(tabletPath, "Connected"_qs, false);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    QVERIFY(m_characteristic->notifying());
    m_characteristic->notify("bus");
    QCOMPARE(onBus(), 1);
    m_scenario->set(phonePath, "Connected"_qs, false);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(!m_characteristic->notifying());
}

void tst_sockets_versions::anUnsubscribedCentralStaysUnsubscribed()
{
    m_scenario->set(phonePath, "Bonded"_qs, true);
    auto phone = m_scenario->subscribe(phonePath);
    phone.reset();
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>());
    QTest::qWait(1100); // a disconnection that comes so late is not the reason
    m_scenario->set(phonePath, "Connected"_qs, false);
    m_scenario->set(phonePath, "Connected"_qs, true);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
}

void tst_sockets_versions::aForgottenCentralIsLostNoLonger()
{
    m_scenario->set(phonePath, "Bonded"_qs, true);
    auto phone = m_scenario->subscribe(phonePath);
    phone.reset();
    m_scenario->set(phonePath, "Connected"_qs, false);
    m_scenario->set(phonePath, "Connected"_qs, true);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    m_scenario->bluez->remove(phonePath, {m_scenario->deviceInterface});
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(!m_characteristic->notifying());
}

void tst_sockets_versions::aNewSocketEndsTheUseOfTheBus()
{
    m_scenario->set(phonePath, "Bonded"_qs, true);
    auto phone = m_scenario->subscribe(phonePath);
    phone.reset();
    m_scenario->set(phonePath, "Connected"_qs, false);
    m_scenario->set(phonePath, "Connected"_qs, true);
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    phone = m_scenario->subscribe(phonePath);
    QVERIFY(phone);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    onBus();
    m_characteristic->notify("one");
    QCOMPARE(phone->readAll(), QByteArrayList{"one"});
    QCOMPARE(onBus(), 0);
}

QTEST_GUILESS_MAIN(tst_sockets_versions)
#include "tst_sockets_versions.moc"
