#pragma once

#include "Central.h"
#include "PlimPeripheralExport.h"

#include <QDBusError>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace plim {

namespace detail {
class BluezObjects;
class LinkMtus;
class RequestWitness;
} // namespace detail

/**
 * The centrals that are connected now. They are known as soon as BlueZ has described its objects: those that
 * were there before the program, too, and again after each restart of BlueZ. Nothing here waits for BlueZ.
 *
 * It is as much as BlueZ shows:
 * - Who began a connection is not shown. A device that a program on this machine connects to over LE is a
 *   central here as well. A program that connects to devices itself has to tell them apart by their paths. A
 *   central whose mtu() is not 0 has sent this program a request.
 * - Over what a device is connected is shown by newer versions only, when experimental interfaces are on.
 *   Otherwise a device that has a class, as those of classic Bluetooth (BR/EDR) have, and a public address is
 *   taken for one that is connected over BR/EDR, until it sends a request over LE. A phone that has been
 *   paired over both is therefore found with its first request.
 * - The same phone can come back with another address, and is then another central, while it is not bonded.
 *
 * An object of this class belongs to the thread that made it, which runs an event loop. Requests tell it
 * something where the attribute lives on that thread and is of this layer. Slots may do anything, also delete
 * this object.
 */
class PLIM_PERIPHERAL_EXPORT Centrals : public QObject
{
    Q_OBJECT

public:
    /** Why a connection has ended. BlueZ tells it from version 5.83 on. */
    enum Reason
    {
        Unknown,        ///< not told: an older BlueZ, BlueZ's end, an adapter that was unplugged
        Timeout,        ///< nothing more was heard of it
        Local,          ///< this machine ended it, for instance disconnect()
        Remote,         ///< the central ended it
        Authentication, ///< the two ends do not have the same keys
        Suspend         ///< this machine goes to sleep
    };
    Q_ENUM(Reason)

    /** Those at all adapters. */
    explicit Centrals(QObject* parent = nullptr);
    /**
     * Those at one adapter.
     * @param adapter  its name ("hci1") or, better, its address ("AA:BB:CC:DD:EE:FF"); empty for all
     * @param parent   the owner; may be null
     */
    explicit Centrals(const QString& adapter, QObject* parent = nullptr);
    ~Centrals() override;

    /** Those that are connected, in the order in which they connected. */
    QList<Central> connected() const { return m_connected; }

    /** What is known of a central that is connected: of a request's, for instance. A null one where it is not
     * connected. */
    Central find(const Central& central) const;

    /** Gets the error that ended a call; an invalid one after success. */
    using Finished = std::function<void(const QDBusError& error)>;

    /**
     * Ends the link to a central, which takes up to some seconds. centralDisconnected() follows.
     *
     * The whole device is disconnected, over whatever it is connected, and for all programs on this machine.
     * Requests that still wait for an answer are lost, and so are notifications on their way. A central that
     * is not bonded loses its subscriptions. Nothing keeps it from coming back: a phone whose app still wants
     * the connection does so within a second or two. To keep it out, stop advertising first.
     *
     * @param central   one of connected()
     * @param finished  called from the event loop when BlueZ has answered, and not at all once this object
     * has ended; the error is NotConnected for one that is not in connected()
     */
    void disconnect(const Central& central, const Finished& finished = {});
    using QObject::disconnect;

signals:
    /** A central has connected, or was found to be connected. */
    void centralConnected(const plim::Central& central);
    /** Something of it has changed: its name, its pairing, its MTU. */
    void centralChanged(const plim::Central& central);
    /**
     * The connection has ended.
     * @param central  as it was last
     * @param reason   why, where BlueZ says so
     */
    void centralDisconnected(const plim::Central& central, plim::Centrals::Reason reason);

private:
    void on_objectAdded(const QString& path, const QString& interface);
    void on_propertiesChanged(const QString& path, const QString& interface, const QStringList& names);
    void on_objectRemoved(const QString& path, const QString& interface);
    void on_requested(const QString& caller, const QString& device, const QString& link, int mtu);
    bool isConnected(const QString& path) const;
    bool isOverLowEnergy(const QString& path) const;
    Central described(const QString& path) const;
    void updateAll();
    void update(const QString& path);

    const QString m_adapter;
    const std::shared_ptr<detail::BluezObjects> m_bluez;
    const std::shared_ptr<detail::RequestWitness> m_requests;
    const std::shared_ptr<detail::LinkMtus> m_mtus;
    QList<Central> m_connected;
    QHash<QString, QString> m_links;   ///< "LE" or "BR/EDR", as requests have told, by path
    QHash<QString, QString> m_reasons; ///< by path, until the end of the link is known
};

} // namespace plim
