#pragma once

#include "PlimPeripheralExport.h"

#include <QDBusError>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <memory>

namespace plim {

namespace detail {
class BluezObjects;
} // namespace detail

/**
 * A Bluetooth adapter of this machine: its settings, and what it can broadcast. It is followed when it is
 * unplugged, comes back under another number, or BlueZ restarts; while it is not there, isPresent() is false
 * and every other property empty, false or 0. Nothing here waits for BlueZ: properties are known once the
 * event loop has run and BlueZ has described its objects.
 *
 * Settings are those of the adapter, not of the program: other programs can change them too, and BlueZ keeps
 * most of them for its next start. A setter only asks; the property changes when BlueZ has done it.
 *
 * To have applications and advertisements registered there as well, give the same text to
 * BleManager::setAdapter().
 *
 * An object of this class belongs to the thread that made it, which runs an event loop. Slots may do
 * anything, also delete this object.
 */
class PLIM_PERIPHERAL_EXPORT Adapter : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool present READ isPresent NOTIFY presentChanged)
    Q_PROPERTY(QString path READ path NOTIFY pathChanged)
    Q_PROPERTY(QString address READ address NOTIFY addressChanged)
    Q_PROPERTY(QString alias READ alias WRITE setAlias NOTIFY aliasChanged)
    Q_PROPERTY(bool powered READ isPowered WRITE setPowered NOTIFY poweredChanged)
    Q_PROPERTY(bool discoverable READ isDiscoverable WRITE setDiscoverable NOTIFY discoverableChanged)
    Q_PROPERTY(uint discoverableTimeout READ discoverableTimeout WRITE setDiscoverableTimeout NOTIFY
                   discoverableTimeoutChanged)
    Q_PROPERTY(bool pairable READ isPairable WRITE setPairable NOTIFY pairableChanged)
    Q_PROPERTY(
        uint pairableTimeout READ pairableTimeout WRITE setPairableTimeout NOTIFY pairableTimeoutChanged)
    Q_PROPERTY(int advertisementsLeft READ advertisementsLeft NOTIFY advertisementsLeftChanged)
    Q_PROPERTY(int advertisementsActive READ advertisementsActive NOTIFY advertisementsActiveChanged)
    Q_PROPERTY(int maximumAdvertisingData READ maximumAdvertisingData NOTIFY maximumAdvertisingDataChanged)
    Q_PROPERTY(int maximumScanResponseData READ maximumScanResponseData NOTIFY maximumScanResponseDataChanged)
    Q_PROPERTY(QStringList secondaryChannels READ secondaryChannels NOTIFY secondaryChannelsChanged)

public:
    /**
     * @param nameOrAddress  "hci1" or, better, "AA:BB:CC:DD:EE:FF" in upper or lower case: unlike the name,
     * the address stays with the adapter. Empty for the first one that is there, in the order of the paths;
     * it stays with that one until it goes.
     * @param parent  the owner; may be null
     */
    explicit Adapter(const QString& nameOrAddress = QString(), QObject* parent = nullptr);
    ~Adapter() override;

    /** Whether it is there and BlueZ runs. */
    bool isPresent() const { return !m_path.isEmpty(); }
    /** The path of BlueZ's object for it, "/org/bluez/hci0". */
    QString path() const { return m_path; }
    /** Its address, "AA:BB:CC:DD:EE:FF". */
    QString address() const;
    /** The name by which others see it. */
    QString alias() const;
    /** Whether it is on. */
    bool isPowered() const;
    /** Whether devices of classic Bluetooth can find it. What LE devices find depends on advertisements. */
    bool isDiscoverable() const;
    /** How long it stays discoverable, in seconds; 0 for no end. */
    uint discoverableTimeout() const;
    /** Whether others may pair with it. */
    bool isPairable() const;
    /** How long it stays pairable, in seconds; 0 for no end. */
    uint pairableTimeout() const;
    /** How many further advertisements can be registered, of all programs. */
    int advertisementsLeft() const;
    /** How many are registered, by all programs. */
    int advertisementsActive() const;
    /** How many bytes an advertisement can hold: 31, or more with extended advertising. 0 where BlueZ does
     * not say. */
    int maximumAdvertisingData() const;
    /** The same of a scan response. */
    int maximumScanResponseData() const;
    /** On which secondary channels it can advertise, of "1M", "2M" and "Coded"; empty without extended
     * advertising. */
    QStringList secondaryChannels() const;

    /** Gets the error that ended a setter; an invalid one after success. */
    using Finished = std::function<void(const QDBusError& error)>;

    /**
     * @name Setters
     * Each asks BlueZ to change one property. The function is called from the event loop when BlueZ has
     * answered, and not at all once this object has ended. Without one, an error is logged at WARN. While the
     * adapter is not there, the error is UnknownObject. Before BlueZ has described its objects, a setter
     * waits for that.
     * @{
     */
    /** An empty alias restores the name that BlueZ's configuration gives. */
    void setAlias(const QString& alias, const Finished& finished = {});
    /** Switching it off ends all links. It fails while a switch of the machine blocks Bluetooth (rfkill). */
    void setPowered(bool powered, const Finished& finished = {});
    /** Fails while it is off. */
    void setDiscoverable(bool discoverable, const Finished& finished = {});
    /** In seconds; 0 for no end. */
    void setDiscoverableTimeout(uint seconds, const Finished& finished = {});
    /** BlueZ sets it by itself when a pairing agent is registered. */
    void setPairable(bool pairable, const Finished& finished = {});
    /** In seconds; 0 for no end. */
    void setPairableTimeout(uint seconds, const Finished& finished = {});
    /** @} */

signals:
    /** It has come or gone. */
    void presentChanged();
    /** path() has changed. */
    void pathChanged();
    /** address() has changed. */
    void addressChanged();
    /** alias() has changed. */
    void aliasChanged();
    /** isPowered() has changed. */
    void poweredChanged();
    /** isDiscoverable() has changed. */
    void discoverableChanged();
    /** discoverableTimeout() has changed. */
    void discoverableTimeoutChanged();
    /** isPairable() has changed. */
    void pairableChanged();
    /** pairableTimeout() has changed. */
    void pairableTimeoutChanged();
    /** advertisementsLeft() has changed. */
    void advertisementsLeftChanged();
    /** advertisementsActive() has changed. */
    void advertisementsActiveChanged();
    /** maximumAdvertisingData() has changed. */
    void maximumAdvertisingDataChanged();
    /** maximumScanResponseData() has changed. */
    void maximumScanResponseDataChanged();
    /** secondaryChannels() has changed. */
    void secondaryChannelsChanged();

private:
    void update();
    QString chosenPath() const;
    QVariant setting(const char* name) const;
    QVariant capability(const char* name) const;
    void set(const char* name, const QVariant& value, const Finished& finished);
    QVariantMap values() const;

    const QString m_choice;
    const std::shared_ptr<detail::BluezObjects> m_bluez;
    QString m_path;
    QVariantMap m_told; ///< what the last signals stood for, by the names of the properties
};

} // namespace plim
