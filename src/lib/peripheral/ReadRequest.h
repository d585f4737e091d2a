#pragma once

#include "AttError.h"
#include "Central.h"
#include "PlimPeripheralExport.h"

#include <QByteArray>
#include <QMetaType>
#include <QString>

#include <functional>
#include <memory>

namespace plim {

namespace detail {
class AttributeServer;
class PendingCall;
} // namespace detail

/**
 * One read that waits for its answer. All copies are the same request: keep one to answer later.
 *
 * Answer it once with accept() or reject(), at once or later, from any thread. Later answers are ignored.
 * BlueZ waits for 5 s. If there is no answer by then, or if the last copy is destroyed without one, the
 * request is rejected with AttError::UnlikelyError, and a line is logged at WARN. When the attribute is
 * deleted, its open requests are rejected with the same error, but nothing is logged. An answer that comes
 * too late does nothing, even if the attribute, the central or BlueZ no longer exists.
 */
class PLIM_PERIPHERAL_EXPORT ReadRequest
{
public:
    /** No request. It counts as answered. */
    ReadRequest() = default;

    /** The central that reads; null if BlueZ did not say. */
    Central central() const;

    /**
     * Where the read begins, in bytes from the start of the value. A value that is longer than one packet is
     * read in parts, and each part is a request of its own.
     */
    int offset() const;

    /** The longest packet of the link in bytes; 0 if BlueZ did not say. */
    int mtu() const;

    /** BlueZ's name of the link's type, "LE" or "BR/EDR"; empty if it did not say. */
    QString link() const;

    /** Whether it has an answer already. */
    bool isAnswered() const;

    /**
     * Answers with a value. The central gets the part from offset() on.
     *
     * The stored value of the attribute, which notifications carry, stays as it is. A value has at most 512
     * bytes: the rest is not sent, and a line is logged at WARN. If the value ends before offset(), the
     * answer is AttError::InvalidOffset.
     *
     * @param value  the whole value, even if offset() is not 0. It has to be the value that the part before
     * came from; otherwise the central combines parts of different values.
     */
    void accept(const QByteArray& value) const;

    /** Rejects the request. */
    void reject(const AttError& error) const;

private:
    friend class detail::AttributeServer;
    explicit ReadRequest(const std::shared_ptr<detail::PendingCall>& call) : m_call(call) {}

    std::shared_ptr<detail::PendingCall> m_call;
};

/** Answers a read, now or later. */
using ReadHandler = std::function<void(ReadRequest)>;

} // namespace plim

Q_DECLARE_METATYPE(plim::ReadRequest)
