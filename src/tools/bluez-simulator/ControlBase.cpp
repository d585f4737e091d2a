#include "ControlBase.h"

#include "Names.h"
#include "Simulator.h"

namespace simulator {

DelayedReplyPtr ControlBase::later()
{
    setDelayedReply(true);
    return std::make_shared<DelayedReply>(connection(), message());
}

void ControlBase::require(const QString& error)
{
    if (!error.isEmpty()) {
        sendErrorReply(Names::error("InvalidArgument"), error);
    }
}

Daemon* ControlBase::presentDaemon()
{
    if (!m_simulator.daemon()) {
        sendErrorReply(Names::error("Absent"), QStringLiteral("org.bluez is not on the bus"));
    }
    return m_simulator.daemon();
}

} // namespace simulator
