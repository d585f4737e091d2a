#pragma once

#include <QMutex>

#include <functional>

class QObject;

namespace plim {
namespace detail {

/** Runs functions on the thread of an object, as long as the object exists. Internal: not installed. */
class OwnerThread
{
public:
    explicit OwnerThread(QObject* owner) : m_owner(owner) {}

    /** Call it in the owner's destructor. After that, no function is run. */
    void end();

    /** Runs a function on the owner's thread: at once if that is the calling thread, otherwise from its event
     * loop. After end() it does nothing. May be called from any thread. */
    void run(const std::function<void()>& function);

private:
    QMutex m_mutex;
    QObject* m_owner;
};

} // namespace detail
} // namespace plim
