#include "OrgFreedesktopDBusObjectManagerInterface.h"

#include "ServiceSignals.h"
#include "plim.h"

namespace {

const QString added = QStringLiteral("InterfacesAdded");
const QString removed = QStringLiteral("InterfacesRemoved");

} // namespace

OrgFreedesktopDBusObjectManagerInterface::OrgFreedesktopDBusObjectManagerInterface(
    const QString& service, const QString& path, const QDBusConnection& connection, QObject* parent)
    : QDBusAbstractInterface(service, path, staticInterfaceName(), connection, parent)
{
    auto* announcements = new ServiceSignals(service, connection, this);
    plim::connect(announcements, &ServiceSignals::received, this,
                  &OrgFreedesktopDBusObjectManagerInterface::announce);
    announcements->subscribe(path, interface(), added, QStringLiteral("oa{sa{sv}}"));
    announcements->subscribe(path, interface(), removed, QStringLiteral("oas"));
}

OrgFreedesktopDBusObjectManagerInterface::~OrgFreedesktopDBusObjectManagerInterface() = default;

QDBusPendingReply<DBusManagedObjectList> OrgFreedesktopDBusObjectManagerInterface::GetManagedObjects()
{
    return asyncCall(QStringLiteral("GetManagedObjects"));
}

void OrgFreedesktopDBusObjectManagerInterface::connectNotify(const QMetaMethod& /*signal*/) {}

void OrgFreedesktopDBusObjectManagerInterface::disconnectNotify(const QMetaMethod& /*signal*/) {}

void OrgFreedesktopDBusObjectManagerInterface::announce(const QDBusMessage& signal)
{
    const auto object = signal.arguments().at(0).value<QDBusObjectPath>();
    const QVariant interfaces = signal.arguments().at(1);
    if (signal.member() == added) {
        emit InterfacesAdded(object, qdbus_cast<DBusInterfaceList>(interfaces));
    } else {
        emit InterfacesRemoved(object, interfaces.toStringList());
    }
}
