#pragma once

#include "Central.h"
#include "PlimPeripheralExport.h"

#include <QList>
#include <QMap>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace plim {

namespace detail {
class BluezObjects;
} // namespace detail

/** A central that this machine is bonded with: both keep keys, so that the link is encrypted without a new
 * pairing. */
struct Bond
{
    Central central;          ///< the central, by its path
    QString address;          ///< of the central's identity, "AA:BB:CC:DD:EE:FF"
    QString name;             ///< what it calls itself; its address where BlueZ does not know
    bool isConnected = false; ///< whether there is a link to it now

    /** Whether all of both is the same. */
    friend bool operator==(const Bond& a, const Bond& b)
    {
        return a.central == b.central && a.address == b.address && a.name == b.name &&
               a.isConnected == b.isConnected;
    }
    /** Whether they differ. */
    friend bool operator!=(const Bond& a, const Bond& b) { return !(a == b); }
};

/**
 * The bonds that BlueZ keeps, of all adapters, and the way to end them.
 *
 * BlueZ stores bonds on disk; they survive its restart and the machine's. While BlueZ does not run, this
 * object goes on to show those that it knew.
 *
 * A bond ends on one side at a time. The central that is forgotten here keeps its keys, and usually cannot
 * connect any more until its user lets it forget the device as well. A central that has forgotten this device
 * is still in the list: it connects without encryption, and wants to pair again. A PairingRequest from a
 * central that contains() knows is such a case. BlueZ asks it only if it allows to pair again, see
 * JustWorksRepairing in the guide.
 *
 * On the thread of the event loop.
 */
class PLIM_PERIPHERAL_EXPORT Bonds : public QObject
{
    Q_OBJECT

public:
    /** Knows nothing until isKnown(), unless another object of this layer has asked BlueZ before. */
    explicit Bonds(QObject* parent = nullptr);
    ~Bonds() override;

    /** Whether BlueZ has told its bonds since this object was made. */
    bool isKnown() const { return m_isKnown; }

    /** The bonds, in the order of the centrals' paths. */
    QList<Bond> bonds() const { return m_bonds.values(); }

    /** Whether BlueZ keeps a bond with this central. */
    bool contains(const Central& central) const { return m_bonds.contains(central.path()); }

    /** Ends a bond here; a link to this central is closed. forgotten() tells how it ended. */
    void forget(const Central& central);

    /**
     * Ends all bonds, as for a factory reset. Each is told as forgotten(), and the end as allForgotten().
     * Close the pairing window before, or somebody may pair meanwhile. Does nothing while it is at work.
     */
    void forgetAll();

signals:
    /** BlueZ has told its bonds for the first time. */
    void known();

    /** There is a new bond. */
    void added(const plim::Bond& bond);
    /** The name, the address or the link has changed. */
    void changed(const plim::Bond& bond);
    /** BlueZ has ended the bond, whoever wanted that. Comes before forgotten() or after it. */
    void removed(const plim::Central& central);

    /** How forget() has ended.
     * @param central  whose bond it was
     * @param error  empty for a success; otherwise what BlueZ says, or that it does
     * not run */
    void forgotten(const plim::Central& central, const QString& error);
    /** forgetAll() has ended. @param error  empty if there are no bonds left of those that there were;
     * otherwise why not */
    void allForgotten(const QString& error);

private:
    void readAll();
    void update(const QString& path);
    void remove(const QString& path);
    void removeDevice(const QString& path, const std::function<void(const QString& error)>& finished);
    void finishOne(const QString& path, const QString& error);
    void finishAll();

    const std::shared_ptr<detail::BluezObjects> m_bluez;
    QMap<QString, Bond> m_bonds; ///< by the centrals' paths
    bool m_isKnown = false;
    int m_toForget = 0;   ///< by forgetAll()
    QString m_firstError; ///< of forgetAll()
    bool m_forgetsAll = false;
};

} // namespace plim

Q_DECLARE_METATYPE(plim::Bond)
