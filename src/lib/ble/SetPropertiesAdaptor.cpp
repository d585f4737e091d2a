#include "SetPropertiesAdaptor.h"

#include "DBusHelper.h"

SetPropertiesAdaptor::SetPropertiesAdaptor(QObject* parent, QDBusAbstractAdaptor* adaptor)
    : QDBusAbstractAdaptor(parent), m_adaptor(adaptor)
{
}

void SetPropertiesAdaptor::show(const char* property)
{
    const QString name = QLatin1String(property);
    if (!m_shown.contains(name)) {
        m_shown << name;
    }
}

QDBusVariant SetPropertiesAdaptor::Get(const QString& interface, const QString& name,
                                       const QDBusMessage& message)
{
    if (!serves(interface, message)) {
        return {};
    }
    const QVariantMap shown = properties();
    if (!shown.contains(name)) {
        DBusHelper::replyUnknownProperty(message, interface, name);
        return {};
    }
    return QDBusVariant(shown.value(name));
}

QVariantMap SetPropertiesAdaptor::GetAll(const QString& interface, const QDBusMessage& message)
{
    return serves(interface, message) ? properties() : QVariantMap();
}

void SetPropertiesAdaptor::Set(const QString& interface, const QString& name, const QDBusVariant& /*value*/,
                               const QDBusMessage& message)
{
    if (!serves(interface, message)) {
        return;
    }
    if (!properties().contains(name)) {
        DBusHelper::replyUnknownProperty(message, interface, name);
        return;
    }
    DBusHelper::replyError(message, QDBusError::PropertyReadOnly,
                           QStringLiteral("Property %1.%2 is read-only").arg(interface, name));
}

/** Whether the interface is the adaptor's; the caller has an error reply otherwise. No name means any
 * interface. */
bool SetPropertiesAdaptor::serves(const QString& interface, const QDBusMessage& message) const
{
    if (interface.isEmpty() || interface == DBusHelper::interfaceName(m_adaptor)) {
        return true;
    }
    DBusHelper::replyUnknownInterface(message, interface);
    return false;
}

/** Name and value of each property that is shown, less what D-Bus cannot carry. */
QVariantMap SetPropertiesAdaptor::properties() const
{
    QVariantMap properties;
    for (const QString& name : m_shown) {
        properties.insert(name, DBusHelper::marshallable(m_adaptor->property(name.toLatin1().constData())));
    }
    const QString scanData = QStringLiteral("ScanData");
    if (properties.contains(scanData)) {
        properties.insert(QStringLiteral("ScanResponseData"), properties.value(scanData));
    }
    return properties;
}
