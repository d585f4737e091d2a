#include "PendingCalls.h"

#include "PendingCall.h"

#include <algorithm>

namespace {

/** How long BlueZ waits for an answer. */
constexpr int patienceMs = 5000;

} // namespace

plim::detail::PendingCalls::PendingCalls()
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { giveUp(); });
}

plim::detail::PendingCalls::~PendingCalls()
{
    for (const Entry& entry : m_entries) {
        if (const auto call = entry.call.lock()) {
            call->abandon();
        }
    }
}

void plim::detail::PendingCalls::add(const std::shared_ptr<PendingCall>& call)
{
    tidy();
    m_entries.push_back({QDeadlineTimer(patienceMs, Qt::PreciseTimer), call});
    if (!m_timer.isActive()) {
        m_timer.start(patienceMs);
    }
}

/** Removes the calls at the front that have an answer. */
void plim::detail::PendingCalls::tidy()
{
    while (!m_entries.empty()) {
        const auto first = m_entries.front().call.lock();
        if (first && !first->isClaimed()) {
            return;
        }
        m_entries.pop_front();
    }
}

void plim::detail::PendingCalls::giveUp()
{
    while (!m_entries.empty() && m_entries.front().deadline.hasExpired()) {
        const auto call = m_entries.front().call.lock();
        m_entries.pop_front();
        if (call) {
            call->abandon("not answered within 5 s");
        }
    }
    tidy();
    if (!m_entries.empty()) {
        m_timer.start(int(std::max<qint64>(1, m_entries.front().deadline.remainingTime())));
    }
}
