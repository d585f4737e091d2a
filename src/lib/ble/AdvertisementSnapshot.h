#pragma once

#include "GapAdvertisement.h"
#include "Preflight.h"

/** The values of an advertisement that AdvertisementPreflight checks. Internal: not installed. */
struct AdvertisementSnapshot
{
    QString path;
    Preflight::ExportState exportState = Preflight::Exported;
    QStringList shownProperties; ///< the names that are visible on the bus
    GapAdvertisement::GapDeviceType type = GapAdvertisement::Peripheral;
    bool discoverable = false;
    bool includeTxPower = false;
    short txPower = 0;
    unsigned int minInterval = 0;
    unsigned int maxInterval = 0;
    QString localName;
    QStringList serviceUUIDs;
    QVariantMap serviceData;
    DBusManufacturerData manufacturerData;
    DBusAdvData advData;
    DBusAdvData scanRspData;
};
