#include "GattCharacteristic.h"

#include "BluezInterfaces.h"
#include "DBusDetail.h"
#include "DBusHelper.h"
#include "GattCharacteristic1Adaptor.h"
#include "GattNode.h"
#include "GattService.h"
#include "GattSnapshot.h"
#include "GattValue.h"
#include "LogText.h"
#include "OwnConnections.h"
#include "PropertiesAdaptor.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QStringBuilder>

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

} // namespace

GattCharacteristic::GattCharacteristic(GattService* service, const QString& uuid, const QString& dbusPath,
                                       Option option, GattCharacteristic* control)
    : QObject(service),
      m_service(service),
      m_uuid(uuid),
      m_option(option),
      m_control(control),
      m_dbusPath(dbusPath)
{
    m_adaptor = new GattCharacteristic1Adaptor(this);
    m_propertiesAdaptor = new PropertiesAdaptor(this);
    if (!QDBusConnection::systemBus().registerObject(dbusPath, this, QDBusConnection::ExportAdaptors)) {
        PLIM_LOG(logger, ERROR,
                 "GattCharacteristic::GattCharacteristic(GattService*, const QString&, const QString&, "
                 "GattCharacteristic::Option, GattCharacteristic*)",
                 "Failed to register GattCharacteristic1 adaptor at " << dbusPath);
        return;
    }
    plim::connect(
        this, &GattCharacteristic::PropertiesChanged, m_propertiesAdaptor,
        [this](const QString& interface, const QVariantMap& changed, const QStringList& invalidated) {
            if (m_value.size() > DBusDetail::maximumLength) {
                // The bus would drop the connection, or libdbus would abort the process.
                PLIM_LOG(logger, ERROR, "void GattCharacteristic::notifyValueChanged()",
                         "Value too long to be notified at " << m_dbusPath);
                return;
            }
            emit m_propertiesAdaptor->PropertiesChanged(interface, changed, invalidated);
        });
    if (control) {
        OwnConnections::add(m_connections, plim::connect(control, &GattCharacteristic::valueChanged, this,
                                                         &GattCharacteristic::on_control_valueChanged));
    }
}

QByteArray GattCharacteristic::value() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_value;
}

QByteArray GattCharacteristic::cachedValue() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_cachedValue;
}

void GattCharacteristic::setValue(const QByteArray& value)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "uuid: " << m_uuid);
    if (m_control) {
        m_pendingValue = value;
        m_hasPendingValue = true;
        if (!m_control->value().isEmpty()) {
            return;
        }
    }
    m_value = value;
    notifyValueChanged();
}

void GattCharacteristic::setReadCallback(const std::function<QByteArray()>& callback)
{
    std::function<QByteArray()>(callback).swap(m_readCallback);
}

QStringList GattCharacteristic::flags() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    QStringList flags;
    if (m_option & Read) {
        flags << QStringLiteral("read");
    }
    if (m_option & Write) {
        flags << QStringLiteral("write");
    }
    if (m_option & Notify) {
        flags << QStringLiteral("notify");
    }
    return flags;
}

QString GattCharacteristic::uUID() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_uuid;
}

QDBusObjectPath GattCharacteristic::service() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    // While the service deletes its children, m_service is null. Its path is this path without the last
    // element.
    return GattNode::objectPath(m_service ? m_service->dbusPath()
                                          : m_dbusPath.left(m_dbusPath.lastIndexOf(QLatin1Char('/'))),
                                m_servicePath);
}

QString GattCharacteristic::dbusPath() const
{
    return m_dbusPath;
}

QDBusObjectPath GattCharacteristic::objectPath() const
{
    return GattNode::objectPath(m_dbusPath, m_objectPath);
}

GattSnapshot GattCharacteristic::snapshot() const
{
    GattSnapshot characteristic;
    characteristic.kind = GattSnapshot::Characteristic;
    characteristic.path = m_dbusPath;
    characteristic.exportState = Preflight::exportState(this, m_dbusPath);
    characteristic.uuid = m_uuid;
    characteristic.hasFlags = (m_option & (Read | Write | Notify)) != 0;
    characteristic.notifies = (m_option & Notify) != 0;
    characteristic.hasValue = !m_value.isNull() || m_hasPendingValue || m_readCallback;
    characteristic.children = GattNode::childSnapshots(
        *this, m_descriptors, [](const GattDescriptor& descriptor) { return descriptor.snapshot(); });
    return characteristic;
}

bool GattCharacteristic::notifying() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_notifying;
}

