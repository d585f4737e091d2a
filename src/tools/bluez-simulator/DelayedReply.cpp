#include "DelayedReply.h"

#include "Names.h"

namespace simulator {

DelayedReply::DelayedReply(const QDBusConnection& connection, const QDBusMessage& call)
    : m_connection(connection), m_call(call)
{
}

DelayedReply::~DelayedReply()
{
    if (!m_isSent) {
        fail(Names::error("Abandoned"), QStringLiteral("org.bluez left the bus before the answer was there"));
    }
}

void DelayedReply::send(const QVariantList& values)
{
    m_isSent = true;
    m_connection.send(m_call.createReply(values));
}

void DelayedReply::fail(const QString& errorName, const QString& errorMessage)
{
    m_isSent = true;
    m_connection.send(m_call.createErrorReply(errorName, errorMessage));
}

} // namespace simulator
