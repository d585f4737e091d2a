#pragma once

#include "DBusTypes.h"
#include "PlimBleExport.h"

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QMap>
#include <QMetaType>
#include <QVariantMap>

#include <iosfwd>

/** Advertising data: AD type to that structure's data. On D-Bus a{yv}, each value a variant that holds an ay.
 */
using DBusAdvData = QMap<unsigned char, QByteArray>;

/** Company identifier to manufacturer data. On D-Bus a{qv}, each value a variant that holds an ay. */
using DBusManufacturerData = QMap<unsigned short, QByteArray>;

Q_DECLARE_METATYPE(DBusAdvData)
Q_DECLARE_METATYPE(DBusManufacturerData)

// The operators stand beside the types: where they are out of sight when a type is registered with Qt D-Bus,
// Qt's own map template takes over and writes a{yay}.
//
// Reading adds to the target: entries that it held stay unless the message has the same key, and of two
// entries with the same key the later one wins. A value that is no byte array becomes what its variant
// converts to, or empty.

PLIM_BLE_EXPORT QDBusArgument& operator<<(QDBusArgument& argument,
                                          const QMap<unsigned char, QByteArray>& map);
PLIM_BLE_EXPORT const QDBusArgument& operator>>(const QDBusArgument& argument,
                                                QMap<unsigned char, QByteArray>& map);

PLIM_BLE_EXPORT QDBusArgument& operator<<(QDBusArgument& argument,
                                          const QMap<unsigned short, QByteArray>& map);
PLIM_BLE_EXPORT const QDBusArgument& operator>>(const QDBusArgument& argument,
                                                QMap<unsigned short, QByteArray>& map);

/** Object path to that object's properties; on D-Bus a{oa{sv}}. */
PLIM_BLE_EXPORT QDBusArgument& operator<<(QDBusArgument& argument,
                                          const QMap<QDBusObjectPath, QVariantMap>& map);
PLIM_BLE_EXPORT const QDBusArgument& operator>>(const QDBusArgument& argument,
                                                QMap<QDBusObjectPath, QVariantMap>& map);

/** Writes the path's characters, UTF-8 encoded, with nothing around them. */
PLIM_BLE_EXPORT std::ostream& operator<<(std::ostream& stream, const QDBusObjectPath& path);
