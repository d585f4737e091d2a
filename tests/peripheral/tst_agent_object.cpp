#include "AgentObject.h"
#include "AgentRegistration.h"
#include "Device.h"
#include "RawBusClient.h"

#include <QElapsedTimer>

using plim::PairingRequest;
using plim::detail::AgentObject;
using plim::detail::AgentRegistration;
using std::chrono::hours;
using std::chrono::milliseconds;

namespace {

const QString device = QStringLiteral("/org/bluez/hci0/dev_00_AA_01_01_00_02");

/** An agent's object, and what it told. */
struct Agent
{
    explicit Agent(milliseconds patience = hours(1)) : object(patience)
    {
        QObject::connect(&object, &AgentObject::asked, &object,
                         [this](const PairingRequest& request) { requests << request; });
        QObject::connect(&object, &AgentObject::ended, &object,
                         [this](const PairingRequest& request) { ended << request; });
    }

    AgentObject object;
    QList<PairingRequest> requests;
    QList<PairingRequest> ended;
};

/** A process that an agent takes for BlueZ. */
struct Caller
{
    /** BlueZ asks. @return what RawBusClient::answer() takes */
    int ask(Agent& agent, const QString& member, const QString& signature, const QStringList& arguments)
    {
        agent.object.setDaemon(process.name());
        return process.start({agent.object.path(), "org.bluez.Agent1", member, signature, arguments});
    }
    BusMessage answer(int question) { return process.answer(question); }

    const PlimBleTest ble; // the bus
    RawBusClient process;
};

} // namespace

/** The object that BlueZ calls, with what BlueZ seldom does. */
class tst_agent_object : public QObject
{
    Q_OBJECT

private slots:
    void aRequestThatBluezForgetsEnds_data();
    void aRequestThatBluezForgetsEnds();
    void theLimitIsTheAgents();
    void aLatePhoneFails();
    void aPinIsEntered_data();
    void aPinIsEntered();
    void aPinMayBeRejected();
    void aPinIsShown();
    void aServiceIsAuthorized_data();
    void aServiceIsAuthorized();
};

void tst_agent_object::aRequestThatBluezForgetsEnds_data()
{
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("authorize") << "RequestAuthorization"
                               << "o" << QStringList{device};
    QTest::newRow("compare") << "RequestConfirmation"
                             << "ou" << QStringList{device, "123456"};
    QTest::newRow("enter") << "RequestPasskey"
                           << "o" << QStringList{device};
    QTest::newRow("enter a PIN") << "RequestPinCode"
                                 << "o" << QStringList{device};
    QTest::newRow("service") << "AuthorizeService"
                             << "os" << QStringList{device, "180f"};
}

void tst_agent_object::aRequestThatBluezForgetsEnds()
{
    QFETCH(const QString, member);
    QFETCH(const QString, signature);
    QFETCH(const QStringList, arguments);
    Caller bluez;
    Agent agent(milliseconds(200));
    const BusMessage answer = bluez.answer(bluez.ask(agent, member, signature, arguments));
    QCOMPARE(answer.errorName, QString("org.bluez.Error.Canceled"));
    QCOMPARE(agent.requests.size(), 1);
    QCOMPARE(agent.ended, agent.requests);
    QVERIFY(agent.requests.first().isAnswered());
    agent.requests.first().accept(); // does nothing
    agent.requests.first().reject();
}

void tst_agent_object::theLimitIsTheAgents()
{
    Caller bluez;
    Agent patient;
    Agent hasty(milliseconds(200));
    const int waiting = bluez.ask(patient, "RequestAuthorization", "o", {device});
    EVENTUALLY_COMPARE(patient.requests.size(), 1);
    QElapsedTimer sinceAsked;
    sinceAsked.start();
    bluez.ask(hasty, "RequestAuthorization", "o", {device});
    EVENTUALLY_COMPARE(hasty.ended.size(), 1);
    QVERIFY2(sinceAsked.elapsed() >= 190, "a coarse timer is 5 % early at most");
    QVERIFY(patient.ended.isEmpty() && !bluez.process.isAnswered(waiting));
    patient.requests.first().accept();
    QVERIFY(bluez.answer(waiting).isReply());
}

