#include "DBusTypes.h"

#include <QDBusMetaType>

void registerDBusTypes()
{
    qRegisterMetaType<DBusInterfaceList>("DBusInterfaceList");
    qRegisterMetaType<DBusManagedObjectList>("DBusManagedObjectList");
    qDBusRegisterMetaType<DBusInterfaceList>();
    qDBusRegisterMetaType<DBusManagedObjectList>();
}
