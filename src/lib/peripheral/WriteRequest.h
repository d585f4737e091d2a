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
 * One write that waits for its answer. Copies, answers and their limits are those of a ReadRequest. Of a
 * write that nobody wants an answer to, the answer decides only whether the value is stored.
 */
class PLIM_PERIPHERAL_EXPORT WriteRequest
{
public:
    /** Whether a value that a central wrote is sent to the subscribers, the writer among them. */
    enum Notification
    {
        DoNotNotify, ///< it is not
        Notify       ///< it is, if somebody has subscribed
    };

    /** No request: it has been answered already. */
    WriteRequest() = default;

    /** Who writes; null where BlueZ did not say. */
    Central central() const;

    /** What is written. */
    QByteArray value() const;

    /** Where in the attribute's value it goes, in bytes from the start: the value is cut there and the bytes
     * are appended. */
    int offset() const;

    /** The longest packet of the link in bytes; 0 where BlueZ did not say. */
    int mtu() const;

    /** BlueZ's name of the link's kind, "LE" or "BR/EDR"; empty where it did not say. */
    QString link() const;

    /** Whether an answer would do nothing any more. */
    bool isAnswered() const;

    /**
     * Stores the value, emits the attribute's valueChanged(), and answers.
     *
     * On the attribute's thread all of this has happened when it returns. From another thread it happens as
     * soon as the attribute's event loop gets to it.
     *
     * @param notification  whether subscribers hear of it; of a descriptor they never do
     */
    void accept(Notification notification = DoNotNotify) const;

    /** Refuses; the attribute's value stays as it is. */
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