void tst_agent_object::aLatePhoneFails()
{
    const PlimBleTest ble;
    const uint anHour = 3600000;
    ble.setAgentPatience(anHour); // BlueZ never cancels
    Agent agent(milliseconds(500));
    AgentRegistration registration(agent.object.path(), "DisplayYesNo");
    QObject::connect(&registration, &AgentRegistration::daemonChanged, &agent.object,
                     &AgentObject::setDaemon);
    registration.start();
    EVENTUALLY_COMPARE(registration.state(), AgentRegistration::Registered);
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(agent.requests.size(), 1);
    EVENTUALLY_COMPARE(agent.ended, agent.requests);
    EVENTUALLY_COMPARE(phone.pairing(), QString("failed: 0x0c Numeric Comparison Failed"));
}

void tst_agent_object::aPinIsEntered_data()
{
    QTest::addColumn<QString>("pin");
    QTest::newRow("one character") << "0";
    QTest::newRow("digits, zeros in front") << "0042";
    QTest::newRow("letters") << "Ab-c";
    QTest::newRow("16 bytes") << "1234567890123456";
}

void tst_agent_object::aPinIsEntered()
{
    QFETCH(const QString, pin);
    Caller bluez;
    Agent agent;
    const int question = bluez.ask(agent, "RequestPinCode", "o", {device});
    EVENTUALLY_COMPARE(agent.requests.size(), 1);
    const PairingRequest request = agent.requests.first();
    QCOMPARE(request.kind(), PairingRequest::EnterPasskey);
    QCOMPARE(request.central().path(), device);
    for (const QString& wrong : QStringList{"", "12345678901234567", "123456789012345é"}) {
        QVERIFY2(!request.accept(wrong), qPrintable(wrong));
    }
    request.accept(); // means nothing
    QVERIFY(!request.isAnswered());
    QVERIFY(request.accept(pin));
    const BusMessage answer = bluez.answer(question);
    QCOMPARE(answer.signature, QString("s"));
    QCOMPARE(answer.body.at(0).toString(), pin);
}

void tst_agent_object::aPinMayBeRejected()
{
    Caller bluez;
    Agent agent;
    const int question = bluez.ask(agent, "RequestPinCode", "o", {device});
    EVENTUALLY_COMPARE(agent.requests.size(), 1);
    agent.requests.first().reject();
    QCOMPARE(bluez.answer(question).errorName, QString("org.bluez.Error.Rejected"));
}

void tst_agent_object::aPinIsShown()
{
    Caller bluez;
    Agent agent;
    const int question = bluez.ask(agent, "DisplayPinCode", "os", {device, "0042"});
    // BlueZ goes on with the pairing as soon as it has this answer.
    const BusMessage answer = bluez.answer(question);
    QVERIFY(answer.isReply() && answer.signature.isEmpty());
    QCOMPARE(agent.requests.size(), 1);
    QCOMPARE(agent.requests.first().kind(), PairingRequest::ShowPasskey);
    QCOMPARE(agent.requests.first().passkey(), QString("0042"));
    bluez.ask(agent, "Cancel", "", {});
    EVENTUALLY_COMPARE(agent.ended, agent.requests);
}

void tst_agent_object::aServiceIsAuthorized_data()
{
    QTest::addColumn<bool>("isAccepted");
    QTest::newRow("accepted") << true;
    QTest::newRow("rejected") << false;
}

void tst_agent_object::aServiceIsAuthorized()
{
    QFETCH(const bool, isAccepted);
    Caller bluez;
    Agent agent;
    const QString service = "00001124-0000-1000-8000-00805f9b34fb";
    const int question = bluez.ask(agent, "AuthorizeService", "os", {device, service});
    EVENTUALLY_COMPARE(agent.requests.size(), 1);
    const PairingRequest request = agent.requests.first();
    QCOMPARE(request.kind(), PairingRequest::AuthorizeService);
    QCOMPARE(request.service(), service);
    QVERIFY(request.passkey().isEmpty());
    QVERIFY(!request.accept("1234") && !request.isAnswered());
    isAccepted ? request.accept() : request.reject();
    const BusMessage answer = bluez.answer(question);
    QCOMPARE(answer.isReply(), isAccepted);
    QCOMPARE(answer.errorName, isAccepted ? QString() : QString("org.bluez.Error.Rejected"));
}

QTEST_GUILESS_MAIN(tst_agent_object)
#include "tst_agent_object.moc"
