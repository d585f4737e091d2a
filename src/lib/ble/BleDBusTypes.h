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

// The operators have to be declared here, beside the types. If they are not visible when a type is registered
// with Qt D-Bus, Qt uses its own template for maps and writes a{yay}.
//
// Reading adds to the map: entries that it has stay, unless the message has the same key. Of two entries with
// the same key, the later one counts. A value that is not a byte array is converted to one; it is empty if
// that is not possible.

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
