#include "OwnerThread.h"

#include <QMutexLocker>
#include <QObject>
#include <QThread>

void plim::detail::OwnerThread::end()
{
    const QMutexLocker locker(&m_mutex);
    m_owner = nullptr;
}

void plim::detail::OwnerThread::run(const std::function<void()>& function)
{
    {
        const QMutexLocker locker(&m_mutex);
        if (!m_owner) {
            return;
        }
        if (m_owner->thread() != QThread::currentThread()) {
            // Under the lock, so that the owner cannot be deleted meanwhile.
            QMetaObject::invokeMethod(m_owner, function, Qt::QueuedConnection);
            return;
        }
    }
    // Without the lock, since the function may delete the owner.
    function();
}
