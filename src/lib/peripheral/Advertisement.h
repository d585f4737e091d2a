#pragma once

#include "PlimPeripheralExport.h"

#include "GapAdvertisement.h"

#include <QFlags>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

struct BleRegistrationEvent;

namespace plim {

namespace detail {
class AdvertisementProperties;
class BluezObjects;
} // namespace detail

/**
 * An advertisement with what the base class leaves out: fields that it cannot set, and changes without a gap.
 *
 * The bus sees the type, and what a setter was called for, as with GapAdvertisement::SetProperties. The
 * caller owns it. It lives on the thread of BleManager::instance().
 */
class PLIM_PERIPHERAL_EXPORT Advertisement : public GapAdvertisement
{
    Q_OBJECT
    Q_PROPERTY(ushort DiscoverableTimeout READ discoverableTimeout)
    Q_PROPERTY(ushort Duration READ duration)
    Q_PROPERTY(QStringList Includes READ includes)
    Q_PROPERTY(QString SecondaryChannel READ secondaryChannel)
    Q_PROPERTY(QStringList SolicitUUIDs READ solicitUUIDs)
    Q_PROPERTY(QStringList ScanResponseServiceUUIDs READ scanResponseServiceUUIDs)
    Q_PROPERTY(QStringList ScanResponseSolicitUUIDs READ scanResponseSolicitUUIDs)
    Q_PROPERTY(DBusManufacturerData ScanResponseManufacturerData READ scanResponseManufacturerData)
    Q_PROPERTY(QVariantMap ScanResponseServiceData READ scanResponseServiceData)

public:
    /** The physical channel of extended advertising, behind the three that every scanner hears. */
    enum Channel
    {
        NoChannel, ///< BlueZ chooses; the initial value
        LE1M,
        LE2M,
        LECoded ///< long range
    };

    /** What BlueZ adds by itself. */
    enum SystemInclude
    {
        TxPower = 1,    ///< the transmit power
        Appearance = 2, ///< the appearance of the adapter; not together with setAppearance()
        LocalName = 4   ///< the name of the adapter; not together with setLocalName()
    };
    Q_DECLARE_FLAGS(SystemIncludes, SystemInclude)

    /** How a change reaches BlueZ. */
    enum UpdateMode
    {
        RegisterAgain, ///< the manager registers the advertisement again, as it does with the base class
        InPlace        ///< BlueZ changes what it broadcasts, where that is safe; otherwise RegisterAgain
    };

    /** Exports the advertisement; see the base class. */
    Advertisement(QObject* parent, const QString& dbusPath);
    ~Advertisement() override;

    /**
     * Sets how the next changes reach BlueZ; RegisterAgain at first.
     *
     * InPlace concerns setManufacturerData(), setServiceData(), setServiceUUIDs(), setSolicitedServices() and
     * setLocalName() with a name that is not empty. All other changes, and those by a pointer to the base
     * class, register again. So does every change
     * - while BlueZ is older than 5.74 or its version is not known: such a daemon aborts if a change fails,
     *   as it does when the adapter is switched off at that moment. The version is read from the adapter's
     *   Modalias; a DeviceID in BlueZ's main.conf hides it.
     * - while problems() has an error: BlueZ would silently keep the former data, but it rejects a
     *   registration, which the program learns.
     *
     * For a change in place dataChanged() is not emitted. Changes that come while BlueZ has not answered a
     * registration follow after the answer, together: at any time one registration at most is pending.
     */
    void setUpdateMode(UpdateMode mode);

    /** What setUpdateMode() stored. */
    UpdateMode updateMode() const { return m_updateMode; }

    /** GapAdvertisement::problems() and those of this class's own fields. */
    BleFindings problems(int advertisingLimit = 31, int scanResponseLimit = 31) const;

    /**
     * Uses extended advertising on this channel; NoChannel takes that back. Controllers without extended
     * advertising refuse it, and scanners without it see nothing. Read by BlueZ 5.66 and 5.82.
     */
    void setSecondaryChannel(Channel channel);

    /**
     * Seconds for which this one is broadcast before another one's turn, where a controller broadcasts one at
     * a time; 0 for BlueZ's choice. Read by BlueZ 5.66 and 5.82.
     */
    void setDuration(unsigned short seconds);

