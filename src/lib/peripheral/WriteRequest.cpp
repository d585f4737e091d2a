#include "WriteRequest.h"

#include "OwnerThread.h"
#include "PendingWrite.h"

plim::Central plim::WriteRequest::central() const
{
    return m_call ? m_call->central() : Central();
}

QByteArray plim::WriteRequest::value() const
{
    return m_call ? m_call->value() : QByteArray();
}

int plim::WriteRequest::offset() const
{
    return m_call ? m_call->offset() : 0;
}

int plim::WriteRequest::mtu() const
{
    return m_call ? m_call->mtu() : 0;
}

QString plim::WriteRequest::link() const
{
    return m_call ? m_call->link() : QString();
}

bool plim::WriteRequest::isAcknowledged() const
{
    return m_call && !m_call->wantsReply();
}

bool plim::WriteRequest::isAnswered() const
{
    return !m_call || m_call->isClaimed();
}

void plim::WriteRequest::accept(Notification notification) const
{
    if (!m_call || !m_call->claim()) {
        return;
    }
    // A copy of the pointer: a slot of valueChanged() may delete this object.
    m_call->owner()->run([call = m_call, notification] {
        call->store()(notification == Notify);
        call->succeed();
    });
}

void plim::WriteRequest::reject(const AttError& error) const
{
    if (m_call && m_call->claim()) {
        m_call->fail(error);
    }
}
