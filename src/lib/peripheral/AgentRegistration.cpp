#include "AgentRegistration.h"

#include "DBusBluez.h"
#include "plim.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QPointer>

namespace {

/** Whether an error only says that BlueZ is not there. */
bool isAbsence(const QString& error)
{
    return error == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown") ||
           error == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner");
}

} // namespace

plim::detail::AgentRegistration::AgentRegistration(const QString& path, const QString& capability)
    : m_path(path),
      m_capability(capability),
      m_watcher(new QDBusServiceWatcher(DBusBluezServiceName(), QDBusConnection::systemBus(),
                                        QDBusServiceWatcher::WatchForOwnerChange))
{
    plim::connect(m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
                  &AgentRegistration::on_ownerChanged);
}

plim::detail::AgentRegistration::~AgentRegistration()
{
    // It may be its signal that has led here.
    m_watcher->disconnect(this);
    m_watcher->deleteLater();
    if (!m_owner.isEmpty() && m_state != WaitingForBlueZ) {
        QDBusConnection::systemBus().send(message("UnregisterAgent"));
    }
}

void plim::detail::AgentRegistration::start()
{
    // Only BlueZ may call the agent. Who that is the answer of RegisterAgent does not say with every Qt:
    // service() of a reply may be the name that was called. So the unique name is called.
    QDBusMessage question = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetNameOwner"));
    question << DBusBluezServiceName();
    send(question, [this](const QDBusMessage& reply) { onOwner(reply); });
    setState(Pending);
}

void plim::detail::AgentRegistration::released()
{
    ++m_attempt; // Qt may deliver an earlier answer later
    setState(Refused, QStringLiteral("BlueZ has removed the agent"));
}

void plim::detail::AgentRegistration::on_ownerChanged(const QString& /*name*/, const QString& /*former*/,
                                                      const QString& owner)
{
    const int attempt = ++m_attempt;
    m_owner = owner;
    const QPointer<AgentRegistration> self(this);
    emit daemonChanged(QString());
    if (!self || attempt != m_attempt) {
        return; // in the event loop of a slot, the owner may change again
    }
    if (owner.isEmpty()) {
        setState(WaitingForBlueZ);
    } else {
        registerAgent();
    }
}

void plim::detail::AgentRegistration::onOwner(const QDBusMessage& reply)
{
    if (reply.type() == QDBusMessage::ReplyMessage) {
        m_owner = reply.arguments().value(0).toString();
        registerAgent();
    } else if (isAbsence(reply.errorName())) {
        setState(WaitingForBlueZ);
    } else {
        refuse(reply);
    }
}

void plim::detail::AgentRegistration::registerAgent()
{
    send(message("RegisterAgent") << m_capability,
         [this](const QDBusMessage& reply) { onRegistered(reply); });
    // Qt may deliver BlueZ's first question before this answer.
    emit daemonChanged(m_owner);
    setState(Pending);
}

void plim::detail::AgentRegistration::onRegistered(const QDBusMessage& reply)
{
    if (reply.type() == QDBusMessage::ReplyMessage) {
        send(message("RequestDefaultAgent"), [this](const QDBusMessage& answer) { onDefault(answer); });
    } else if (isAbsence(reply.errorName())) {
        setState(WaitingForBlueZ);
    } else {
        refuse(reply);
    }
}

void plim::detail::AgentRegistration::onDefault(const QDBusMessage& reply)
{
    if (reply.type() == QDBusMessage::ReplyMessage) {
        PLIM_LOG(bleLogger(), INFO, Q_FUNC_INFO, "Pairing agent is the default one: " << m_capability);
        setState(Registered);
    } else {
        refuse(reply);
    }
}

/** Calls next with the reply, unless another attempt has begun meanwhile. */
template <typename Next>
void plim::detail::AgentRegistration::send(const QDBusMessage& question, const Next& next)
{
    const int attempt = ++m_attempt;
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(question), this);
    plim::connect(watcher, &QDBusPendingCallWatcher::finished, this,
                  [this, attempt, next](QDBusPendingCallWatcher* finished) {
                      finished->deleteLater();
                      if (attempt == m_attempt) {
                          next(finished->reply());
                      }
                  });
}

QDBusMessage plim::detail::AgentRegistration::message(const char* method) const
{
    QDBusMessage question = QDBusMessage::createMethodCall(m_owner, QStringLiteral("/org/bluez"),
                                                           QStringLiteral("org.bluez.AgentManager1"),
                                                           QString::fromLatin1(method));
    question << QVariant::fromValue(QDBusObjectPath(m_path));
    return question;
}

void plim::detail::AgentRegistration::refuse(const QDBusMessage& reply)
{
    const QString error = reply.errorName() + QStringLiteral(": ") + reply.errorMessage();
    PLIM_LOG(bleLogger(), ERROR, Q_FUNC_INFO, "Pairing agent refused: " << error);
    setState(Refused, error);
}

void plim::detail::AgentRegistration::setState(State state, const QString& error)
{
    if (m_state != state || m_error != error) {
        m_state = state;
        m_error = error;
        emit stateChanged();
    }
}
