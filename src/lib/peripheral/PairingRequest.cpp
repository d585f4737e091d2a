#include "PairingRequest.h"

#include "PendingPairing.h"

plim::PairingRequest::Kind plim::PairingRequest::kind() const
{
    return m_call ? m_call->question().kind : Authorize;
}

plim::Central plim::PairingRequest::central() const
{
    return m_call ? m_call->question().central : Central();
}

QString plim::PairingRequest::passkey() const
{
    return m_call ? m_call->question().passkey : QString();
}

QString plim::PairingRequest::service() const
{
    return m_call ? m_call->question().service : QString();
}

bool plim::PairingRequest::isAnswered() const
{
    return !m_call || m_call->isAnswered();
}

void plim::PairingRequest::accept() const
{
    if (m_call) {
        m_call->accept();
    }
}

bool plim::PairingRequest::accept(const QString& passkey) const
{
    return m_call && m_call->accept(passkey);
}

void plim::PairingRequest::reject() const
{
    if (m_call) {
        m_call->reject();
    }
}
