#include "PropertiesAdaptor.h"

#include "DBusDetail.h"

#include <algorithm>

namespace {

constexpr int maximumSize = 4096;
constexpr int maximumNames = 64;

int sizeOf(const QVariant& value)
{
    return value.userType() == QMetaType::QByteArray ? value.toByteArray().size()
                                                     : value.toStringList().join(QLatin1Char(' ')).size();
}

/** Whether the object may keep the value; a name that it does not know becomes a property of it for ever. */
bool isAffordable(const QObject* object, const QString& name, const QVariant& value)
{
    const QByteArray utf8 = name.toUtf8();
    const bool isKnown =
        object->metaObject()->indexOfProperty(utf8) >= 0 || object->dynamicPropertyNames().contains(utf8);
    return (isKnown || object->dynamicPropertyNames().size() < maximumNames) && utf8.size() <= maximumSize &&
           sizeOf(value) <= maximumSize;
}

} // namespace

PropertiesAdaptor::PropertiesAdaptor(QObject* parent) : QDBusAbstractAdaptor(parent) {}

QDBusVariant PropertiesAdaptor::Get(const QString& interface, const QString& name,
                                    const QDBusMessage& message)
{
    QDBusVariant value;
    QMetaObject::invokeMethod(parent(), "Get", Q_RETURN_ARG(QDBusVariant, value), Q_ARG(QString, interface),
                              Q_ARG(QString, name));
    // Without an answer of our own the caller would get none at all and wait for its time-out.
    const QVariant carried = DBusDetail::marshallable(value.variant());
    if (carried.isValid()) {
        return QDBusVariant(carried);
    }
    if (servesInterface(interface)) {
        DBusDetail::replyUnknownProperty(message, interface, name);
    } else {
        DBusDetail::replyUnknownInterface(message, interface);
    }
    return {};
}

QVariantMap PropertiesAdaptor::GetAll(const QString& interface)
{
    QVariantMap properties;
    QMetaObject::invokeMethod(parent(), "GetAll", Q_RETURN_ARG(QVariantMap, properties),
                              Q_ARG(QString, interface));
    return DBusDetail::marshallable(properties).toMap();
}

void PropertiesAdaptor::Set(const QString& interface, const QString& name, const QDBusVariant& value,
                            const QDBusMessage& message)
{
    if (!isAffordable(parent(), name, value.variant())) {
        DBusDetail::replyError(message, QDBusError::LimitsExceeded,
                               QStringLiteral("Property %1 would take too much memory").arg(name.left(100)));
        return;
    }
    QMetaObject::invokeMethod(parent(), "Set", Q_ARG(QString, interface), Q_ARG(QString, name),
                              Q_ARG(QDBusVariant, value));
}

bool PropertiesAdaptor::servesInterface(const QString& interface) const
{
    const auto adaptors =
        parent()->findChildren<QDBusAbstractAdaptor*>(QString(), Qt::FindDirectChildrenOnly);
    return std::any_of(adaptors.cbegin(), adaptors.cend(), [&](const QDBusAbstractAdaptor* adaptor) {
        return interface == DBusDetail::interfaceName(adaptor);
    });
}
