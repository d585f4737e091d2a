#include "AdvertisementProperties.h"

#include "BluezInterfaces.h"
#include "DBusDetail.h"

namespace {

/** The adaptor of the object that serves the interface. */
QObject* adaptorOf(const QObject* object, const QString& interface)
{
    const auto adaptors = object->findChildren<QDBusAbstractAdaptor*>(QString(), Qt::FindDirectChildrenOnly);
    for (QDBusAbstractAdaptor* adaptor : adaptors) {
        if (DBusDetail::interfaceName(adaptor) == interface) {
            return adaptor;
        }
    }
    return nullptr;
}

} // namespace

plim::detail::AdvertisementProperties::AdvertisementProperties(QObject* advertisement)
    : QDBusAbstractAdaptor(advertisement),
      m_base(adaptorOf(advertisement, QStringLiteral("org.freedesktop.DBus.Properties")))
{
    Q_ASSERT(m_base && m_base != this);
}

void plim::detail::AdvertisementProperties::setShown(const QString& name, bool shown)
{
    m_shown.removeAll(name);
    if (shown) {
        m_shown << name;
    }
}

QVariantMap plim::detail::AdvertisementProperties::all()
{
    return GetAll(BluezInterfaces::Advertisement, QDBusMessage());
}

void plim::detail::AdvertisementProperties::announce(const QStringList& names)
{
    const QVariantMap present = all();
    QVariantMap changed;
    for (const QString& name : names) {
        if (present.contains(name)) {
            changed.insert(name, present.value(name));
        }
    }
    emit PropertiesChanged(BluezInterfaces::Advertisement, changed, {});
}

QDBusVariant plim::detail::AdvertisementProperties::Get(const QString& interface, const QString& name,
                                                        const QDBusMessage& message)
{
    if (shows(interface, name)) {
        return QDBusVariant(value(name));
    }
    QDBusVariant answer;
    QMetaObject::invokeMethod(m_base, "Get", Q_RETURN_ARG(QDBusVariant, answer), Q_ARG(QString, interface),
                              Q_ARG(QString, name), Q_ARG(QDBusMessage, message));
    return answer;
}

QVariantMap plim::detail::AdvertisementProperties::GetAll(const QString& interface,
                                                          const QDBusMessage& message)
{
    QVariantMap properties;
    QMetaObject::invokeMethod(m_base, "GetAll", Q_RETURN_ARG(QVariantMap, properties),
                              Q_ARG(QString, interface), Q_ARG(QDBusMessage, message));
    for (const QString& name : m_shown) {
        if (shows(interface, name)) {
            properties.insert(name, value(name));
        }
    }
    return properties;
}

void plim::detail::AdvertisementProperties::Set(const QString& interface, const QString& name,
                                                const QDBusVariant& value, const QDBusMessage& message)
{
    if (shows(interface, name)) {
        DBusDetail::replyReadOnlyProperty(message, interface, name);
        return;
    }
    QMetaObject::invokeMethod(m_base, "Set", Q_ARG(QString, interface), Q_ARG(QString, name),
                              Q_ARG(QDBusVariant, value), Q_ARG(QDBusMessage, message));
}

/** Whether the property is shown here; no interface name means any interface. */
bool plim::detail::AdvertisementProperties::shows(const QString& interface, const QString& name) const
{
    return (interface.isEmpty() || interface == BluezInterfaces::Advertisement) && m_shown.contains(name);
}

QVariant plim::detail::AdvertisementProperties::value(const QString& name) const
{
    return DBusDetail::marshallable(parent()->property(name.toLatin1().constData()));
}
