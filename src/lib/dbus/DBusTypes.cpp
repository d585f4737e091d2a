#include "DBusTypes.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>

void registerDBusTypes()
{
    // Qt 6 knows its own types by name only when something has registered them.
    qRegisterMetaType<QDBusArgument>();
    qRegisterMetaType<QDBusObjectPath>();
    qRegisterMetaType<QDBusSignature>();
    qRegisterMetaType<QDBusUnixFileDescriptor>();
    qRegisterMetaType<QDBusVariant>();
    qRegisterMetaType<DBusInterfaceList>("DBusInterfaceList");
    qRegisterMetaType<DBusManagedObjectList>("DBusManagedObjectList");
    qDBusRegisterMetaType<DBusInterfaceList>();
    qDBusRegisterMetaType<DBusManagedObjectList>();
}
