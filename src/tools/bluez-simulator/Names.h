#pragma once

#include <QString>

/** The names that a Bluetooth daemon and its clients use on the bus, and those of the control interface. */
namespace Names {

inline const QString BluezService = QStringLiteral("org.bluez");
inline const QString BluezPath = QStringLiteral("/org/bluez");

inline const QString Adapter = QStringLiteral("org.bluez.Adapter1");
inline const QString GattManager = QStringLiteral("org.bluez.GattManager1");
inline const QString Device = QStringLiteral("org.bluez.Device1");
inline const QString AdvertisingManager = QStringLiteral("org.bluez.LEAdvertisingManager1");

inline const QString GattProfile = QStringLiteral("org.bluez.GattProfile1");
inline const QString GattService = QStringLiteral("org.bluez.GattService1");
inline const QString GattCharacteristic = QStringLiteral("org.bluez.GattCharacteristic1");
inline const QString GattDescriptor = QStringLiteral("org.bluez.GattDescriptor1");
inline const QString Advertisement = QStringLiteral("org.bluez.LEAdvertisement1");

inline const QString Introspectable = QStringLiteral("org.freedesktop.DBus.Introspectable");
inline const QString Properties = QStringLiteral("org.freedesktop.DBus.Properties");
inline const QString ObjectManager = QStringLiteral("org.freedesktop.DBus.ObjectManager");

inline const QString ControlService = QStringLiteral("org.plim.BluezSimulator");
inline const QString ControlPath = QStringLiteral("/org/plim/BluezSimulator");

/** The full name of an error of the control interface. */
inline QString error(const char* name)
{
    return ControlService + QStringLiteral(".Error.") + QLatin1String(name);
}

} // namespace Names
