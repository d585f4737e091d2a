#include "ReadRequest.h"

#include "AttLimits.h"
#include "PendingCall.h"
#include "plimlog.h"

plim::Central plim::ReadRequest::central() const
{
    return m_call ? m_call->central() : Central();
}

int plim::ReadRequest::offset() const
{
    return m_call ? m_call->offset() : 0;
}

int plim::ReadRequest::mtu() const
{
    return m_call ? m_call->mtu() : 0;
}

QString plim::ReadRequest::link() const
{
    return m_call ? m_call->link() : QString();
}

bool plim::ReadRequest::isAnswered() const
{
    return !m_call || m_call->isClaimed();
}

void plim::ReadRequest::accept(const QByteArray& value) const
{
    if (!m_call || !m_call->claim()) {
        return;
    }
    if (value.size() > detail::maximumAttributeSize) {
        PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
                 "Value of " << m_call->attribute() << " is longer than an attribute can be: " << value.size()
                             << " bytes");
    }
    const QByteArray sent = value.left(detail::maximumAttributeSize);
    if (m_call->offset() < 0 || m_call->offset() > sent.size()) {
        m_call->fail(AttError::InvalidOffset);
    } else {
        m_call->succeed({sent.mid(m_call->offset())});
    }
}

void plim::ReadRequest::reject(const AttError& error) const
{
    if (m_call && m_call->claim()) {
        m_call->fail(error);
    }
}
