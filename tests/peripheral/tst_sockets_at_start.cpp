#include "SocketScenario.h"

#include <QPointer>
#include <QSignalSpy>

#include <optional>
#include <vector>

using plim::Access;
using plim::Central;
using plim::Characteristic;

/** BlueZ asks for sockets before it has described its objects, which tell its version. The test is BlueZ. */
class tst_sockets_at_start : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_listener.match("type='signal',member='PropertiesChanged',path='/app/aaaa/c0'"_qs);
    }
    void init();
    void cleanup() { m_scenario.reset(); }
    void aRequestWaitsForTheDescription();
    void withoutAVersionItIsDeclinedThen();
    void aStrangersRequestIsDeclinedThen();
    void itIsDeclinedWhenBluezEnds();
    void itIsDeclinedWhenTheTreeChanges();
    void itIsDeclinedWhenTheCharacteristicIsDeleted();
    void aSlotMayDeleteTheCharacteristicWhileTwoWait();
    void aSlotMayDeleteItWhenTheCentralIsKnown();
    void bluezMayRestartWhileOneIsAnswered();
    void theNumberOfWaitingRequestsIsLimited();
    void itIsDeclinedIfNoDescriptionComes();
    void whileBluezIsNotRunningNoneWaits();
    void aWriterIsDeclinedAtOnce();

private:
    QDBusPendingCall request(const QString& device = phonePath, const QString& member = "AcquireNotify"_qs);
    bool describe();
    static QString errorOf(const QDBusPendingCall& call);

    RawBusClient m_listener;
    std::unique_ptr<SocketScenario> m_scenario;
    QPointer<Characteristic> m_characteristic;
    const Central m_phone{phonePath};
};

namespace {

const QString declined = "org.bluez.Error.NotSupported"_qs;

} // namespace

/** BlueZ runs, and is asked for its objects. */
void tst_sockets_at_start::init()
{
    m_scenario = std::make_unique<SocketScenario>(Access().notify().writeWithoutResponse(), versionOfTest());
    m_characteristic = m_scenario->characteristic;
    m_scenario->bluez->holdsDescription = true;
    QVERIFY(m_scenario->bluez->appear());
    EVENTUALLY_COMPARE(m_scenario->bluez->calls.size(), 1);
    m_listener.ping();
    m_listener.takeSignals();
}

QDBusPendingCall tst_sockets_at_start::request(const QString& device, const QString& member)
{
    const QDBusPendingCall call =
        m_scenario->bluez->call(m_scenario->path, member, {FakeBluez::options(device, "LE"_qs, 247)});
    m_scenario->roundTrip();
    return call;
}

bool tst_sockets_at_start::describe()
{
    FakeBluez& bluez = *m_scenario->bluez;
    bluez.send(bluez.description(bluez.calls.takeFirst()));
    return m_scenario->roundTrip();
}

QString tst_sockets_at_start::errorOf(const QDBusPendingCall& call)
{
    return QTest::qWaitFor([&] { return call.isFinished(); }, 10000) ? call.error().name() : "no answer"_qs;
}

void tst_sockets_at_start::aRequestWaitsForTheDescription()
{
    const QDBusPendingReply<QDBusUnixFileDescriptor, quint16> reply = request();
    QVERIFY(!reply.isFinished());
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(describe());
    EVENTUALLY_VERIFY(reply.isFinished());
    QVERIFY2(reply.isValid(), qPrintable(reply.error().message()));
    QCOMPARE(reply.argumentAt<1>(), quint16(247));
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    QCOMPARE(m_characteristic->maximumLength(m_phone), 244); // which this request alone has told
    BluezEnd phone(reply.value());
    QVERIFY(m_characteristic->notify("one"));
    QCOMPARE(phone.readAll(), QByteArrayList{"one"});
    m_listener.ping();
    QCOMPARE(m_listener.takeSignals().size(), std::size_t(0));
}

void tst_sockets_at_start::withoutAVersionItIsDeclinedThen()
{
    const QDBusPendingCall call = request();
    QVERIFY(!call.isFinished());
    QVERIFY(describe());
    QCOMPARE(errorOf(call), declined);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
}

void tst_sockets_at_start::aStrangersRequestIsDeclinedThen()
{
    FakeBluez stranger("stranger"_qs);
    const QDBusPendingCall call =
        stranger.call(m_scenario->path, "AcquireNotify"_qs, {FakeBluez::options(phonePath, "LE"_qs, 247)});
    QVERIFY(m_scenario->roundTrip());
    QVERIFY(describe());
    QCOMPARE(errorOf(call), declined);
    QVERIFY(!m_characteristic->property("NotifyAcquired").toBool());
}

