#pragma once

#include "PendingCall.h"

#include <functional>
#include <memory>

namespace plim {
namespace detail {

class OwnerThread;

/** A write that waits for its answer. Internal: not installed. */
class PendingWrite : public PendingCall
{
public:
    /** Stores an accepted value. Runs on the attribute's thread. @param notify  see WriteRequest::accept() */
    using Store = std::function<void(bool notify)>;

    PendingWrite(const QDBusMessage& call, const QDBusConnection& connection, const QVariantMap& options,
                 const QString& attribute, const QByteArray& value, const std::shared_ptr<OwnerThread>& owner,
                 const Store& store)
        : PendingCall(call, connection, options, attribute), m_value(value), m_owner(owner), m_store(store)
    {
    }

    QByteArray value() const { return m_value; }
    const std::shared_ptr<OwnerThread>& owner() const { return m_owner; }
    const Store& store() const { return m_store; }

private:
    const QByteArray m_value;
    const std::shared_ptr<OwnerThread> m_owner;
    const Store m_store;
};

} // namespace detail
} // namespace plim
