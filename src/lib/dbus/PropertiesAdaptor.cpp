#include "PropertiesAdaptor.h"

#include "DBusDetail.h"
#include "ValueSize.h"
#include "plimlog.h"

#include <algorithm>

namespace {

constexpr int maximumSize = 4096;
constexpr int maximumNames = 64;

bool isDeclared(const QObject* object, const QByteArray& name)
{
    return object->metaObject()->indexOfProperty(name.constData()) >= 0;
}

/** Whether the object may store the value as a dynamic property, which is never removed. */
bool isAffordable(const QObject* object, const QByteArray& name, const QVariant& value)
{
    const QByteArrayList names = object->dynamicPropertyNames();
    return (names.size() < maximumNames || names.contains(name)) && name.size() <= maximumSize &&
           ValueSize::isWithin(maximumSize, value);
}

} // namespace

PropertiesAdaptor::PropertiesAdaptor(QObject* parent) : QDBusAbstractAdaptor(parent) {}

QDBusVariant PropertiesAdaptor::Get(const QString& interface, const QString& name,
                                    const QDBusMessage& message)
{
    QDBusVariant value;
    QMetaObject::invokeMethod(parent(), "Get", Q_RETURN_ARG(QDBusVariant, value), Q_ARG(QString, interface),
                              Q_ARG(QString, name));
    // Qt cannot send an invalid value: without an error from here, the caller would wait for its time-out.
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
    const QByteArray utf8 = name.toUtf8();
    if (servesInterface(interface) && !isDeclared(parent(), utf8) &&
        !isAffordable(parent(), utf8, value.variant())) {
        PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
                 "Property " << name.left(100) << " of " << message.path()
                             << " not set: it would take too much memory");
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
