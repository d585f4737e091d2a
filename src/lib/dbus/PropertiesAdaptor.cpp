#include "PropertiesAdaptor.h"

#include "DBusHelper.h"

#include <QDBusConnection>
#include <QMetaClassInfo>

#include <algorithm>

PropertiesAdaptor::PropertiesAdaptor(QObject* parent)
    : QDBusAbstractAdaptor(parent)
{
}

QDBusVariant PropertiesAdaptor::Get(const QString& interface, const QString& name, const QDBusMessage& message)
{
    QDBusVariant value;
    QMetaObject::invokeMethod(parent(), "Get", Q_RETURN_ARG(QDBusVariant, value), Q_ARG(QString, interface),
                              Q_ARG(QString, name));
    if (DBusHelper::isMarshallable(value.variant())) {
        return value;
    }
    // Without an answer of our own the caller would get none at all and wait for its time-out.
    message.setDelayedReply(true);
    const bool known = servesInterface(interface);
    const QString text = known ? QStringLiteral("No such property '%1' in interface '%2'").arg(name, interface)
                               : QStringLiteral("No such interface '%1'").arg(interface);
    QDBusConnection::systemBus().send(message.createErrorReply(
        known ? QDBusError::UnknownProperty : QDBusError::UnknownInterface, text));
    return value;
}

QVariantMap PropertiesAdaptor::GetAll(const QString& interface)
{
    QVariantMap properties;
    QMetaObject::invokeMethod(parent(), "GetAll", Q_RETURN_ARG(QVariantMap, properties),
                              Q_ARG(QString, interface));
    for (auto it = properties.begin(); it != properties.end();) {
        it = DBusHelper::isMarshallable(*it) ? it + 1 : properties.erase(it);
    }
    return properties;
}

void PropertiesAdaptor::Set(const QString& interface, const QString& name, const QDBusVariant& value)
{
    QMetaObject::invokeMethod(parent(), "Set", Q_ARG(QString, interface), Q_ARG(QString, name),
                              Q_ARG(QDBusVariant, value));
}

bool PropertiesAdaptor::servesInterface(const QString& interface) const
{
    const auto adaptors = parent()->findChildren<QDBusAbstractAdaptor*>(QString(), Qt::FindDirectChildrenOnly);
    return std::any_of(adaptors.cbegin(), adaptors.cend(), [&](const QDBusAbstractAdaptor* adaptor) {
        const QMetaObject* metaObject = adaptor->metaObject();
        const int index = metaObject->indexOfClassInfo("D-Bus Interface");
        return index >= 0 && interface == QLatin1String(metaObject->classInfo(index).value());
    });
}
