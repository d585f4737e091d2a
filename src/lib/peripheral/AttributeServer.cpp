#include "AttributeServer.h"

#include "OwnerThread.h"
#include "plimlog.h"

#include <QDBusContext>

#include <exception>

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

/** Bytes in the longest attribute value that ATT knows. */
constexpr int maximumSize = 512;

/** Handlers that may run inside each other, which those that run an event loop do: a process has one stack.
 */
constexpr int maximumNesting = 32;
thread_local int nesting = 0;

/** A handler that runs. */
struct Nested
{
    Nested() { ++nesting; }
    ~Nested() { --nesting; }
    Q_DISABLE_COPY(Nested)
};

/** Calls a handler, which may replace itself and delete the attribute. */
template <typename Request>
void callHandler(const std::function<void(Request)>& handler, const Request& request, const QString& path)
{
    if (nesting >= maximumNesting) {
        PLIM_LOG(logger, ERROR, Q_FUNC_INFO, "Handler of " << path << " not called: too many are running");
        request.reject(plim::AttError::UnlikelyError);
        return;
    }
    const Nested nested;
    // What is used during and after the call is the attribute's no longer.
    const std::function<void(Request)> ownHandler(handler);
    const QString ownPath(path); // NOLINT(performance-unnecessary-copy-initialization)
    try {
        ownHandler(request);
    } catch (const std::exception& error) {
        PLIM_LOG(logger, ERROR, Q_FUNC_INFO, "Handler of " << ownPath << " failed: " << error.what());
    } catch (...) {
        PLIM_LOG(logger, ERROR, Q_FUNC_INFO, "Handler of " << ownPath << " failed");
    }
}

} // namespace

plim::detail::AttributeServer::AttributeServer(QObject* owner, const Access& access, const QString& path)
    : m_owner(std::make_shared<OwnerThread>(owner)), m_access(access), m_path(path)
{
}

plim::detail::AttributeServer::~AttributeServer()
{
    m_owner->end();
}

void plim::detail::AttributeServer::setReadHandler(const ReadHandler& handler)
{
    ReadHandler(handler).swap(m_readHandler);
}

void plim::detail::AttributeServer::setWriteHandler(const WriteHandler& handler)
{
    WriteHandler(handler).swap(m_writeHandler);
}

bool plim::detail::AttributeServer::read(const QDBusContext& context, const QVariantMap& options)
{
    if (!context.calledFromDBus()) {
        return false;
    }
    if (!m_access.allowsRead()) {
        refuse(context, AttError::ReadNotPermitted);
        return true;
    }
    if (!m_readHandler) {
        return false;
    }
    context.setDelayedReply(true);
    ReadRequest request(
        std::make_shared<PendingCall>(context.message(), context.connection(), options, m_path));
    m_pending.add(request.m_call);
    callHandler(m_readHandler, request, m_path);
    return true;
}

bool plim::detail::AttributeServer::write(const QDBusContext& context, const QByteArray& value,
                                          const QVariantMap& options, const PendingWrite::Store& store)
{
    if (!context.calledFromDBus()) {
        return false;
    }
    if (!m_access.allowsWrite()) {
        refuse(context, AttError::WriteNotPermitted);
        return true;
    }
    if (!m_writeHandler) {
        return false;
    }
    context.setDelayedReply(true);
    const auto call = std::make_shared<PendingWrite>(context.message(), context.connection(), options, m_path,
                                                     value, m_owner, store);
    WriteRequest request(call);
    if (call->offset() < 0 || call->offset() > maximumSize) {
        request.reject(AttError::InvalidOffset);
    } else if (call->offset() + value.size() > maximumSize) {
        request.reject(AttError::InvalidAttributeValueLength);
    } else {
        m_pending.add(call);
        callHandler(m_writeHandler, request, m_path);
    }
    return true;
}

void plim::detail::AttributeServer::refuse(const QDBusContext& context, const AttError& error) const
{
    PLIM_LOG(logger, DEBUG, Q_FUNC_INFO,
             context.message().member() << " of " << m_path << " refused: " << error.text());
    context.setDelayedReply(true);
    if (context.message().isReplyRequired()) {
        context.connection().send(context.message().createErrorReply(error.dbusName(), error.dbusText()));
    }
}
