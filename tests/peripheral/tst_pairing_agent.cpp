#include "Device.h"
#include "LogCapture.h"
#include "RawBusClient.h"

#include <QSignalSpy>

using plim::PairingAgent;
using plim::PairingRequest;

namespace {

/** A registered agent, and what it was asked. */
struct Agent
{
    explicit Agent(PairingAgent::Capability capability = PairingAgent::DisplayYesNo)
        : agent(std::make_unique<PairingAgent>(capability))
    {
        QObject::connect(agent.get(), &PairingAgent::requested, agent.get(),
                         [this](const PairingRequest& request) { requests << request; });
        QObject::connect(agent.get(), &PairingAgent::requestEnded, agent.get(),
                         [this](const PairingRequest& request) { ended << request; });
        QObject::connect(agent.get(), &PairingAgent::paired, agent.get(),
                         [this](const plim::Central& central) { paired << central; });
    }

    bool awaitState(PairingAgent::State state) const
    {
        return QTest::qWaitFor([&] { return agent->state() == state; }, 10000);
    }

    std::unique_ptr<PairingAgent> agent;
    QList<PairingRequest> requests;
    QList<PairingRequest> ended;
    QList<plim::Central> paired;
};

bool isPairable()
{
    QDBusMessage get = QDBusMessage::createMethodCall("org.bluez", "/org/bluez/hci0",
                                                      "org.freedesktop.DBus.Properties", "Get");
    get << "org.bluez.Adapter1"
        << "Pairable";
    return QDBusConnection::systemBus()
        .call(get)
        .arguments()
        .value(0)
        .value<QDBusVariant>()
        .variant()
        .toBool();
}

} // namespace

/** Pairing, with the stand-in daemon and its phones. */
class tst_pairing_agent : public QObject
{
    Q_OBJECT

private slots:
    void itBecomesTheDefaultAgent();
    void itWaitsForBluez();
    void itIsRegisteredAgainAfterARestart();
    void aRefusalIsReported();
    void nobodyPairsWithoutAWindow();
    void theAgentItselfRefusesWithoutAWindow();
    void aWindowClosesByItself();
    void adaptersThatAppearArePairableWithTheWindow();
    void capabilitiesDecideTheQuestion_data();
    void capabilitiesDecideTheQuestion();
    void aRejectedQuestionEndsThePairing_data();
    void aRejectedQuestionEndsThePairing();
    void anAnswerMayComeLaterAndCountsOnce();
    void aPasskeyIsCheckedBeforeItIsSent();
    void aDroppedRequestIsRejected();
    void aShownPasskeyNeedNotBeKept();
    void aRefusedPasskeyEndsTheLink();
    void whoGivesUpEndsTheRequest_data();
    void whoGivesUpEndsTheRequest();
    void aRequestOutlivesItsAgent();
    void theAgentMayEndInEachSignal_data();
    void theAgentMayEndInEachSignal();
    void aStrangerIsRefused();
    void aBondedPhoneThatForgotIsNotAsked();
    void problemsKnowTheAgent();
};

void tst_pairing_agent::itBecomesTheDefaultAgent()
{
    const PlimBleTest ble;
    Agent own;
    QCOMPARE(own.agent->state(), PairingAgent::Pending);
    QVERIFY(own.awaitState(PairingAgent::Registered));
    QVERIFY(own.agent->error().isEmpty());
    QVERIFY(!own.agent->isPairingWindowOpen());
}

void tst_pairing_agent::itWaitsForBluez()
{
    const PlimBleTest ble;
    ble.vanish();
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::WaitingForBlueZ));
    ble.appear();
    QVERIFY(own.awaitState(PairingAgent::Registered));
}

void tst_pairing_agent::itIsRegisteredAgainAfterARestart()
{
    const PlimBleTest ble;
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::Registered));
    for (int restart = 0; restart < 3; ++restart) {
        QSignalSpy states(own.agent.get(), &PairingAgent::stateChanged);
        ble.restart();
        QVERIFY(own.awaitState(PairingAgent::Registered));
        QVERIFY(states.size() >= 2);
    }
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
}

void tst_pairing_agent::aRefusalIsReported()
{
    const PlimBleTest ble;
    const Agent first;
    QVERIFY(first.awaitState(PairingAgent::Registered));
    const Agent second;
    QVERIFY(second.awaitState(PairingAgent::Refused));
    QVERIFY2(second.agent->error().startsWith("org.bluez.Error.AlreadyExists"),
             qPrintable(second.agent->error()));
}

