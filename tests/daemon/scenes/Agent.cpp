#include "Agent.h"

#include "DBusBluez.h"
#include "Expect.h"
#include "Remote.h"

#include <QDBusConnection>
#include <QDBusMessage>

namespace {

const QString agentPath = QStringLiteral("/com/example/agent");
const QString managerPath = QStringLiteral("/org/bluez");
const QString managerInterface = QStringLiteral("org.bluez.AgentManager1");

} // namespace

Agent::Agent(const QString& capability)
{
    QDBusConnection::systemBus().registerObject(agentPath, this, QDBusConnection::ExportAllSlots);
    const QVariant path = QVariant::fromValue(QDBusObjectPath(agentPath));
    Remote::call(managerPath, managerInterface, "RegisterAgent", {path, capability});
    Remote::call(managerPath, managerInterface, "RequestDefaultAgent", {path});
}

Agent::~Agent()
{
    Remote::tryCall(managerPath, managerInterface, "UnregisterAgent",
                    {QVariant::fromValue(QDBusObjectPath(agentPath))});
    QDBusConnection::systemBus().unregisterObject(agentPath);
}

void Agent::note(const char* question, const QDBusObjectPath& device)
{
    m_asked << QString(question) + ' ' + device.path();
}

void Agent::RequestAuthorization(const QDBusObjectPath& device)
{
    note("RequestAuthorization", device);
}

void Agent::AuthorizeService(const QDBusObjectPath& device, const QString&)
{
    note("AuthorizeService", device);
}

void Agent::RequestConfirmation(const QDBusObjectPath& device, uint)
{
    note("RequestConfirmation", device);
}

void Agent::DisplayPasskey(const QDBusObjectPath& device, uint passkey, ushort)
{
    note("DisplayPasskey", device);
    m_passkey = passkey;
    typePasskey();
}

uint Agent::RequestPasskey(const QDBusObjectPath& device)
{
    note("RequestPasskey", device);
    setDelayedReply(true);
    m_typing = message();
    typePasskey();
    return 0;
}

/** One side may be asked before the other one shows anything. */
void Agent::typePasskey()
{
    if (m_passkey != 0 && m_typing.type() == QDBusMessage::MethodCallMessage) {
        QDBusConnection::systemBus().send(m_typing.createReply(m_passkey));
        m_typing = QDBusMessage();
    }
}
