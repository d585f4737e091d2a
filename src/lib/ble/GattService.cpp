#include "GattService.h"

#include "DBusHelper.h"
#include "GattNode.h"
#include "GattService1Adaptor.h"
#include "GattSnapshot.h"
#include "OwnConnections.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QPointer>

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

} // namespace

GattService::GattService(QObject* parent, const QString& uuid, bool primary, const QString& dbusPath)
    : QObject(parent), m_uuid(uuid), m_primary(primary), m_dbusPath(dbusPath)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO,
                   "uuid: " << uuid << " primary: " << primary << " dbusPath: " << dbusPath);
    m_adaptor = new GattService1Adaptor(this);
    if (!QDBusConnection::systemBus().registerObject(dbusPath, this, QDBusConnection::ExportAdaptors)) {
        PLIM_LOG(logger, ERROR, Q_FUNC_INFO, "Failed to register GattService1 adaptor at " << dbusPath);
    }
}

QString GattService::uUID() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_uuid;
}

bool GattService::primary() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_primary;
}

QString GattService::dbusPath() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_dbusPath;
}

QDBusObjectPath GattService::objectPath() const
{
    return GattNode::objectPath(dbusPath(), m_objectPath);
}

GattSnapshot GattService::snapshot() const
{
    GattSnapshot service;
    service.kind = GattSnapshot::Service;
    service.path = m_dbusPath;
    service.exportState = Preflight::exportState(this, m_dbusPath);
    service.uuid = m_uuid;
    service.children =
        GattNode::childSnapshots(*this, m_characteristics, [](const GattCharacteristic& characteristic) {
            return characteristic.snapshot();
        });
    return service;
}

DBusInterfaceList GattService::dbusInterfaceList() const
{
    return DBusHelper::generateDBusInterfaceList(GattNode::servingAdaptor(this, m_adaptor));
}

QList<GattCharacteristic*> GattService::characteristics() const
{
    return m_characteristics.values();
}

GattCharacteristic* GattService::createCharacteristic(const QString& uuid, GattCharacteristic::Option option,
                                                      GattCharacteristic* control)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "uuid: " << uuid);
    const QString path = GattNode::childPath(m_dbusPath, uuid);
    return record(new GattCharacteristic(this, uuid, path, option, control), uuid);
}

GattCharacteristic* GattService::record(GattCharacteristic* characteristic, const QString& key)
{
    const QPointer<GattCharacteristic> recorded = characteristic;
    OwnConnections::add(m_connections, plim::connect(characteristic, &GattCharacteristic::handlesChanged,
                                                     this, &GattService::handlesChanged));
    OwnConnections::add(m_connections, plim::connect(characteristic, &QObject::destroyed, this,
                                                     &GattService::on_characteristicDeleted));
    m_characteristics.insert(key, characteristic);
    emit handlesChanged();
    return recorded;
}

void GattService::on_characteristicDeleted(QObject* obj)
{
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, "");
    if (GattNode::forgetChild(m_characteristics, obj)) {
        emit handlesChanged();
    }
}
