#include "PhoneUser.h"

#include "DBusBluez.h"
#include "Remote.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>

namespace {

const QString agentPath = QStringLiteral("/com/example/phoneuser");
const QString managerPath = QStringLiteral("/org/bluez");
const QString managerInterface = QStringLiteral("org.bluez.AgentManager1");

QString digits(uint passkey)
{
    return QStringLiteral("%1").arg(passkey, 6, 10, QLatin1Char('0'));
}

} // namespace

PhoneUser::PhoneUser(const QString& device, const QString& capability) : m_device(device)
{
    QDBusConnection::systemBus().registerObject(agentPath, this, QDBusConnection::ExportAllSlots);
    Remote::call(managerPath, managerInterface, "RegisterAgent",
                 {QVariant::fromValue(QDBusObjectPath(agentPath)), capability});
}

PhoneUser::~PhoneUser()
{
    Remote::tryCall(managerPath, managerInterface, "UnregisterAgent",
                    {QVariant::fromValue(QDBusObjectPath(agentPath))});
    QDBusConnection::systemBus().unregisterObject(agentPath);
}

void PhoneUser::pair()
{
    m_result.clear();
    m_shown.clear();
    m_asked.clear();
    m_typing = QDBusMessage();
    const QDBusMessage call =
        QDBusMessage::createMethodCall(DBusBluezServiceName(), m_device, Remote::deviceInterface, "Pair");
    constexpr int longerThanAnyPairing = 120000;
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(call, longerThanAnyPairing), this);
    const int attempt = ++m_attempt;
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [=](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        if (attempt != m_attempt) {
            return;
        }
        const QString error = Remote::errorOf(finished->reply());
        m_result = error.isEmpty() ? "paired" : error;
    });
}

void PhoneUser::cancel()
{
    Remote::tryCall(m_device, Remote::deviceInterface, "CancelPairing");
}

void PhoneUser::type(const QString& passkey)
{
    QDBusConnection::systemBus().send(m_typing.createReply(passkey.toUInt()));
    m_typing = QDBusMessage();
}

void PhoneUser::Cancel()
{
    m_asked << "Cancel";
}

void PhoneUser::RequestAuthorization(const QDBusObjectPath&)
{
    m_asked << "RequestAuthorization";
}

void PhoneUser::RequestConfirmation(const QDBusObjectPath&, uint passkey)
{
    m_asked << "RequestConfirmation";
    m_shown = digits(passkey);
}

void PhoneUser::DisplayPasskey(const QDBusObjectPath&, uint passkey, ushort)
{
    m_asked << "DisplayPasskey";
    m_asked.removeDuplicates();
    m_shown = digits(passkey);
}

uint PhoneUser::RequestPasskey(const QDBusObjectPath&)
{
    m_asked << "RequestPasskey";
    setDelayedReply(true);
    m_typing = message();
    return 0;
}
