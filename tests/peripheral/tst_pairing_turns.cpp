#include "Attributes.h"
#include "FakeBluez.h"

#include <QDBusConnectionInterface>

#include <algorithm>

using plim::PairingAgent;
using plim::PairingRequest;

/** A pairing agent while BlueZ starts and restarts, with answers in another order than they were sent, and
 * slots that run an event loop. The test is BlueZ. */
class tst_pairing_turns : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void aQuestionMayComeBeforeTheAnswerOfTheRegistration();
    void anAnswerMayComeAfterTheRemoval();
    void bluezMayRestartInASlot_data();
    void bluezMayRestartInASlot();

private:
    /** The agent's call of this method, which is then answered by the test. */
    static QDBusMessage take(FakeBluez& bluez, const QString& member)
    {
        QDBusMessage taken;
        const bool isThere = QTest::qWaitFor(
            [&] {
                const auto found = std::find_if(bluez.calls.begin(), bluez.calls.end(),
                                                [&](const auto& call) { return call.member() == member; });
                if (found == bluez.calls.end()) {
                    return false;
                }
                taken = *found;
                bluez.calls.erase(found);
                return true;
            },
            10000);
        return isThere ? taken : QDBusMessage();
    }
    /** Answers until the agent is the default one. */
    bool accept(FakeBluez& bluez)
    {
        const QDBusMessage registration = take(bluez, "RegisterAgent"_qs);
        m_path = registration.arguments().value(0).value<QDBusObjectPath>().path();
        bluez.send(registration.createReply());
        bluez.send(take(bluez, "RequestDefaultAgent"_qs).createReply());
        return QTest::qWaitFor([this] { return m_agent->state() == PairingAgent::Registered; }, 10000);
    }
    QDBusPendingCall callAgent(const QString& member, const QVariantList& arguments = {})
    {
        return m_bluez->call(m_path, member, arguments, "org.bluez.Agent1"_qs);
    }
    QDBusPendingCall ask()
    {
        return callAgent("RequestAuthorization"_qs, {QVariant::fromValue(QDBusObjectPath(phonePath))});
    }

    std::unique_ptr<FakeBluez> m_bluez;
    std::unique_ptr<PairingAgent> m_agent;
    QString m_path;
};

void tst_pairing_turns::init()
{
    m_bluez = std::make_unique<FakeBluez>("bluez"_qs);
    QVERIFY(m_bluez->appear());
    m_agent = std::make_unique<PairingAgent>(PairingAgent::DisplayYesNo);
    m_agent->openPairingWindow(0);
}

void tst_pairing_turns::cleanup()
{
    m_agent.reset();
    m_bluez.reset();
    QTRY_VERIFY(!QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"_qs).value());
}

void tst_pairing_turns::aQuestionMayComeBeforeTheAnswerOfTheRegistration()
{
    const QDBusMessage registration = take(*m_bluez, "RegisterAgent"_qs);
    m_path = registration.arguments().value(0).value<QDBusObjectPath>().path();
    connect(m_agent.get(), &PairingAgent::requested, this,
            [](const PairingRequest& request) { request.accept(); });
    const QDBusPendingCall question = ask();
    QTRY_VERIFY(question.isFinished());
    QCOMPARE(question.error().name(), QString());
}

void tst_pairing_turns::anAnswerMayComeAfterTheRemoval()
{
    const QDBusMessage registration = take(*m_bluez, "RegisterAgent"_qs);
    m_path = registration.arguments().value(0).value<QDBusObjectPath>().path();
    m_bluez->send(registration.createReply());
    const QDBusMessage request = take(*m_bluez, "RequestDefaultAgent"_qs);
    const QDBusPendingCall removal = callAgent("Release"_qs);
    QTRY_VERIFY(removal.isFinished());
    QCOMPARE(m_agent->state(), PairingAgent::Refused);
    m_bluez->send(request.createReply());
    const QDBusPendingCall later = callAgent("Cancel"_qs);
    QTRY_VERIFY(later.isFinished());
    QTest::qWait(100); // what must not happen is a matter of time
    QCOMPARE(m_agent->state(), PairingAgent::Refused);
}

void tst_pairing_turns::bluezMayRestartInASlot_data()
{
    QTest::addColumn<bool>("releases");
    QTest::newRow("it ends") << false;
    QTest::newRow("it removes the agent, and ends") << true;
}

/** For instance a message that the user has to confirm. */
void tst_pairing_turns::bluezMayRestartInASlot()
{
    QFETCH(const bool, releases);
    QVERIFY(accept(*m_bluez));
    QList<PairingRequest> requests;
    connect(m_agent.get(), &PairingAgent::requested, this,
            [&](const PairingRequest& request) { requests << request; });
    FakeBluez next("next"_qs);
    bool isAccepted = false;
    bool hasReturned = false;
    connect(m_agent.get(), &PairingAgent::requestEnded, this, [&] {
        m_bluez->vanish();
        isAccepted = next.appear() && accept(next);
        hasReturned = true;
    });
    const QDBusPendingCall question = ask();
    QTRY_COMPARE(requests.size(), 1);
    if (releases) {
        callAgent("Release"_qs);
    } else {
        m_bluez->vanish();
    }
    QTRY_VERIFY(hasReturned);
    QVERIFY(isAccepted);
    QCOMPARE(m_agent->state(), PairingAgent::Registered);
    QCOMPARE(m_agent->error(), QString());
    m_agent.reset();
}

QTEST_GUILESS_MAIN(tst_pairing_turns)
#include "tst_pairing_turns.moc"
