#pragma once

#include "DBusTypes.h"

#include <QStringList>

namespace simulator {

/** The objects that org.bluez shows, with their interfaces and properties. */
class ObjectTree
{
public:
    /** Adds interfaces to a path, with the properties that such interfaces have at first; returns these. */
    DBusInterfaceList add(const QString& path, const QStringList& interfaces);

    /** Removes interfaces from a path, and the path with its last one. */
    void remove(const QString& path, const QStringList& interfaces);

    bool contains(const QString& path, const QString& interface) const;

    const DBusManagedObjectList& objects() const { return m_objects; }

    /** The interfaces at a path; empty for a path that only leads to others, or to none. */
    DBusInterfaceList interfaces(const QString& path) const { return m_objects.value(QDBusObjectPath(path)); }

    /** False when there is no such interface at the path. */
    bool setProperty(const QString& path, const QString& interface, const QString& name,
                     const QVariant& value);

    /** The introspection text of a path, empty when nothing is there nor below. */
    QString introspection(const QString& path) const;

private:
    QStringList children(const QString& path) const;

    DBusManagedObjectList m_objects;
};

} // namespace simulator
