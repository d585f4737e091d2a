#pragma once

#include <QString>

/** The D-Bus interfaces of BlueZ that our libraries and tools use. Internal: not installed. */
namespace BluezInterfaces {

// BlueZ serves these.
inline const QString Adapter = QStringLiteral("org.bluez.Adapter1");
inline const QString Device = QStringLiteral("org.bluez.Device1");
inline const QString GattManager = QStringLiteral("org.bluez.GattManager1");
inline const QString AgentManager = QStringLiteral("org.bluez.AgentManager1");
inline const QString AdvertisingManager = QStringLiteral("org.bluez.LEAdvertisingManager1");

// A peripheral's program serves these.
inline const QString GattService = QStringLiteral("org.bluez.GattService1");
inline const QString GattCharacteristic = QStringLiteral("org.bluez.GattCharacteristic1");
inline const QString GattDescriptor = QStringLiteral("org.bluez.GattDescriptor1");
inline const QString Advertisement = QStringLiteral("org.bluez.LEAdvertisement1");

} // namespace BluezInterfaces
