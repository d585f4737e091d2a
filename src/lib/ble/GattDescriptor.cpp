#include "GattDescriptor.h"

#include "DBusHelper.h"
#include "GattCharacteristic.h"
#include "GattDescriptor1Adaptor.h"
#include "GattNode.h"
#include "GattSnapshot.h"
#include "GattValue.h"
#include "LogText.h"
#include "ReadOnlyPropertiesAdaptor.h"
#include "plimlog.h"

#include <QDBusConnection>

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

} // namespace

GattDescriptor::GattDescriptor(GattCharacteristic* characteristic, const QString& uuid,
                               const QString& dbusPath, Option option)
    : QObject(characteristic),
      m_characteristic(characteristic),
      m_uuid(uuid),
      m_dbusPath(dbusPath),
      m_option(option)
{
    m_adaptor = new GattDescriptor1Adaptor(this);
    // A read callback may return more than a message can hold.
    (new ReadOnlyPropertiesAdaptor(this, m_adaptor))->showAll();
    if (!QDBusConnection::systemBus().registerObject(dbusPath, this, QDBusConnection::ExportAdaptors)) {
        PLIM_LOG(logger, ERROR,
                 "GattDescriptor::GattDescriptor(GattCharacteristic*, const QString&, const QString&, "
                 "GattDescriptor::Option)",
                 "Failed to register GattDescriptor1 adaptor at " << dbusPath);
    }
}

void GattDescriptor::setReadCallback(const std::function<QByteArray()>& callback)
{
    std::function<QByteArray()>(callback).swap(m_readCallback);
}

QString GattDescriptor::dbusPath() const
{
    return m_dbusPath;
}

QDBusObjectPath GattDescriptor::objectPath() const
{
    return GattNode::objectPath(m_dbusPath, m_objectPath);
}

GattSnapshot GattDescriptor::snapshot() const
{
    GattSnapshot descriptor;
    descriptor.kind = GattSnapshot::Descriptor;
    descriptor.path = m_dbusPath;
    descriptor.exportState = Preflight::exportState(this, m_dbusPath);
    descriptor.uuid = m_uuid;
    descriptor.hasFlags = (m_option & (Read | Write)) != 0;
    return descriptor;
}

DBusInterfaceList GattDescriptor::dbusInterfaceList() const
{
    return DBusHelper::generateDBusInterfaceList(m_adaptor);
}

QDBusObjectPath GattDescriptor::characteristic() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    // While the characteristic deletes its children, m_characteristic is null.
    return GattNode::objectPath(m_characteristic ? m_characteristic->dbusPath()
                                                 : m_dbusPath.left(m_dbusPath.lastIndexOf(QLatin1Char('/'))),
                                m_characteristicPath);
}

QString GattDescriptor::uuid() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_uuid;
}

QByteArray GattDescriptor::value() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return m_value;
}

QStringList GattDescriptor::flags() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    QStringList flags;
    if (m_option & Read) {
        flags << QStringLiteral("read");
    }
    if (m_option & Write) {
        flags << QStringLiteral("write");
    }
    return flags;
}

QByteArray GattDescriptor::ReadValue(const QVariantMap& flags)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "uuid: " << m_uuid << " options: " << LogText::map(flags));
    const qint64 offset = GattValue::offsetOf(flags);
    const bool fetch = offset == 0 && m_readCallback;
    const QByteArray value = fetch ? GattValue::refresh(this, m_value, m_readCallback, m_uuid) : m_value;
    return GattValue::mid(value, offset, GattValue::pageSize - offset);
}

void GattDescriptor::WriteValue(const QByteArray& value, const QVariantMap& flags)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO,
                   "uuid: " << m_uuid << " size: " << value.size() << ", options: " << LogText::map(flags));
    if (GattValue::overwrite(m_value, GattValue::offsetOf(flags), value, m_uuid)) {
        emit valueChanged();
    }
}
