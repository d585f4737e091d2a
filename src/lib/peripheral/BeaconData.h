#pragma once

#include "PlimPeripheralExport.h"

#include "GapAdvertisement.h"

#include <QByteArray>
#include <QString>
#include <QUuid>
#include <QVariantMap>

#include <cstdint>
#include <optional>

namespace plim {

/** The company identifier of iBeacon's manufacturer data. */
constexpr quint16 iBeaconCompany = 0x004c;

/** The service UUID of Eddystone frames. A beacon that sends them also lists it among its service UUIDs. */
PLIM_PERIPHERAL_EXPORT QString eddystoneService();

/** The service UUID of batteries. */
PLIM_PERIPHERAL_EXPORT QString batteryService();

/**
 * Manufacturer data of an iBeacon, for GapAdvertisement::setManufacturerData().
 *
 * @param region         the same for all beacons of an owner
 * @param major          a group of beacons
 * @param minor          a beacon of the group
 * @param measuredPower  the strength in dBm that a receiver measures at a distance of 1 m
 */
PLIM_PERIPHERAL_EXPORT GapManufacturerData iBeacon(const QUuid& region, quint16 major, quint16 minor,
                                                   qint8 measuredPower);

/**
 * Service data of an Eddystone-UID frame, for GapAdvertisement::setServiceData(). Set eddystoneService() as a
 * service UUID, too; both, and the flags, take 31 bytes.
 *
 * @param txPower   the strength in dBm that a receiver would measure at a distance of 0 m
 * @param space     the namespace, 10 bytes
 * @param instance  the beacon of the namespace, 6 bytes
 * @return the data; empty if a length is wrong
 */
PLIM_PERIPHERAL_EXPORT QVariantMap eddystoneUid(qint8 txPower, const QByteArray& space,
                                                const QByteArray& instance);

/**
 * Service data of an Eddystone-URL frame; otherwise like eddystoneUid().
 *
 * @param txPower  see eddystoneUid()
 * @param url      an http or https address of printable ASCII characters without a space. The scheme, "www."
 * and endings such as ".com/" take one byte each.
 * @return the data; empty if the address cannot be encoded, or takes more than 17 bytes without its scheme
 */
PLIM_PERIPHERAL_EXPORT QVariantMap eddystoneUrl(qint8 txPower, const QString& url);

/** What an Eddystone-TLM frame tells of a beacon. */
struct EddystoneTelemetry
{
    quint16 batteryMillivolts = 0;     ///< 0 if it has no battery
    std::optional<double> temperature; ///< degrees Celsius, in steps of 1/256; nothing if it is not measured
    quint32 advertisements = 0;        ///< advertisements sent since the start
    quint32 uptimeTenths = 0;          ///< tenths of a second since the start
};

/**
 * Service data of an unencrypted Eddystone-TLM frame; otherwise like eddystoneUid(). A temperature beyond
 * -128 to 127.99 degrees is sent as the nearest of these; one that is not a number as not measured.
 */
PLIM_PERIPHERAL_EXPORT QVariantMap eddystoneTlm(const EddystoneTelemetry& telemetry);

/**
 * Service data with a battery's level, for GapAdvertisement::setServiceData().
 * @param percent  0 to 100; what is above is sent as 100
 */
PLIM_PERIPHERAL_EXPORT QVariantMap batteryServiceData(std::uint8_t percent);

} // namespace plim