    /**
     * Seconds after which the advertisement stops to make the device discoverable; 0 for never. It must not
     * be longer than the timeout, if there is one. Read by BlueZ 5.66 and 5.82. BlueZ older than 5.74 aborts
     * if the adapter is off at that moment.
     */
    void setDiscoverableTimeout(unsigned short seconds);

    /** The UUIDs of services that this device looks for in a central. Read by BlueZ 5.66 and 5.82. */
    void setSolicitedServices(const QStringList& uuids);

    /** What BlueZ adds by itself. Read by BlueZ 5.66 and 5.82. */
    void setSystemIncludes(SystemIncludes includes);

    /**
     * @name The scan response's own fields
     * What a central gets in addition, if it asks. BlueZ 5.66 does not read them; setScanRspData() is for
     * other types of data.
     * @{
     */
    /** The UUIDs of services; none hides the field. */
    void setScanResponseServiceUUIDs(const QStringList& uuids);
    /** The UUIDs of services that this device looks for in a central; none hides the field. */
    void setScanResponseSolicitedServices(const QStringList& uuids);
    /** Company identifier to manufacturer data; none hides the field. */
    void setScanResponseManufacturerData(const GapManufacturerData& data);
    /** Service UUID to that service's data, a byte array each; none hides the field. */
    void setScanResponseServiceData(const QVariantMap& data);
    /** @} */

    // As in the base class, but in place if that is the mode.
    /** See GapAdvertisement::setLocalName(). */
    void setLocalName(const QString& name);
    /** See GapAdvertisement::setServiceUUIDs(). */
    void setServiceUUIDs(const QStringList& uuids);
    /** See GapAdvertisement::setServiceData(). */
    void setServiceData(const QVariantMap& data);
    /** See GapAdvertisement::setManufacturerData(). */
    void setManufacturerData(const GapManufacturerData& data);

    /** The base class's setter of this name sets the advertised services: use setSolicitedServices(). */
    void setSolicitUUIDs(const QStringList& uuids) = delete;

    /** "1M", "2M", "Coded", or empty. */
    QString secondaryChannel() const;
    /** What setDuration() stored. */
    unsigned short duration() const { return m_duration; }
    /** What setDiscoverableTimeout() stored. */
    unsigned short discoverableTimeout() const { return m_discoverableTimeout; }
    /** What setSolicitedServices() stored. */
    QStringList solicitUUIDs() const { return m_solicitedServices; }
    /** BlueZ's words for the system includes. */
    QStringList includes() const;
    /** What setScanResponseServiceUUIDs() stored. */
    QStringList scanResponseServiceUUIDs() const { return m_scanResponseServiceUUIDs; }
    /** What setScanResponseSolicitedServices() stored. */
    QStringList scanResponseSolicitUUIDs() const { return m_scanResponseSolicitedServices; }
    /** What setScanResponseManufacturerData() stored. */
    DBusManufacturerData scanResponseManufacturerData() const { return m_scanResponseManufacturerData; }
    /** What setScanResponseServiceData() stored. */
    QVariantMap scanResponseServiceData() const { return m_scanResponseServiceData; }

private:
    template <typename Setter>
    void changeInPlace(const QString& property, const Setter& set);
    void changeShown(const QString& property, bool shown);
    void publish(const QStringList& properties);
    bool isSafeInPlace(const QString& adapter) const;
    void on_registrationEvent(const BleRegistrationEvent& event);

    detail::AdvertisementProperties* const m_properties; ///< a Qt child
    std::shared_ptr<detail::BluezObjects> m_bluez;       ///< from the first time that it is needed
    UpdateMode m_updateMode = RegisterAgain;
    bool m_isKnownToManager = false;
    QStringList m_unpublished; ///< changed while a registration was pending
    Channel m_channel = NoChannel;
    unsigned short m_duration = 0;
    unsigned short m_discoverableTimeout = 0;
    QStringList m_solicitedServices;
    SystemIncludes m_includes;
    QStringList m_scanResponseServiceUUIDs;
    QStringList m_scanResponseSolicitedServices;
    DBusManufacturerData m_scanResponseManufacturerData;
    QVariantMap m_scanResponseServiceData;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(Advertisement::SystemIncludes)

} // namespace plim