void tst_pairing_agent::nobodyPairsWithoutAWindow()
{
    const PlimBleTest ble;
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::Registered));
    EVENTUALLY_VERIFY(!isPairable());
    QSignalSpy refused(own.agent.get(), &PairingAgent::refused);
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(phone.pairing(), QString("failed: 0x05 Pairing Not Supported"));
    QVERIFY(own.requests.isEmpty() && refused.isEmpty());
}

void tst_pairing_agent::theAgentItselfRefusesWithoutAWindow()
{
    const PlimBleTest ble;
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::Registered));
    EVENTUALLY_VERIFY(!isPairable());
    QSignalSpy refused(own.agent.get(), &PairingAgent::refused);
    // Somebody else makes the adapter pairable.
    PlimBleTest::control("SetProperty",
                         {QVariant::fromValue(QDBusObjectPath("/org/bluez/hci0")), "org.bluez.Adapter1",
                          "Pairable", QVariant::fromValue(QDBusVariant(true))});
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(phone.pairing(), QString("failed: 0x0c Numeric Comparison Failed"));
    EVENTUALLY_COMPARE(refused.size(), 1);
    QCOMPARE(refused.at(0).at(0).value<plim::Central>().path(), phone.device());
    QVERIFY(own.requests.isEmpty());
}

void tst_pairing_agent::aWindowClosesByItself()
{
    const PlimBleTest ble;
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::Registered));
    QSignalSpy opened(own.agent.get(), &PairingAgent::pairingWindowOpened);
    QSignalSpy closed(own.agent.get(), &PairingAgent::pairingWindowClosed);
    own.agent->openPairingWindow(1);
    QVERIFY(own.agent->isPairingWindowOpen());
    QCOMPARE(opened.size(), 1);
    EVENTUALLY_VERIFY(isPairable());
    EVENTUALLY_COMPARE(closed.size(), 1);
    QVERIFY(!own.agent->isPairingWindowOpen());
    EVENTUALLY_VERIFY(!isPairable());
    own.agent->closePairingWindow(); // it is closed
    QCOMPARE(closed.size(), 1);
}

void tst_pairing_agent::adaptersThatAppearArePairableWithTheWindow()
{
    const PlimBleTest ble;
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::Registered));
    EVENTUALLY_VERIFY(!isPairable());
    PlimBleTest::control("RemoveAdapter", {"hci0"});
    PlimBleTest::control("AddAdapter", {"hci0"}); // pairable, since there is an agent
    EVENTUALLY_VERIFY(!isPairable());
    own.agent->openPairingWindow(0);
    EVENTUALLY_VERIFY(isPairable());
}

void tst_pairing_agent::capabilitiesDecideTheQuestion_data()
{
    QTest::addColumn<int>("device");
    QTest::addColumn<QString>("phone");
    QTest::addColumn<int>("kind");
    const auto row = [](PairingAgent::Capability device, const char* phone, PairingRequest::Kind kind) {
        QTest::addRow("%d %s", device, phone) << int(device) << QString(phone) << int(kind);
    };
    const QList<PairingAgent::Capability> all{PairingAgent::DisplayOnly, PairingAgent::DisplayYesNo,
                                              PairingAgent::KeyboardOnly, PairingAgent::NoInputNoOutput,
                                              PairingAgent::KeyboardDisplay};
    for (const PairingAgent::Capability device : all) {
        row(device, "NoInputNoOutput", PairingRequest::Authorize);
    }
    row(PairingAgent::NoInputNoOutput, "KeyboardDisplay", PairingRequest::Authorize);
    row(PairingAgent::DisplayOnly, "DisplayYesNo", PairingRequest::Authorize);
    row(PairingAgent::DisplayOnly, "KeyboardDisplay", PairingRequest::ShowPasskey);
    row(PairingAgent::DisplayYesNo, "DisplayYesNo", PairingRequest::CompareNumbers);
    row(PairingAgent::DisplayYesNo, "KeyboardDisplay", PairingRequest::CompareNumbers);
    row(PairingAgent::DisplayYesNo, "KeyboardOnly", PairingRequest::ShowPasskey);
    row(PairingAgent::KeyboardOnly, "DisplayYesNo", PairingRequest::EnterPasskey);
    row(PairingAgent::KeyboardOnly, "KeyboardDisplay", PairingRequest::EnterPasskey);
    row(PairingAgent::KeyboardDisplay, "DisplayOnly", PairingRequest::EnterPasskey);
    row(PairingAgent::KeyboardDisplay, "KeyboardDisplay", PairingRequest::CompareNumbers);
    row(PairingAgent::KeyboardDisplay, "KeyboardOnly", PairingRequest::ShowPasskey);
}

