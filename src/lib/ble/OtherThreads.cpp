#include "OtherThreads.h"

void OtherThreads::removeLater(const QObject* object)
{
    const auto entry = m_objects.find(object);
    if (entry == m_objects.end()) {
        return;
    }
    entry->removed = true;
    QMetaObject::invokeMethod(
        m_manager,
        [this, object] {
            // It may have been added again.
            if (isRemoved(object)) {
                m_objects.remove(object);
            }
        },
        Qt::QueuedConnection);
}