void GattCharacteristic::notifyValueChanged()
{
    if (m_notifying) {
        emit PropertiesChanged(BluezInterfaces::GattCharacteristic, {{QStringLiteral("Value"), m_value}}, {});
    }
}

DBusInterfaceList GattCharacteristic::dbusInterfaceList() const
{
    return DBusHelper::generateDBusInterfaceList(GattNode::servingAdaptor(this, m_adaptor));
}

QList<GattDescriptor*> GattCharacteristic::descriptors() const
{
    return m_descriptors.values();
}

GattDescriptor* GattCharacteristic::addDescriptor(const QString& uuid, GattDescriptor::Option option)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "uuid: " << uuid);
    const QString path = m_dbusPath % QLatin1String("/desc") % QString::number(m_descriptorIndex++);
    return record(new GattDescriptor(this, uuid, path, option), uuid);
}

GattDescriptor* GattCharacteristic::record(GattDescriptor* descriptor, const QString& key)
{
    const QPointer<GattDescriptor> recorded = descriptor;
    OwnConnections::add(m_connections, plim::connect(descriptor, &QObject::destroyed, this,
                                                     &GattCharacteristic::on_descriptorDeleted));
    m_descriptors.insert(key, descriptor);
    emit handlesChanged();
    return recorded;
}

QByteArray GattCharacteristic::ReadValue(const QVariantMap& options)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "uuid: " << m_uuid << " options: " << LogText::map(options));
    const qint64 offset = GattValue::offsetOf(options);
    const QByteArray text = m_control ? m_control->value() : QByteArray();
    bool paged = false;
    const qint64 page = text.toInt(&paged, 10);
    if (!paged && !text.isEmpty()) {
        PLIM_LOG(logger, WARN, Q_FUNC_INFO, "Invalid page offset: " << text);
    }
    const bool fetch = offset == 0 && page <= 0 && m_readCallback;
    const QPointer<GattCharacteristic> self = this;
    const QByteArray value = fetch ? GattValue::refresh(this, m_value, m_readCallback, m_uuid) : m_value;
    QByteArray slice = paged && page >= 0 ? GattValue::mid(value, offset + page * GattValue::pageSize,
                                                           GattValue::pageSize - offset)
                                          : GattValue::mid(value, offset);
    if (self) {
        m_cachedValue = slice;
    }
    return slice;
}

void GattCharacteristic::StartNotify()
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    m_notifying = true;
    emit notifyStateChanged(true);
}

void GattCharacteristic::StopNotify()
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    m_notifying = false;
    emit notifyStateChanged(false);
}

void GattCharacteristic::Confirm()
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
}

void GattCharacteristic::WriteValue(const QByteArray& value, const QVariantMap& options)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO,
                   "uuid: " << m_uuid << " size: " << value.size() << ", options: " << LogText::map(options));
    qint64 offset = GattValue::offsetOf(options);
    if (m_control) {
        const qint64 page = m_control->value().toInt(nullptr, 10);
        if (page < 0) {
            PLIM_LOG(logger, ERROR, Q_FUNC_INFO, "Invalid page offset: " << page);
            return;
        }
        offset += page * GattValue::pageSize;
    }
    if (!GattValue::overwrite(m_value, offset, value, m_uuid)) {
        return;
    }
    const QPointer<GattCharacteristic> self = this;
    emit valueChanged();
    if (self) {
        notifyValueChanged();
    }
}

QDBusVariant GattCharacteristic::Get(const QString& interface, const QString& name)
{
    return QDBusVariant(interface == BluezInterfaces::GattCharacteristic ? property(name.toUtf8().constData())
                                                                         : QVariant());
}

QVariantMap GattCharacteristic::GetAll(const QString& interface)
{
    return interface == BluezInterfaces::GattCharacteristic ? dbusInterfaceList().value(interface)
                                                            : QVariantMap();
}

void GattCharacteristic::Set(const QString& interface, const QString& name, const QDBusVariant& value)
{
    if (interface == BluezInterfaces::GattCharacteristic) {
        setProperty(name.toUtf8().constData(), value.variant());
    }
}

void GattCharacteristic::on_control_valueChanged()
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    if (m_control && m_control->value() == "0" && m_hasPendingValue) {
        m_value = m_pendingValue;
        m_hasPendingValue = false;
        notifyValueChanged();
    }
}

void GattCharacteristic::on_descriptorDeleted(QObject* obj)
{
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, "");
    if (GattNode::forgetChild(m_descriptors, obj)) {
        emit handlesChanged();
    }
}
