#pragma once

#include <QString>

/** The names of the properties of org.bluez.LEAdvertisement1. Internal: not installed. */
namespace AdvertisementProperty {

inline const QString Appearance = QStringLiteral("Appearance");
inline const QString Data = QStringLiteral("Data");
inline const QString ScanData = QStringLiteral("ScanData");
inline const QString Discoverable = QStringLiteral("Discoverable");
inline const QString Includes = QStringLiteral("Includes");
inline const QString LocalName = QStringLiteral("LocalName");
inline const QString ManufacturerData = QStringLiteral("ManufacturerData");
inline const QString MaxInterval = QStringLiteral("MaxInterval");
inline const QString MinInterval = QStringLiteral("MinInterval");
inline const QString SecondaryChannel = QStringLiteral("SecondaryChannel");
inline const QString ServiceData = QStringLiteral("ServiceData");
inline const QString ServiceUUIDs = QStringLiteral("ServiceUUIDs");
inline const QString Timeout = QStringLiteral("Timeout");
inline const QString TxPower = QStringLiteral("TxPower");
inline const QString Type = QStringLiteral("Type");

/** A second name of ScanData, which stock daemons read. */
inline const QString ScanResponseData = QStringLiteral("ScanResponseData");

} // namespace AdvertisementProperty
