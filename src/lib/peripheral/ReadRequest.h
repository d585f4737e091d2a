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
 * One read that waits for its answer. Copies are the same request: keep one to answer later.
 *
 * It is answered once, by accept() or reject(), at once or later, from any thread; what comes after the first
 * answer is ignored. BlueZ waits for 5 s. A request that has no answer by then, or whose last copy goes
 * without one, is rejected with AttError::UnlikelyError and a line at WARN. When the attribute is deleted,
 * its open requests are rejected the same way, without a line. Answers that come too late do nothing, whoever
 * has gone meanwhile: the attribute, the central or BlueZ.
 */
class PLIM_PERIPHERAL_EXPORT ReadRequest
{
public:
    /** No request: it has been answered already. */
    ReadRequest() = default;

    /** Who reads; null where BlueZ did not say. */
    Central central() const;

    /**
     * Where the central goes on reading, in bytes from the start of the value. A value that is longer than
     * one packet is read in parts, and each part is a request of its own.
     */
    int offset() const;

    /** The longest packet of the link in bytes; 0 where BlueZ did not say. */
    int mtu() const;

    /** BlueZ's name of the link's kind, "LE" or "BR/EDR"; empty where it did not say. */
    QString link() const;

    /** Whether an answer would do nothing any more. */
    bool isAnswered() const;

    /**
     * Answers with a value, of which the central gets what follows offset().
     *
     * The attribute's own value, which notifications carry, stays as it is. An attribute's value ends at 512
     * bytes; what follows is not sent, which is logged at WARN. A value that ends before offset() is answered
     * with AttError::InvalidOffset.
     *
     * @param value  all of it, also where offset() is not 0; the same as for the part before, or the central
     * puts parts together that do not belong together
     */
    void accept(const QByteArray& value) const;

    /** Refuses. */
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
