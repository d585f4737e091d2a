#pragma once

#include <QDeadlineTimer>
#include <QTimer>

#include <deque>
#include <memory>

namespace plim {
namespace detail {

class PendingCall;

/** Sees to it that no call waits longer than BlueZ does, or longer than its attribute lives. Internal: not
 * installed. */
class PendingCalls
{
public:
    PendingCalls();

    /** Rejects those that are still open. */
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
