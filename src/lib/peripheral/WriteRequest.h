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
class PendingWrite;
} // namespace detail

/**
 * One write that waits for its answer. What ReadRequest says about copies, answers and time limits is true
 * here, too. For a write without a response, the answer only decides whether the value is stored.
 */
class PLIM_PERIPHERAL_EXPORT WriteRequest
{
public:
    /** Whether the subscribers, and the writer among them, are notified of a value that a central wrote. */
    enum Notification
    {
        DoNotNotify, ///< they are not
        Notify       ///< they are
    };

    /** No request. It counts as answered. */
    WriteRequest() = default;

    /** The central that writes; null if BlueZ did not say. */
    Central central() const;

    /** The bytes that the central writes. */
    QByteArray value() const;

    /** The position in the attribute's value, in bytes from the start: the value is cut there, and the bytes
     * are appended. */
    int offset() const;

    /** The longest packet of the link in bytes; 0 if BlueZ did not say. */
    int mtu() const;

    /** BlueZ's name of the link's type, "LE" or "BR/EDR"; empty if it did not say. */
    QString link() const;

    /**
     * Whether the central has been told already that the write succeeded, or is not told at all: so it is
     * with each write if the access allows writes without a response.
     */
    bool isAcknowledged() const;

    /** Whether it has an answer already. */
    bool isAnswered() const;

    /**
     * Stores the value, emits the attribute's valueChanged(), and answers.
     *
     * If it is called on the attribute's thread, all this has happened when it returns. If it is called on
     * another thread, the event loop of the attribute's thread does it later.
     *
     * @param notification  whether subscribers are notified; of descriptors they never are
     */
    void accept(Notification notification = DoNotNotify) const;

    /** Rejects the request; the attribute's value stays as it is. */
    void reject(const AttError& error) const;

private:
    friend class detail::AttributeServer;
    explicit WriteRequest(const std::shared_ptr<detail::PendingWrite>& call) : m_call(call) {}

    std::shared_ptr<detail::PendingWrite> m_call;
};

/** Answers a write, now or later. */
using WriteHandler = std::function<void(WriteRequest)>;

} // namespace plim

Q_DECLARE_METATYPE(plim::WriteRequest)
