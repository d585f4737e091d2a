#include "GattApplication.h"

#include "GattNode.h"
#include "GattPreflight.h"
#include "GattSnapshot.h"
#include "ObjectManagerAdaptor.h"
#include "OwnConnections.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QPointer>

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

} // namespace

GattApplication::GattApplication(QObject* parent, const QString& dbusPath, const QString& serviceName)
    : QObject(parent), m_dbusPath(dbusPath)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "dbusPath: " << dbusPath << " serviceName: " << serviceName);
    registerDBusTypes();
    new ObjectManagerAdaptor(this);
    QDBusConnection bus = QDBusConnection::systemBus();
    if (bus.registerObject(dbusPath, this, QDBusConnection::ExportAdaptors)) {
        bus.registerService(serviceName);
    } else {
        PLIM_LOG(logger, FATAL, Q_FUNC_INFO, "Failed to register ObjectManager at " << dbusPath);
    }
}

QString GattApplication::dbusPath() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_dbusPath;
}

QList<GattService*> GattApplication::services() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_services.values();
}

GattService* GattApplication::createService(const QString& uuid, bool primary)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "uuid: " << uuid << " primary: " << primary);
    const QString path = GattNode::childPath(m_dbusPath, uuid);
    return record(new GattService(this, uuid, primary, path), uuid);
}

GattService* GattApplication::record(GattService* service, const QString& key)
{
    const QPointer<GattService> recorded = service;
    OwnConnections::add(m_connections, plim::connect(service, &GattService::handlesChanged, this,
                                                     &GattApplication::on_handlesChanged));
    OwnConnections::add(m_connections, plim::connect(service, &QObject::destroyed, this,
                                                     &GattApplication::on_serviceDeleted));
    m_services.insert(key, service);
    emit applicationChanged(this);
    return recorded;
}

BleFindings GattApplication::problems() const
{
    return GattPreflight::findings(snapshot());
}

GattSnapshot GattApplication::snapshot() const
{
    GattSnapshot app;
    app.path = m_dbusPath;
    app.exportState = Preflight::exportState(this, m_dbusPath);
    app.children = GattNode::childSnapshots(*this, m_services,
                                            [](const GattService& service) { return service.snapshot(); });
    return app;
}

DBusManagedObjectList GattApplication::GetManagedObjects()
{
    DBusManagedObjectList objects;
    const auto list = [&objects](const auto* object) {
        const DBusInterfaceList interfaces = object->dbusInterfaceList();
        // The objects come mostly in the order of their paths, so the end of the map is a good hint.
        objects.insert(objects.cend(), object->objectPath(), interfaces);
    };
    for (const GattService* service : m_services.values()) {
        list(service);
        for (const GattCharacteristic* characteristic : service->characteristics()) {
            list(characteristic);
            for (const GattDescriptor* descriptor : characteristic->descriptors()) {
                list(descriptor);
            }
        }
    }
    return objects;
}

void GattApplication::on_handlesChanged()
{
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, "");
    emit applicationChanged(this);
}

void GattApplication::on_serviceDeleted(QObject* obj)
{
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, "");
    if (GattNode::forgetChild(m_services, obj)) {
        emit applicationChanged(this);
    }
}
