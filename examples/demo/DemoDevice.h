#pragma once

#include <QString>

/** What the demo's peripheral and the demo's phone both know of the device: its paths, its UUIDs, its names.
 */
namespace DemoDevice {

/** The 128-bit form of a UUID that the Bluetooth SIG has assigned. */
inline QString assigned(quint16 number)
{
    return QStringLiteral("%1-0000-1000-8000-00805f9b34fb").arg(number, 8, 16, QLatin1Char('0'));
}

/** A UUID of the demo's own. */
inline QString own(quint16 number)
{
    return QStringLiteral("6e61%1-31c7-4b1a-9f0e-1a3cf2a7d001").arg(number, 4, 16, QLatin1Char('0'));
}

const QString applicationPath = QStringLiteral("/com/example/heartrate");
const QString advertisementPath = QStringLiteral("/com/example/heartrate/advertisement");

const QString deviceInformation = assigned(0x180a);
const QString manufacturerName = assigned(0x2a29);
const QString heartRate = assigned(0x180d);
const QString heartRateMeasurement = assigned(0x2a37);
const QString userDescription = assigned(0x2901);
const QString storage = own(0x0001);
const QString storagePage = own(0x0002);
const QString storageRecord = own(0x0003);
const QString storageDigest = own(0x0004);
const QString deviceName = own(0x0005);

} // namespace DemoDevice