void tst_pairing_agent::capabilitiesDecideTheQuestion()
{
    QFETCH(const int, device);
    QFETCH(const QString, phone);
    QFETCH(const int, kind);
    const PlimBleTest ble;
    Agent own{PairingAgent::Capability(device)};
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone caller;
    caller.pair(phone);
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    const PairingRequest request = own.requests.first();
    QCOMPARE(int(request.kind()), kind);
    QCOMPARE(request.central().path(), caller.device());
    switch (request.kind()) {
    case PairingRequest::CompareNumbers:
        QCOMPARE(request.passkey(), caller.passkey());
        QCOMPARE(request.passkey().size(), 6);
        request.accept();
        break;
    case PairingRequest::ShowPasskey:
        caller.typePasskey(request.passkey());
        break;
    case PairingRequest::EnterPasskey:
        request.accept(); // means nothing
        QVERIFY(!request.isAnswered());
        QVERIFY(request.accept(caller.passkey()));
        break;
    default:
        QVERIFY(request.passkey().isEmpty());
        request.accept();
    }
    EVENTUALLY_COMPARE(caller.pairing(), QString("paired"));
    EVENTUALLY_COMPARE(own.paired.size(), 1);
    QCOMPARE(own.paired.first().path(), caller.device());
    QVERIFY(request.isAnswered());
    QCOMPARE(own.ended.size(), kind == PairingRequest::ShowPasskey ? 1 : 0);
}

void tst_pairing_agent::aRejectedQuestionEndsThePairing_data()
{
    QTest::addColumn<int>("device");
    QTest::addColumn<QString>("reason");
    QTest::newRow("authorize") << int(PairingAgent::NoInputNoOutput) << "0x0c Numeric Comparison Failed";
    QTest::newRow("compare") << int(PairingAgent::DisplayYesNo) << "0x0c Numeric Comparison Failed";
    QTest::newRow("enter") << int(PairingAgent::KeyboardOnly) << "0x01 Passkey Entry Failed";
}

void tst_pairing_agent::aRejectedQuestionEndsThePairing()
{
    QFETCH(const int, device);
    QFETCH(const QString, reason);
    const PlimBleTest ble;
    Agent own{PairingAgent::Capability(device)};
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    own.requests.first().reject();
    EVENTUALLY_COMPARE(phone.pairing(), "failed: " + reason);
    QVERIFY(own.paired.isEmpty() && own.ended.isEmpty());
}

void tst_pairing_agent::anAnswerMayComeLaterAndCountsOnce()
{
    const PlimBleTest ble;
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    own.agent->closePairingWindow(); // what was asked before may still be answered
    QTest::qWait(200);
    QCOMPARE(phone.pairing(), QString("pairing"));
    const PairingRequest copy = own.requests.first();
    QVERIFY(copy == own.requests.first() && copy != PairingRequest());
    copy.accept();
    QVERIFY(own.requests.first().isAnswered());
    own.requests.first().reject();
    EVENTUALLY_COMPARE(phone.pairing(), QString("paired"));
}

void tst_pairing_agent::aPasskeyIsCheckedBeforeItIsSent()
{
    const PlimBleTest ble;
    Agent own{PairingAgent::KeyboardOnly};
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    const PairingRequest request = own.requests.first();
    for (const QString& wrong : QStringList{"", "1234567", "12a", "-1", " 1", "１２３"}) {
        QVERIFY2(!request.accept(wrong), qPrintable(wrong));
    }
    QVERIFY(!request.isAnswered());
    const uint right = phone.passkey().toUInt();
    QVERIFY(request.accept(QString::number((right + 1) % 1000000)));
    EVENTUALLY_COMPARE(phone.pairing(), QString("failed: 0x04 Confirm Value Failed"));
}

void tst_pairing_agent::aDroppedRequestIsRejected()
{
    const PlimBleTest ble;
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    own.requests.clear();
    EVENTUALLY_COMPARE(phone.pairing(), QString("failed: 0x0c Numeric Comparison Failed"));
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
             QStringList("Pairing request of " + phone.device() + " dropped without an answer"));
}

