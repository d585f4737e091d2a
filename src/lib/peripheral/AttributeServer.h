#pragma once

#include "Access.h"
#include "PendingCalls.h"
#include "PendingWrite.h"
#include "ReadRequest.h"
#include "WriteRequest.h"

#include <QString>
#include <QVariantMap>

#include <memory>

class QDBusConnection;
class QDBusContext;
class QDBusMessage;
class QObject;

namespace plim {
namespace detail {

/** Handles the calls of BlueZ for a characteristic or a descriptor: it rejects what the access does not
 * allow, and passes the rest to the handlers. Internal: not installed. */
class AttributeServer
{
public:
    /**
     * @param owner  the attribute
     * @param path   the attribute's object path, for log lines
     */
    AttributeServer(QObject* owner, const Access& access, const QString& path);

    /** Rejects the requests that are still open. */
    ~AttributeServer();
    Q_DISABLE_COPY(AttributeServer)

    const Access& access() const { return m_access; }
    void setReadHandler(const ReadHandler& handler);
    void setWriteHandler(const WriteHandler& handler);
    bool hasWriteHandler() const { return bool(m_writeHandler); }

    /**
     * Handles a call of the owner's slot ReadValue. The handler may delete the owner.
     * @param context  the owner, which knows the call
     * @return whether the call was handled; if not, the base class has to answer it
     */
    bool read(const QDBusContext& context, const QVariantMap& options);
    /** The same for WriteValue. @param store  stores the value if the write is accepted */
    bool write(const QDBusContext& context, const QByteArray& value, const QVariantMap& options,
               const PendingWrite::Store& store);
    /** The same for a write that came without a call, and that BlueZ has acknowledged already. Its central
     * may write, which BlueZ has checked. */
    bool writeAcknowledged(const QByteArray& value, const QVariantMap& options,
                           const PendingWrite::Store& store);

    /** Passes on what a call says of its link. @return false if a slot has deleted the attribute, in which
     * case the call was refused */
    bool note(const QDBusContext& context, const QVariantMap& options) const;

    /** Answers a call with an error, instead of what its slot returns. */
    void refuse(const QDBusContext& context, const AttError& error) const;
    /** The same without the attribute. @param path  the attribute's object path, for a log line */
    static void refuse(const QDBusMessage& call, const QDBusConnection& connection, const QString& path,
                       const AttError& error);

private:
    void handle(const std::shared_ptr<PendingWrite>& call);

    QObject* const m_attribute;
    const std::shared_ptr<OwnerThread> m_owner;
    const Access m_access;
    const QString m_path;
    ReadHandler m_readHandler;
    WriteHandler m_writeHandler;
    PendingCalls m_pending;
};

} // namespace detail
} // namespace plim
