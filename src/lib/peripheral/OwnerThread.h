#pragma once

#include <QMutex>

#include <functional>

class QObject;

namespace plim {
namespace detail {

/** Reaches an object from any thread for as long as it lives. Internal: not installed. */
class OwnerThread
{
public:
    explicit OwnerThread(QObject* owner) : m_owner(owner) {}

    /** To be called in the owner's destructor: nothing is run any more. */
    void end();

    /** Runs a function on the owner's thread: at once where that is the calling one, otherwise when its event
     * loop gets there. Not at all once the owner has ended. */
    void run(const std::function<void()>& function);

private:
    QMutex m_mutex;
    QObject* m_owner;
};

} // namespace detail
} // namespace plim
