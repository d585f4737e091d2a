#include "AttributeServer.h"

#include "AttLimits.h"
#include "OwnerThread.h"
#include "RequestWitness.h"
#include "UserCallback.h"
#include "plimlog.h"

#include <QDBusContext>
#include <QPointer>

namespace {

/** Calls a handler, which may replace itself and delete the attribute. */
template <typename Request>
void callHandler(const std::function<void(Request)>& handler, const Request& request, const QString& path)
{
    // Copies, since the handler may delete the attribute, and with it what the references refer to.
    const std::function<void(Request)> ownHandler(handler);
    const QString ownPath(path); // NOLINT(performance-unnecessary-copy-initialization)
    const auto outcome =
        UserCallback::call("Handler", ownPath, [&ownHandler, &request] { ownHandler(request); });
    if (outcome == UserCallback::NotCalled) {
        request.reject(plim::AttError::UnlikelyError);
    }
}

} // namespace

plim::detail::AttributeServer::AttributeServer(QObject* owner, const Access& access, const QString& path)
    : m_attribute(owner), m_owner(std::make_shared<OwnerThread>(owner)), m_access(access), m_path(path)
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
    if (!note(context, options)) {
        return true;
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
    if (!note(context, options)) {
        return true;
    }
    if (!m_access.allowsWrite()) {
        refuse(context, AttError::WriteNotPermitted);
        return true;
    }
    if (!m_writeHandler) {
        return false;
    }
    context.setDelayedReply(true);
    handle(std::make_shared<PendingWrite>(context.message(), context.connection(), options, m_path, value,
                                          m_owner, store));
    return true;
}

bool plim::detail::AttributeServer::writeAcknowledged(const QByteArray& value, const QVariantMap& options,
                                                      const PendingWrite::Store& store)
{
    if (!m_writeHandler) {
        return false;
    }
    handle(std::make_shared<PendingWrite>(QDBusMessage(), QDBusConnection(QString()), options, m_path, value,
                                          m_owner, store));
    return true;
}

void plim::detail::AttributeServer::handle(const std::shared_ptr<PendingWrite>& call)
{
    WriteRequest request(call);
    if (call->offset() < 0 || call->offset() > maximumAttributeSize) {
        request.reject(AttError::InvalidOffset);
    } else if (call->offset() + call->value().size() > maximumAttributeSize) {
        request.reject(AttError::InvalidAttributeValueLength);
    } else {
        m_pending.add(call);
        callHandler(m_writeHandler, request, m_path);
    }
}

bool plim::detail::AttributeServer::note(const QDBusContext& context, const QVariantMap& options) const
{
    const QPointer<QObject> attribute = m_attribute;
    // Copies, since the attribute may end, and the call and the path with it.
    const QDBusMessage call(context.message()); // NOLINT(performance-unnecessary-copy-initialization)
    const QDBusConnection connection(context.connection());
    const QString path(m_path);
    RequestWitness::note(call, options);
    if (!attribute) {
        refuse(call, connection, path, AttError::UnlikelyError);
    }
    return !attribute.isNull();
}

void plim::detail::AttributeServer::refuse(const QDBusContext& context, const AttError& error) const
{
    refuse(context.message(), context.connection(), m_path, error);
}

void plim::detail::AttributeServer::refuse(const QDBusMessage& call, const QDBusConnection& connection,
                                           const QString& path, const AttError& error)
{
    call.setDelayedReply(true);
    PLIM_LOG(plim::bleLogger(), DEBUG, Q_FUNC_INFO,
             call.member() << " of " << path << " refused: " << error.text());
    if (call.isReplyRequired()) {
        connection.send(call.createErrorReply(error.dbusName(), error.dbusText()));
    }
}
