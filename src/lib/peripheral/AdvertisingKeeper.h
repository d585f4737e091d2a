#pragma once

#include "PlimPeripheralExport.h"

#include <QHash>
#include <QMetaType>
#include <QObject>

#include <functional>
#include <memory>

class GapAdvertisement;
struct BleRegistrationEvent;

namespace plim {

namespace detail {
class KeptAdvertisement;
class RadioWatch;
} // namespace detail

/**
 * Keeps advertisements on the air that BleManager::instance() holds.
 *
 * BlueZ tells nobody when an advertisement that it counts as registered is not broadcast. This class watches
 * what leads to that, and registers the advertisement again:
 * - the adapter was switched on;
 * - the machine has woken up (PrepareForSleep of org.freedesktop.login1);
 * - BlueZ refused it, also with "Maximum advertisements reached": after 1, 2, 4, 8, 16, 32 s, then every
 *   60 s, and as soon as BlueZ has room again; not after "Failed to parse advertisement.", which only a
 *   change can help, and a change registers it anyway;
 * - BlueZ released it, though its time-out is 0; or after its time-out, see setAfterTimeout();
 * - a central has connected, see setWhileConnected().
 *
 * Causes within 100 ms give one registration. While one is pending no other is sent; a cause that comes
 * meanwhile gives one when it is answered. What the program has unregistered or removed itself is left alone.
 * When BlueZ restarts, BleManager registers everything, and this class does not.
 *
 * It leaves the manager's observer to the program. Like the advertisements, it lives on the manager's thread.
 */
class PLIM_PERIPHERAL_EXPORT AdvertisingKeeper : public QObject
{
    Q_OBJECT

public:
    /** Why an advertisement is not broadcast. */
    enum Reason
    {
        BluezGone,    ///< bluetoothd ended, or the adapter was removed
        PoweredOff,   ///< the adapter was switched off
        Suspended,    ///< the machine goes to sleep
        Released,     ///< BlueZ dropped it: its time-out passed
        Refused,      ///< BlueZ rejected a registration, or has not answered it
        Unregistered, ///< the program unregistered or removed it
    };
    Q_ENUM(Reason)

    /** @param parent  the Qt parent, or null */
    explicit AdvertisingKeeper(QObject* parent = nullptr);
    ~AdvertisingKeeper() override;

    /**
     * Keeps an advertisement on the air from now on. Hand it to the manager, too, before or after this call.
     * It stays the caller's, who may delete it. A null pointer is logged at ERROR and ignored, and one that
     * is kept already is left alone. Another keeper must not keep it.
     */
    void keep(const GapAdvertisement* advertisement);

    /** No longer looks after an advertisement, which stays as it is; other pointers are ignored. */
    void leave(const GapAdvertisement* advertisement);

    /** Whether an advertisement whose time-out has passed is registered again; false at first. */
    void setAfterTimeout(bool again);

    /**
     * Whether connectable advertisements are registered again when a central connects, so that a second one
     * can connect; false at first. Controllers with extended advertising end the broadcast with each
     * connection; others go on broadcasting.
     */
    void setWhileConnected(bool again);

    /** Whether a kept advertisement is broadcast, as far as BlueZ tells. */
    bool isOnAir(const GapAdvertisement* advertisement) const;

signals:
    /** An advertisement is broadcast. Its slots may do anything. */
    void onAir(const GapAdvertisement* advertisement);
    /** An advertisement is not broadcast any more. Nothing is told of one that was deleted. */
    void offAir(const GapAdvertisement* advertisement, plim::AdvertisingKeeper::Reason reason);

private:
    using Kept = detail::KeptAdvertisement;

    void forEach(const std::function<void(Kept&)>& function);
    void followRadio(Kept& kept, Reason reason) const;
    void on_connected(const QString& device);

    const std::unique_ptr<detail::RadioWatch> m_radio;
    QHash<const QObject*, Kept*> m_kept; ///< Qt children
    bool m_isAfterTimeout = false;
    bool m_isWhileConnected = false;
};

} // namespace plim
