#pragma once

#include "Access.h"
#include "PendingCalls.h"
#include "PendingWrite.h"
#include "ReadRequest.h"
#include "WriteRequest.h"

#include <QString>
#include <QVariantMap>

#include <memory>

class QDBusContext;
class QObject;

namespace plim {
namespace detail {

/** What characteristics and descriptors share: it refuses what the access does not allow, and hands the rest
 * to the handlers. Internal: not installed. */
class AttributeServer
{
public:
    /** @param path  the attribute's object path, for log lines */
    AttributeServer(QObject* owner, const Access& access, const QString& path);

    /** Rejects what still waits. */
    ~AttributeServer();
    Q_DISABLE_COPY(AttributeServer)

    const Access& access() const { return m_access; }
    void setReadHandler(const ReadHandler& handler);
    void setWriteHandler(const WriteHandler& handler);
    bool hasWriteHandler() const { return bool(m_writeHandler); }

    /**
     * Deals with the call that is being made of the owner. It may end the owner.
     * @return whether it did; otherwise it is the base class's to answer
     */
    bool read(const QDBusContext& context, const QVariantMap& options);
    /** The same of a write. @param store  what accepting does */
    bool write(const QDBusContext& context, const QByteArray& value, const QVariantMap& options,
               const PendingWrite::Store& store);

    /** Answers a call with an error, in place of what its slot returns. */
    void refuse(const QDBusContext& context, const AttError& error) const;

private:
    const std::shared_ptr<OwnerThread> m_owner;
    const Access m_access;
    const QString m_path;
    ReadHandler m_readHandler;
    WriteHandler m_writeHandler;
    PendingCalls m_pending;
};

} // namespace detail
} // namespace plim