void tst_pairing_agent::aShownPasskeyNeedNotBeKept()
{
    const PlimBleTest ble;
    Agent own{PairingAgent::DisplayOnly};
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    const QString passkey = own.requests.takeFirst().passkey();
    phone.typePasskey(passkey);
    EVENTUALLY_COMPARE(own.ended.size(), 1);
    QCOMPARE(own.ended.first().passkey(), passkey);
    EVENTUALLY_COMPARE(phone.pairing(), QString("paired"));
}

void tst_pairing_agent::aRefusedPasskeyEndsTheLink()
{
    const PlimBleTest ble;
    Agent own{PairingAgent::DisplayOnly};
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    own.requests.first().reject();
    EVENTUALLY_COMPARE(phone.pairing(), QString("failed: the link was lost"));
}

void tst_pairing_agent::whoGivesUpEndsTheRequest_data()
{
    QTest::addColumn<int>("device");
    QTest::addColumn<QString>("who");
    for (const PairingAgent::Capability device : {PairingAgent::NoInputNoOutput, PairingAgent::DisplayYesNo,
                                                  PairingAgent::KeyboardOnly, PairingAgent::DisplayOnly}) {
        for (const char* who : {"phone", "link", "daemon", "time"}) {
            QTest::addRow("%d %s", device, who) << int(device) << QString(who);
        }
    }
}

void tst_pairing_agent::whoGivesUpEndsTheRequest()
{
    QFETCH(const int, device);
    QFETCH(const QString, who);
    if (device == PairingAgent::DisplayOnly && who == "time") {
        return; // nobody waits for an answer to a shown passkey
    }
    const PlimBleTest ble;
    Agent own{PairingAgent::Capability(device)};
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    ble.setAgentPatience(who == "time" ? 300 : 60000);
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    if (who == "phone") {
        phone.cancelPairing();
    } else if (who == "link") {
        phone.disconnect();
    } else if (who == "daemon") {
        ble.vanish();
    }
    EVENTUALLY_COMPARE(own.ended, own.requests);
    QVERIFY(own.requests.first().isAnswered());
    own.requests.first().accept(); // does nothing
    own.requests.first().reject();
    QVERIFY(own.paired.isEmpty());
    if (who == "time") {
        QCOMPARE(phone.pairing(), QString("failed: the device did not answer"));
    }
}

void tst_pairing_agent::aRequestOutlivesItsAgent()
{
    const PlimBleTest ble;
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    own.agent.reset();
    QVERIFY(own.requests.first().isAnswered());
    own.requests.first().accept();
    EVENTUALLY_VERIFY(phone.pairing().startsWith("failed: "));
    EVENTUALLY_VERIFY(!isPairable());
}

void tst_pairing_agent::theAgentMayEndInEachSignal_data()
{
    QTest::addColumn<QByteArray>("signal");
    for (const char* signal : {"requested", "requestEnded", "refused", "paired", "stateChanged",
                               "pairingWindowOpened", "pairingWindowClosed"}) {
        QTest::newRow(signal) << QByteArray(signal);
    }
}

void tst_pairing_agent::theAgentMayEndInEachSignal()
{
    QFETCH(const QByteArray, signal);
    const PlimBleTest ble;
    Agent own{PairingAgent::DisplayOnly};
    QVERIFY(own.awaitState(PairingAgent::Registered));
    if (signal != "refused") {
        own.agent->openPairingWindow(60);
    }
    EVENTUALLY_COMPARE(isPairable(), signal != "refused");
    const auto end = [&] { own.agent.reset(); };
    QObject receiver;
    PairingAgent* agent = own.agent.get();
    QObject::connect(agent, &PairingAgent::requested, &receiver,
                     [&] { signal == "requested" ? end() : void(); });
    QObject::connect(agent, &PairingAgent::requestEnded, &receiver,
                     [&] { signal == "requestEnded" ? end() : void(); });
    QObject::connect(agent, &PairingAgent::refused, &receiver, [&] { signal == "refused" ? end() : void(); });
    QObject::connect(agent, &PairingAgent::paired, &receiver, [&] { signal == "paired" ? end() : void(); });
    QObject::connect(agent, &PairingAgent::stateChanged, &receiver,
                     [&] { signal == "stateChanged" ? end() : void(); });
    QObject::connect(agent, &PairingAgent::pairingWindowOpened, &receiver,
                     [&] { signal == "pairingWindowOpened" ? end() : void(); });
    QObject::connect(agent, &PairingAgent::pairingWindowClosed, &receiver,
                     [&] { signal == "pairingWindowClosed" ? end() : void(); });
    if (signal == "stateChanged") {
        ble.restart();
    } else if (signal == "pairingWindowOpened") {
        own.agent->openPairingWindow(1);
    } else if (signal == "pairingWindowClosed") {
        own.agent->closePairingWindow();
    } else {
        PlimBleTest::control("SetProperty",
                             {QVariant::fromValue(QDBusObjectPath("/org/bluez/hci0")), "org.bluez.Adapter1",
                              "Pairable", QVariant::fromValue(QDBusVariant(true))});
        PlimBleTest::Phone phone;
        phone.pair();
        if (signal == "requestEnded" || signal == "paired") {
            EVENTUALLY_COMPARE(own.requests.size(), 1);
            phone.typePasskey(own.requests.first().passkey());
        }
    }
    EVENTUALLY_VERIFY(!own.agent);
    EVENTUALLY_VERIFY(!isPairable());
}

