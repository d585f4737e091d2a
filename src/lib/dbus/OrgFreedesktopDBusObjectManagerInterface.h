#pragma once

#include "DBusTypes.h"
#include "PlimDBusExport.h"

#include <QtDBus/QtDBus>

/**
 * Another program's org.freedesktop.DBus.ObjectManager.
 *
 * The signals are those of the owner of the service's name, and none is lost: not even one that was sent
 * before the first turn of the event loop, or before the news arrived that the name has an owner. They arrive
 * from the event loop of this object's thread, from the moment of construction on. A line at ERROR in the log
 * (logger "Ble") says when they cannot arrive, for instance without a bus.
 */
class PLIM_DBUS_EXPORT OrgFreedesktopDBusObjectManagerInterface : public QDBusAbstractInterface
{
    Q_OBJECT

public:
    /** "org.freedesktop.DBus.ObjectManager" */
    static const char* staticInterfaceName() { return "org.freedesktop.DBus.ObjectManager"; }

    /**
     * @param service     the bus name of the program
     * @param path        the path of its object manager
     * @param connection  the bus
     * @param parent      the owner of this object
     */
    OrgFreedesktopDBusObjectManagerInterface(const QString& service, const QString& path,
                                             const QDBusConnection& connection, QObject* parent = nullptr);
    ~OrgFreedesktopDBusObjectManagerInterface() override;

public slots:
    /** Asks for all objects, without waiting for the answer. */
    QDBusPendingReply<DBusManagedObjectList> GetManagedObjects();

signals:
    /** There is an object, or it has these interfaces, too. */
    void InterfacesAdded(const QDBusObjectPath& object, DBusInterfaceList interfaces);
    /** An object no longer has these interfaces. */
    void InterfacesRemoved(const QDBusObjectPath& object, const QStringList& interfaces);

private:
    // The base class would subscribe, too, and every signal would arrive twice.
    void connectNotify(const QMetaMethod& signal) override;
    void disconnectNotify(const QMetaMethod& signal) override;

    void announce(const QDBusMessage& signal);
};

namespace org {
namespace freedesktop {
namespace DBus {
using ObjectManager = ::OrgFreedesktopDBusObjectManagerInterface;
} // namespace DBus
} // namespace freedesktop
} // namespace org
