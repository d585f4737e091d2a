#pragma once

#include "Device.h"

#include <optional>

/** A pairing agent, and what it told. */
struct TestedAgent
{
    explicit TestedAgent(plim::PairingAgent::Capability capability = plim::PairingAgent::DisplayYesNo)
        : agent(std::make_unique<plim::PairingAgent>(capability))
    {
        using plim::PairingAgent;
        QObject::connect(agent.get(), &PairingAgent::requested, agent.get(),
                         [this](const plim::PairingRequest& request) { requests << request; });
        QObject::connect(agent.get(), &PairingAgent::requestEnded, agent.get(),
                         [this](const plim::PairingRequest& request) { ended << request; });
        QObject::connect(agent.get(), &PairingAgent::paired, agent.get(),
                         [this](const plim::Central& central) { paired << central; });
    }

    bool awaitState(plim::PairingAgent::State state) const
    {
        return QTest::qWaitFor([&] { return agent->state() == state; }, 10000);
    }

    std::unique_ptr<plim::PairingAgent> agent;
    QList<plim::PairingRequest> requests;
    QList<plim::PairingRequest> ended;
    QList<plim::Central> paired;
};

/** The stand-in daemon, on a bus of its own. */
struct StandIn
{
    const PlimBleTest ble;
};

/** The stand-in daemon, an agent, and a phone once it pairs. */
struct PairingScenario : StandIn, TestedAgent
{
    explicit PairingScenario(plim::PairingAgent::Capability capability = plim::PairingAgent::DisplayYesNo)
        : TestedAgent(capability)
    {
    }

    /** Waits until the agent is registered. Without a window the adapter is then not pairable. */
    bool ready() const { return awaitState(plim::PairingAgent::Registered) && awaitPairable(false); }

    /** Waits for the registration, and opens the window. */
    bool openWindow() const
    {
        if (!awaitState(plim::PairingAgent::Registered)) {
            return false;
        }
        agent->openPairingWindow(60);
        return awaitPairable(true);
    }

    /** A phone connects and starts to pair. */
    void pair(const QString& phoneCan = QStringLiteral("KeyboardDisplay"))
    {
        phone.emplace();
        phone->pair(phoneCan);
    }

    /** openWindow(), pair(), and the one request that follows. */
    bool isAsked(const QString& phoneCan = QStringLiteral("KeyboardDisplay"))
    {
        if (!openWindow()) {
            return false;
        }
        pair(phoneCan);
        return QTest::qWaitFor([this] { return requests.size() == 1; }, 10000);
    }

    /** Somebody else makes the adapter pairable. */
    static void makePairable()
    {
        PlimBleTest::control(QStringLiteral("SetProperty"),
                             {QVariant::fromValue(QDBusObjectPath("/org/bluez/hci0")),
                              QStringLiteral("org.bluez.Adapter1"), QStringLiteral("Pairable"),
                              QVariant::fromValue(QDBusVariant(true))});
    }

    static bool isPairable()
    {
        QDBusMessage get = QDBusMessage::createMethodCall(
            QStringLiteral("org.bluez"), QStringLiteral("/org/bluez/hci0"),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << QStringLiteral("org.bluez.Adapter1") << QStringLiteral("Pairable");
        const QDBusMessage answer = QDBusConnection::systemBus().call(get);
        return answer.arguments().value(0).value<QDBusVariant>().variant().toBool();
    }

    std::optional<PlimBleTest::Phone> phone;

private:
    static bool awaitPairable(bool pairable)
    {
        return QTest::qWaitFor([=] { return isPairable() == pairable; }, 10000);
    }
};