void tst_pairing_agent::aStrangerIsRefused()
{
    const PlimBleTest ble;
    Agent own;
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.pair();
    EVENTUALLY_COMPARE(own.requests.size(), 1);
    const QString path = QDBusConnection::systemBus().objectRegisteredAt("/org/plim") ? QString() : [] {
        for (int number = 1; number < 1000; ++number) {
            const QString candidate = "/org/plim/agent" + QString::number(number);
            if (QDBusConnection::systemBus().objectRegisteredAt(candidate)) {
                return candidate;
            }
        }
        return QString();
    }();
    QVERIFY(!path.isEmpty());
    RawBusClient stranger;
    LogCapture log(log4cplus::WARN_LOG_LEVEL);
    struct Call
    {
        const char* member;
        const char* signature;
        QStringList arguments;
    };
    const QString device = phone.device();
    const QList<Call> calls{{"Release", "", {}},
                            {"Cancel", "", {}},
                            {"RequestPinCode", "o", {device}},
                            {"DisplayPinCode", "os", {device, "1234"}},
                            {"RequestPasskey", "o", {device}},
                            {"DisplayPasskey", "ouq", {device, "1", "0"}},
                            {"RequestConfirmation", "ou", {device, "1"}},
                            {"RequestAuthorization", "o", {device}},
                            {"AuthorizeService", "os", {device, "180f"}}};
    for (const Call& call : calls) {
        log.clear();
        const BusMessage answer =
            stranger.call(path, "org.bluez.Agent1", call.member, call.signature, call.arguments);
        QCOMPARE(answer.errorName, QString("org.freedesktop.DBus.Error.AccessDenied"));
        QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
                 QStringList(QString("%1 of the pairing agent refused: %2 is not BlueZ")
                                 .arg(call.member, stranger.name())));
    }
    QCOMPARE(own.requests.size(), 1);
    QVERIFY(own.ended.isEmpty());
    QCOMPARE(own.agent->state(), PairingAgent::Registered);
    own.requests.first().accept();
    EVENTUALLY_COMPARE(phone.pairing(), QString("paired"));
}

void tst_pairing_agent::aBondedPhoneThatForgotIsNotAsked()
{
    const PlimBleTest ble;
    Agent own{PairingAgent::NoInputNoOutput};
    QVERIFY(own.awaitState(PairingAgent::Registered));
    own.agent->openPairingWindow(60);
    EVENTUALLY_VERIFY(isPairable());
    PlimBleTest::Phone phone;
    phone.protect("encrypted");
    phone.protect("open"); // the phone has lost its key, the device has not
    phone.pair();
    EVENTUALLY_COMPARE(phone.pairing(), QString("failed: 0x05 Pairing Not Supported"));
    QVERIFY(own.requests.isEmpty());
}

void tst_pairing_agent::problemsKnowTheAgent()
{
    const PlimBleTest ble;
    Device device;
    device.add(plim::Access().read(plim::Access::Encrypted));
    QCOMPARE(plim::problems(device.app).size(), 1);
    {
        const PairingAgent agent(PairingAgent::NoInputNoOutput);
        QVERIFY(plim::problems(device.app).isEmpty());
    }
    QCOMPARE(plim::problems(device.app).size(), 1);
}

QTEST_GUILESS_MAIN(tst_pairing_agent)
#include "tst_pairing_agent.moc"
