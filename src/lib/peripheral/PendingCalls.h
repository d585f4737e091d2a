#pragma once

#include <QDeadlineTimer>
#include <QTimer>

#include <deque>
#include <memory>

namespace plim {
namespace detail {

class PendingCall;

/** The open calls of one attribute. Rejects each of them when BlueZ stops waiting for it, or when the
 * attribute is deleted. Internal: not installed. */
class PendingCalls
{
public:
    PendingCalls();

    /** Rejects the calls that are still open. */
    ~PendingCalls();
    Q_DISABLE_COPY(PendingCalls)

    void add(const std::shared_ptr<PendingCall>& call);

private:
    struct Entry
    {
        QDeadlineTimer deadline;
        std::weak_ptr<PendingCall> call;
    };

    void tidy();
    void giveUp();

    std::deque<Entry> m_entries; ///< in the order of their deadlines
    QTimer m_timer;
};

} // namespace detail
} // namespace plim
