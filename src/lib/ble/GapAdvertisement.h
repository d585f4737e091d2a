#pragma once

#include "BleDBusTypes.h"
#include "BleFinding.h"
#include "PlimBleExport.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <cstdint>
#include <memory>

class LEAdvertisement1Adaptor;

using GapManufacturerData = DBusManufacturerData;

/**
 * One LE advertisement, exported on the system bus as org.bluez.LEAdvertisement1.
 *
 * It only stores properties. BlueZ gets every value unchanged, and checks it when the advertisement is
 * registered. Register it with BleManager::add(). After that, each call of a setter makes the manager
 * unregister it and register it again, even if the value stays the same: set everything first, add last.
 *
 * The caller owns it. It lives on one thread, the one that runs the caller's Qt event loop.
 */
class PLIM_BLE_EXPORT GapAdvertisement : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ushort Appearance READ appearance)
    Q_PROPERTY(DBusAdvData Data READ data)
    Q_PROPERTY(DBusAdvData ScanData READ scanData)
    Q_PROPERTY(bool Discoverable READ discoverable)
    Q_PROPERTY(ushort DiscoverableTimeout READ discoverableTimeout)
    Q_PROPERTY(ushort Duration READ duration)
    Q_PROPERTY(QStringList Includes READ includes)
    Q_PROPERTY(QString LocalName READ localName)
    Q_PROPERTY(DBusManufacturerData ManufacturerData READ manufacturerData)
    Q_PROPERTY(uint MaxInterval READ maxInterval)
    Q_PROPERTY(uint MinInterval READ minInterval)
    Q_PROPERTY(QString SecondaryChannel READ secondaryChannel)
    Q_PROPERTY(QVariantMap ServiceData READ serviceData)
    Q_PROPERTY(QStringList ServiceUUIDs READ serviceUUIDs)
    Q_PROPERTY(QStringList SolicitUUIDs READ solicitUUIDs)
    Q_PROPERTY(ushort Timeout READ timeout)
    Q_PROPERTY(short TxPower READ txPower)
    Q_PROPERTY(QString Type READ type)

