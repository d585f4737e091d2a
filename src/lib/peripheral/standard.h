#pragma once

/**
 * @file
 * Services and descriptors that the Bluetooth SIG has defined, so that phones show them without an app of
 * yours: who made the device, its battery, its clock, and what a value means. Numbers and layouts are those
 * of the SIG's Assigned Numbers and GATT Specification Supplement.
 */

#include "PlimPeripheralExport.h"

#include <QByteArray>
#include <QDateTime>
#include <QFlags>
#include <QString>

#include <functional>
#include <optional>

class GattApplication;
class GattCharacteristic;

namespace plim {

class Characteristic;
class Descriptor;
class Service;

/** The text of a UUID that the SIG has assigned: uuid(0x180f) is "0000180f-0000-1000-8000-00805f9b34fb". */
PLIM_PERIPHERAL_EXPORT QString uuid(quint16 assigned);

/** Units of values, by the SIG's names. */
enum class Unit : quint16
{
    None = 0x2700,
    Metre = 0x2701,
    Kilogram = 0x2702,
    Second = 0x2703,
    Ampere = 0x2704,
    Kelvin = 0x2705,
    MetrePerSecond = 0x2712,
    MetrePerSecondSquared = 0x2713,
    Hertz = 0x2722,
    Newton = 0x2723,
    Pascal = 0x2724,
    Joule = 0x2725,
    Watt = 0x2726,
    Volt = 0x2728,
    DegreeCelsius = 0x272f,
    Minute = 0x2760,
    Hour = 0x2761,
    Day = 0x2762,
    DegreeOfAngle = 0x2763,
    Litre = 0x2767,
    KilometrePerHour = 0x27a6,
    RevolutionsPerMinute = 0x27a8,
    KilowattHour = 0x27ab,
    DegreeFahrenheit = 0x27ac,
    Percent = 0x27ad,
    PerMille = 0x27ae,
    BeatsPerMinute = 0x27af
};

/** How a value's bytes are read, and what they measure. */
struct Format
{
    /** The SIG's numbers for formats. */
    enum Type : quint8
    {
        Boolean = 0x01,
        UInt8 = 0x04,
        UInt16 = 0x06,
        UInt24 = 0x07,
        UInt32 = 0x08,
        UInt64 = 0x0a,
        Int8 = 0x0c,
        Int16 = 0x0e,
        Int24 = 0x0f,
        Int32 = 0x10,
        Int64 = 0x12,
        Float32 = 0x14, ///< IEEE 754
        Float64 = 0x15, ///< IEEE 754
        Utf8 = 0x19,
        Struct = 0x1b ///< none of the others
    };

    Type type;               ///< how the bytes are read
    Unit unit = Unit::None;  ///< what the number measures
    qint8 exponent = 0;      ///< the number is multiplied by ten to the power of this; integers only
    quint16 description = 0; ///< one of the SIG's namespace descriptions, such as 1 for "first"; 0 for none
};

/**
 * Gives a characteristic a text that phones show beside its value, in a Characteristic User Description
 * (0x2901). A second call replaces the text.
 * @param characteristic  whose value it is about; not null
 * @param text  at most 512 bytes in UTF-8; what is longer is cut off, which is logged at WARN
 * @return the descriptor, owned by the characteristic
 */
PLIM_PERIPHERAL_EXPORT Descriptor* describe(GattCharacteristic* characteristic, const QString& text);

/**
 * Tells how a characteristic's value is read, in a Characteristic Presentation Format (0x2904). A second call
 * replaces it.
 * @param characteristic  whose value it is; not null
 * @param format  what is shown
 * @return the descriptor, owned by the characteristic
 */
PLIM_PERIPHERAL_EXPORT Descriptor* setFormat(GattCharacteristic* characteristic, const Format& format);

/** A product by the numbers of its vendor. */
struct PnpId
{
    /** Who has given the vendor its number. */
    enum Source : quint8
    {
        BluetoothSig = 1, ///< vendor is a company identifier
        Usb = 2           ///< vendor is a USB vendor identifier
    };

    Source source;   ///< whose number the vendor has
    quint16 vendor;  ///< the vendor's number
    quint16 product; ///< the vendor's number for the product
    quint16 version; ///< 0x0213 for 2.1.3
};

/** What a Device Information Service shows. What is empty is left out. */
struct DeviceInformation
{
    QString manufacturer;     ///< the name of the company
    QString model;            ///< the model's number or name
    QString serialNumber;     ///< of this very device
    QString hardwareRevision; ///< of the hardware
    QString firmwareRevision; ///< of the firmware
    QString softwareRevision; ///< of the software
    /** 8 bytes: the manufacturer's own identifier, 5 bytes, and its OUI, 3 bytes; least significant first. */
    QByteArray systemId;
    std::optional<PnpId> pnpId; ///< the product by numbers
};

/**
 * Adds a Device Information Service (0x180a).
 *
 * BlueZ has such a service of its own, with a PnP ID only, which phones see as well.
 *
 * Texts are at most 512 bytes in UTF-8; what is longer is cut off, which is logged at WARN. A system ID that
 * has not 8 bytes is left out, which is logged at ERROR.
 * @param application  not null
 * @param values       what is shown
 * @return the service, owned by the application
 */
PLIM_PERIPHERAL_EXPORT Service* addDeviceInformation(GattApplication* application,
                                                     const DeviceInformation& values);

/**
 * Adds a Battery Service (0x180f), whose level is read and notified.
 * @param application  not null
 * @param percent      the level, as setBatteryLevel() takes it
 * @param pathElement  as in Service::create(); a second battery needs one
 * @return the Battery Level characteristic, owned by the service
 */
PLIM_PERIPHERAL_EXPORT Characteristic* addBattery(GattApplication* application, int percent,
                                                  const QString& pathElement = QString());

/**
 * Sets a battery's level and notifies it.
 * @param batteryLevel  what addBattery() returned
 * @param percent       0 to 100; what is beyond counts as the limit
 */
PLIM_PERIPHERAL_EXPORT void setBatteryLevel(Characteristic* batteryLevel, int percent);

/** Why a clock was changed. */
enum class TimeChange : quint8
{
    Manual = 0x01,
    ExternalReference = 0x02,
    TimeZone = 0x04,
    DaylightSaving = 0x08
};
Q_DECLARE_FLAGS(TimeChanges, TimeChange)
Q_DECLARE_OPERATORS_FOR_FLAGS(TimeChanges)

/**
 * Adds a Current Time Service (0x1805) with the time and the time zone. Each read shows the clock at that
 * moment.
 * @param application  not null
 * @param clock  the local time with its time zone; empty for the system's. It is called on the application's
 * thread.
 * @return the Current Time characteristic, owned by the service
 */
PLIM_PERIPHERAL_EXPORT Characteristic* addCurrentTime(GattApplication* application,
                                                      const std::function<QDateTime()>& clock = {});

/**
 * Tells subscribers that the clock was changed, and why. Later reads show the reason, too. The service wants
 * this at each change of the clock, but not more than once in 15 minutes for small corrections.
 * @param currentTime  what addCurrentTime() returned
 * @param now          the new time, in the same time zone
 * @param changes      why it was changed
 */
PLIM_PERIPHERAL_EXPORT void notifyTime(Characteristic* currentTime, const QDateTime& now,
                                       TimeChanges changes);

} // namespace plim
