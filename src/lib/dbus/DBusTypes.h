#pragma once

#include "PlimDBusExport.h"

#include <QDBusObjectPath>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

/** Interface name to that interface's properties; on D-Bus a{sa{sv}}. */
using DBusInterfaceList = QMap<QString, QVariantMap>;

/** Object path to that object's interfaces; on D-Bus a{oa{sa{sv}}}. */
using DBusManagedObjectList = QMap<QDBusObjectPath, DBusInterfaceList>;

Q_DECLARE_METATYPE(DBusInterfaceList)
Q_DECLARE_METATYPE(DBusManagedObjectList)

/**
 * Registers DBusInterfaceList and DBusManagedObjectList with Qt's meta-type system and with Qt D-Bus.
 * May be called any number of times, from any thread.
 */
PLIM_DBUS_EXPORT void registerDBusTypes();