public:
    /** Whether centrals may connect. Any other value gives an empty type, which BlueZ rejects. */
    enum GapDeviceType : int
    {
        Peripheral = 0,
        Broadcast = 1
    };

    /** Which properties are visible on the bus. The getters and the signals do not depend on it. */
    enum PropertyExport
    {
        /** All eighteen. Those that were never set have their initial values, which stock BlueZ daemons
           reject. */
        AllProperties,
        /**
         * Type, and those whose setters were called. Stock BlueZ daemons accept this. Scan-response data
         * is also visible as ScanResponseData, the name that such a daemon reads.
         */
        SetProperties
    };

    /**
     * Exports the advertisement. A failed export (a path that is taken or is not a valid object path, no
     * system bus) is logged at ERROR; the program can still use the object by itself, but BlueZ cannot read
     * it.
     *
     * @param parent    the Qt parent, which then owns the advertisement, or null
     * @param dbusPath  the object path, for instance "/com/example/device/advertisement"
     * @param propertyExport  which properties are visible on the bus; SetProperties for a stock BlueZ
     */
    GapAdvertisement(QObject* parent, const QString& dbusPath, PropertyExport propertyExport = AllProperties);

    /** The object path as given. */
    QString dbusPath() const { return m_dbusPath; }

    /**
     * Lists what BlueZ would reject or not broadcast. Call it before BleManager::add(). Nothing is sent,
     * logged or changed.
     *
     * Sizes are counted as BlueZ composes the data: it adds the flags, makes one block for all UUIDs of a
     * size, and puts the name into the scan response, where it cuts the name to the bytes that are left.
     *
     * @param advertisingLimit   the bytes that the controller can broadcast, "MaxAdvLen" in the
     * SupportedCapabilities of BlueZ's advertising manager; 31 fit everywhere
     * @param scanResponseLimit  the bytes of its scan response, "MaxScnRspLen" there
     */
    BleFindings problems(int advertisingLimit = 31, int scanResponseLimit = 31) const;

    /** The appearance, a number that the Bluetooth SIG assigns; 0xFFFF at first. */
    void setAppearance(unsigned short appearance);
    /** Whether the device is to be generally discoverable while this is advertised; false at first. */
    void setDiscoverable(bool discoverable);
    /** Whether BlueZ adds the transmit power to the payload ("tx-power" in Includes); false at first. */
    void setIncludeTxPower(bool include);
    /** The requested transmit power in dBm; 127 at first. BlueZ takes -127 to 20. */
    void setTxPower(short power);
    /** Seconds after which BlueZ drops the advertisement; 0 for never. */
    void setTimeout(unsigned short seconds);
    /** The shortest advertising interval in ms; 0 at first. BlueZ takes 20 to 10,485,759. */
    void setMinInterval(unsigned int milliseconds);
    /** The longest advertising interval in ms; 0 at first. BlueZ takes 20 to 10,485,759. */
    void setMaxInterval(unsigned int milliseconds);
    /** The local name; empty at first. */
    void setLocalName(const QString& name);
    /** The type; Peripheral at first. */
    void setType(const GapAdvertisement::GapDeviceType& type);
    /** The UUIDs of the advertised services. */
    void setServiceUUIDs(const QStringList& uuids);
    /** Sets the same list as setServiceUUIDs(); the list of solicited services always stays empty. */
    void setSolicitUUIDs(const QStringList& uuids);
    /** Service UUID to that service's data, a byte array each. */
    void setServiceData(const QVariantMap& data);
    /** Company identifier to manufacturer data. */
    void setManufacturerData(const GapManufacturerData& data);

    /** Replaces the raw advertising data with the AD structures of a whole payload; see
     * parseAdvertisementData(). */
    void setAdvData(const QByteArray& data);
    /** Replaces the raw scan-response data with the AD structures of a whole payload. */
    void setScanRspData(const QByteArray& data);
    /** Adds or replaces one AD structure of the advertising data; an empty array makes one without data. */
    void setAdvData(uint8_t type, const QByteArray& data);
    /** Adds or replaces one AD structure of the scan-response data. */
    void setScanRspData(uint8_t type, const QByteArray& data);

    /**
     * Splits a payload into its AD structures (length, type, data). Of several with one type, the last one
     * counts.
     *
     * Nothing is rejected. A structure that is longer than the rest of the payload gets the rest. A single
     * byte at the end is ignored. A structure with a length of 0 gets the rest of the payload, too, but the
     * next structure is read from the byte after the length.
     */
    DBusAdvData parseAdvertisementData(const QByteArray& data) const;

    /** What setAppearance() stored. */
    unsigned short appearance() const;
    /** What setDiscoverable() stored. */
    bool discoverable() const;
    /** Always 0. */
    unsigned short discoverableTimeout() const;
    /** Always 0. */
    unsigned short duration() const;
    /** What setLocalName() stored. */
    QString localName() const;
    /** What setMaxInterval() stored. */
    unsigned int maxInterval() const;
    /** What setMinInterval() stored. */
    unsigned int minInterval() const;
    /** Always empty. */
    QString secondaryChannel() const;
    /** What setTimeout() stored. */
    unsigned short timeout() const;
    /** What setTxPower() stored. */
    short txPower() const;
    /** "peripheral" or "broadcast". */
    QString type() const;
    /** What setServiceUUIDs() or setSolicitUUIDs() stored last. */
    QStringList serviceUUIDs() const;
    /** Always empty. */
    QStringList solicitUUIDs() const;
    /** "tx-power" after setIncludeTxPower(true), otherwise empty. */
    QStringList includes() const;
    /** The AD structures of the advertising data by type. */
    DBusAdvData data() const;
    /** The AD structures of the scan-response data by type. */
    DBusAdvData scanData() const;
    /** What setManufacturerData() stored. */
    DBusManufacturerData manufacturerData() const;
    /** What setServiceData() stored. */
    QVariantMap serviceData() const;

signals:
    /**
     * A setter was called. A slot may delete the advertisement.
     * @param adv  this advertisement
     */
    void dataChanged(const GapAdvertisement* adv);

private slots:
    void Release();

private:
    friend class RegistrationTracker;
    struct Q_DECL_HIDDEN Internals;

    /** Stores the value, shows the property and emits dataChanged(), even if the value stays the same. */
    template <typename Member, typename Value>
    void change(const QString& property, Member& member, const Value& value);

    const QString m_dbusPath;
    LEAdvertisement1Adaptor* m_adaptor = nullptr;
    bool m_includeTxPower = false;
    DBusManufacturerData m_manufacturerData;
    QString m_localName;
    DBusAdvData m_advData;
    DBusAdvData m_scanRspData;
    QVariantMap m_serviceData;
    QStringList m_serviceUUIDs;
    const QStringList m_solicitUUIDs;
    GapDeviceType m_type = Peripheral;
    unsigned short m_appearance = 0xFFFF;
    unsigned int m_minInterval = 0;
    unsigned int m_maxInterval = 0;
    short m_txPower = 127;
    unsigned short m_timeout = 0;
    bool m_discoverable = false;
    const unsigned short m_discoverableTimeout = 0;
    const unsigned short m_duration = 0;
    const std::shared_ptr<Internals> m_internals; ///< shared: the implicit destructor cannot see Internals
};
