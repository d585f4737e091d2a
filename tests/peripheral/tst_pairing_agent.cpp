#include "LogCapture.h"
#include "PairingScenario.h"
#include "RawBusClient.h"

#include <QSignalSpy>

using plim::PairingAgent;

/** The pairing agent and its window, with the stand-in daemon and its phones. */
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
    void theAgentMayEndInEachSignal_data();
    void theAgentMayEndInEachSignal();
    void aStrangerIsRefused();
    void aBondedPhoneThatForgotIsNotAsked();
    void problemsKnowTheAgent();
};

void tst_pairing_agent::itBecomesTheDefaultAgent()
{
    PairingScenario scene;
    QCOMPARE(scene.agent->state(), PairingAgent::Pending);
    QVERIFY(scene.awaitState(PairingAgent::Registered));
    QVERIFY(scene.agent->error().isEmpty());
    QVERIFY(!scene.agent->isPairingWindowOpen());
}

void tst_pairing_agent::itWaitsForBluez()
{
    const PlimBleTest ble;
    ble.vanish();
    const TestedAgent tested;
    QVERIFY(tested.awaitState(PairingAgent::WaitingForBlueZ));
    ble.appear();
    QVERIFY(tested.awaitState(PairingAgent::Registered));
}

void tst_pairing_agent::itIsRegisteredAgainAfterARestart()
{
    PairingScenario scene;
    QVERIFY(scene.awaitState(PairingAgent::Registered));
    for (int restart = 0; restart < 3; ++restart) {
        QSignalSpy states(scene.agent.get(), &PairingAgent::stateChanged);
        scene.ble.restart();
        QVERIFY(scene.awaitState(PairingAgent::Registered));
        QVERIFY(states.size() >= 2);
    }
    QVERIFY(scene.isAsked());
}

void tst_pairing_agent::aRefusalIsReported()
{
    const PairingScenario first;
    QVERIFY(first.awaitState(PairingAgent::Registered));
    const TestedAgent second;
    QVERIFY(second.awaitState(PairingAgent::Refused));
    QVERIFY2(second.agent->error().startsWith("org.bluez.Error.AlreadyExists"),
             qPrintable(second.agent->error()));
}

void tst_pairing_agent::nobodyPairsWithoutAWindow()
{
    PairingScenario scene;
    QVERIFY(scene.ready());
    QSignalSpy refused(scene.agent.get(), &PairingAgent::refused);
    scene.pair();
    EVENTUALLY_COMPARE(scene.phone->pairing(), QString("failed: 0x05 Pairing Not Supported"));
    QVERIFY(scene.requests.isEmpty() && refused.isEmpty());
}

void tst_pairing_agent::theAgentItselfRefusesWithoutAWindow()
{
    PairingScenario scene;
    QVERIFY(scene.ready());
    QSignalSpy refused(scene.agent.get(), &PairingAgent::refused);
    scene.makePairable();
    scene.pair();
    EVENTUALLY_COMPARE(scene.phone->pairing(), QString("failed: 0x0c Numeric Comparison Failed"));
    EVENTUALLY_COMPARE(refused.size(), 1);
    QCOMPARE(refused.at(0).at(0).value<plim::Central>().path(), scene.phone->device());
    QVERIFY(scene.requests.isEmpty());
}

void tst_pairing_agent::aWindowClosesByItself()
{
    PairingScenario scene;
    QVERIFY(scene.awaitState(PairingAgent::Registered));
    QSignalSpy opened(scene.agent.get(), &PairingAgent::pairingWindowOpened);
    QSignalSpy closed(scene.agent.get(), &PairingAgent::pairingWindowClosed);
    scene.agent->openPairingWindow(1);
    QVERIFY(scene.agent->isPairingWindowOpen());
    QCOMPARE(opened.size(), 1);
    EVENTUALLY_VERIFY(scene.isPairable());
    EVENTUALLY_COMPARE(closed.size(), 1);
    QVERIFY(!scene.agent->isPairingWindowOpen());
    EVENTUALLY_VERIFY(!scene.isPairable());
    scene.agent->closePairingWindow(); // it is closed
    QCOMPARE(closed.size(), 1);
}

void tst_pairing_agent::adaptersThatAppearArePairableWithTheWindow()
{
    PairingScenario scene;
    QVERIFY(scene.ready());
    PlimBleTest::control("RemoveAdapter", {"hci0"});
    PlimBleTest::control("AddAdapter", {"hci0"}); // pairable, since there is an agent
    EVENTUALLY_VERIFY(!scene.isPairable());
    scene.agent->openPairingWindow(0);
    EVENTUALLY_VERIFY(scene.isPairable());
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
    PairingScenario scene{PairingAgent::DisplayOnly};
    QVERIFY(signal == "refused" ? scene.ready() : scene.openWindow());
    QObject receiver;
    const auto endIn = [&](auto member, const char* name) {
        if (signal == name) {
            QObject::connect(scene.agent.get(), member, &receiver, [&] { scene.agent.reset(); });
        }
    };
    endIn(&PairingAgent::requested, "requested");
    endIn(&PairingAgent::requestEnded, "requestEnded");
    endIn(&PairingAgent::refused, "refused");
    endIn(&PairingAgent::paired, "paired");
    endIn(&PairingAgent::stateChanged, "stateChanged");
    endIn(&PairingAgent::pairingWindowOpened, "pairingWindowOpened");
    endIn(&PairingAgent::pairingWindowClosed, "pairingWindowClosed");
    if (signal == "stateChanged") {
        scene.ble.restart();
    } else if (signal == "pairingWindowOpened") {
        scene.agent->openPairingWindow(1);
    } else if (signal == "pairingWindowClosed") {
        scene.agent->closePairingWindow();
    } else {
        scene.makePairable();
        scene.pair();
        if (signal == "requestEnded" || signal == "paired") {
            EVENTUALLY_COMPARE(scene.requests.size(), 1);
            scene.phone->typePasskey(scene.requests.first().passkey());
        }
    }
    EVENTUALLY_VERIFY(!scene.agent);
    EVENTUALLY_VERIFY(!scene.isPairable());
}

void tst_pairing_agent::aStrangerIsRefused()
{
    PairingScenario scene;
    QVERIFY(scene.isAsked());
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
    const QString device = scene.phone->device();
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
    QCOMPARE(scene.requests.size(), 1);
    QVERIFY(scene.ended.isEmpty());
    QCOMPARE(scene.agent->state(), PairingAgent::Registered);
    scene.requests.first().accept();
    EVENTUALLY_COMPARE(scene.phone->pairing(), QString("paired"));
}

void tst_pairing_agent::aBondedPhoneThatForgotIsNotAsked()
{
    PairingScenario scene{PairingAgent::NoInputNoOutput};
    QVERIFY(scene.openWindow());
    scene.phone.emplace();
    scene.phone->protect("encrypted");
    scene.phone->protect("open"); // the phone has lost its key, the device has not
    scene.phone->pair();
    EVENTUALLY_COMPARE(scene.phone->pairing(), QString("failed: 0x0c Numeric Comparison Failed"));
    QVERIFY(scene.requests.isEmpty());
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