void tst_sockets_at_start::itIsDeclinedWhenBluezEnds()
{
    const QDBusPendingCall call = request();
    m_scenario->bluez->vanish();
    QCOMPARE(errorOf(call), declined);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
}

void tst_sockets_at_start::itIsDeclinedWhenTheTreeChanges()
{
    const QDBusPendingCall call = request();
    delete m_scenario->tree.descriptor;
    QCOMPARE(errorOf(call), declined);
    QVERIFY(describe());
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
}

void tst_sockets_at_start::itIsDeclinedWhenTheCharacteristicIsDeleted()
{
    const QDBusPendingCall call = request();
    delete m_characteristic.data();
    QCOMPARE(errorOf(call), declined);
}

void tst_sockets_at_start::aSlotMayDeleteTheCharacteristicWhileTwoWait()
{
    const QDBusPendingCall first = request();
    const QDBusPendingCall second = request(tabletPath);
    connect(m_characteristic, &Characteristic::subscribed, this, [this] { delete m_characteristic.data(); });
    QVERIFY(describe());
    QVERIFY(m_characteristic.isNull());
    QCOMPARE(errorOf(first), QString());
    QCOMPARE(errorOf(second), declined);
}

/** What a request says of its link is passed on before the request is answered. */
void tst_sockets_at_start::aSlotMayDeleteItWhenTheCentralIsKnown()
{
    plim::Centrals centrals;
    connect(&centrals, &plim::Centrals::centralChanged, this, [this] { delete m_characteristic.data(); });
    const QDBusPendingCall call = request();
    QVERIFY(!m_characteristic.isNull());
    QVERIFY(describe());
    QVERIFY(m_characteristic.isNull());
    QCOMPARE(errorOf(call), declined);
}

/** In the event loop of a slot. The next BlueZ's request waits for the next description. */
void tst_sockets_at_start::bluezMayRestartWhileOneIsAnswered()
{
    const QDBusPendingCall first = request();
    FakeBluez next("next"_qs);
    next.objects = m_scenario->bluez->objects;
    next.holdsDescription = true;
    std::optional<QDBusPendingCall> second;
    connect(m_characteristic, &Characteristic::subscribed, &next, [&] {
        if (!second) {
            m_scenario->bluez->vanish();
            QVERIFY(next.appear());
            QTRY_COMPARE(next.calls.size(), 1);
            second = next.call(m_scenario->path, "AcquireNotify"_qs,
                               {FakeBluez::options(tabletPath, "LE"_qs, 247)});
            QVERIFY(m_scenario->roundTrip());
        }
    });
    QVERIFY(describe());
    QTRY_VERIFY(second);
    QVERIFY(m_scenario->roundTrip());
    QVERIFY(!second->isFinished());
    next.send(next.description(next.calls.takeFirst()));
    QCOMPARE(errorOf(*second), QString());
}

void tst_sockets_at_start::theNumberOfWaitingRequestsIsLimited()
{
    constexpr int most = 256;
    std::vector<QDBusPendingCall> calls;
    for (int i = 0; i < most; ++i) {
        calls.push_back(
            m_scenario->bluez->call(m_scenario->path, "AcquireNotify"_qs,
                                    {FakeBluez::options("/org/bluez/hci0/dev_%1"_qs.arg(i), "LE"_qs, 247)}));
    }
    QCOMPARE(errorOf(request()), declined);
    QVERIFY(!calls.front().isFinished() && !calls.back().isFinished());
    QVERIFY(describe());
    QCOMPARE(errorOf(calls.front()), QString());
    QCOMPARE(errorOf(calls.back()), QString());
}

void tst_sockets_at_start::itIsDeclinedIfNoDescriptionComes()
{
    const QDBusPendingCall call = request();
    QCOMPARE(errorOf(call), declined);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    QVERIFY(describe());
    QVERIFY(!m_characteristic->property("NotifyAcquired").toBool());
}

void tst_sockets_at_start::whileBluezIsNotRunningNoneWaits()
{
    m_scenario->bluez->vanish();
    QVERIFY(m_scenario->roundTrip());
    QCOMPARE(errorOf(request()), declined);
}

void tst_sockets_at_start::aWriterIsDeclinedAtOnce()
{
    const QDBusPendingCall call = request(phonePath, "AcquireWrite"_qs);
    QCOMPARE(errorOf(call), "org.bluez.Error.Failed"_qs);
}

QTEST_GUILESS_MAIN(tst_sockets_at_start)
#include "tst_sockets_at_start.moc"
