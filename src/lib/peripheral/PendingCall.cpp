#include "PendingCall.h"

#include "plimlog.h"

#include <QDBusObjectPath>

plim::detail::PendingCall::PendingCall(const QDBusMessage& call, const QDBusConnection& connection,
                                       const QVariantMap& options, const QString& attribute)
    : m_call(call),
      m_connection(connection),
      m_wantsReply(call.type() == QDBusMessage::MethodCallMessage && call.isReplyRequired()),
      m_attribute(attribute),
      m_central(options.value(QStringLiteral("device")).value<QDBusObjectPath>().path()),
      m_offset(options.value(QStringLiteral("offset")).toInt()),
      m_mtu(options.value(QStringLiteral("mtu")).toInt()),
      m_link(options.value(QStringLiteral("link")).toString())
{
}

plim::detail::PendingCall::~PendingCall()
{
    if (claim()) {
        PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
                 "Request for " << m_attribute << " dropped without an answer");
    }
    if (!m_sent) {
        fail(AttError::UnlikelyError);
    }
}

void plim::detail::PendingCall::succeed(const QVariantList& results)
{
    send(m_call.createReply(results));
}

void plim::detail::PendingCall::fail(const AttError& error)
{
    send(m_call.createErrorReply(error.dbusName(), error.dbusText()));
}

void plim::detail::PendingCall::abandon()
{
    if (claim()) {
        fail(AttError::UnlikelyError);
    }
}

void plim::detail::PendingCall::abandon(const char* reason)
{
    if (claim()) {
        PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO, "Request for " << m_attribute << ' ' << reason);
        fail(AttError::UnlikelyError);
    }
}

void plim::detail::PendingCall::send(const QDBusMessage& answer)
{
    m_sent = true;
    if (m_wantsReply) {
        m_connection.send(answer);
    }
}
