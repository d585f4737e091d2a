#pragma once

#include <QHash>
#include <QObject>
#include <QString>

/**
 * The paths of the held objects that do not live on the manager's thread. Signals of these objects arrive
 * through the event loop. By then, the object may have been removed or deleted, so only its recorded path may
 * be used. Internal: not installed.
 */
class OtherThreads
{
public:
    /** @param manager  the owner of this object; removals are queued on its thread */
    explicit OtherThreads(QObject* manager) : m_manager(manager) {}

    /** Records an object's path if it lives on another thread, and lets Qt queue its signals. */
    template <typename Object>
    void add(const Object* object)
    {
        if (object->thread() == m_manager->thread()) {
            m_objects.remove(object);
        } else {
            qRegisterMetaType<const Object*>();
            m_objects.insert(object, {object->dbusPath(), false});
        }
    }

    /** Marks the object as removed, and forgets it when the signals that it has queued have arrived. */
    void removeLater(const QObject* object);

    /** Forgets an object that has been deleted. */
    void forget(const QObject* object) { m_objects.remove(object); }

    /** Whether the object was removed, so that its signals have to be ignored. */
    bool isRemoved(const QObject* object) const { return m_objects.value(object).removed; }

    /** The object's path. An object that lives on another thread is not dereferenced. */
    template <typename Object>
    QString pathOf(const Object* object) const
    {
        const auto entry = m_objects.constFind(object);
        return entry == m_objects.constEnd() ? object->dbusPath() : entry->path;
    }

private:
    struct Entry
    {
        QString path;
        bool removed = false;
    };

    QObject* const m_manager;
    QHash<const QObject*, Entry> m_objects;
};
