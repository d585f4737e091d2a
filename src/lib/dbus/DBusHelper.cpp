#include "DBusHelper.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QMetaClassInfo>
#include <QMetaProperty>

QString DBusHelper::findFirstObjectPath(const DBusManagedObjectList& objects, const QString& interfaceName)
{
    for (auto it = objects.cbegin(); it != objects.cend(); ++it) {
        if (it->contains(interfaceName)) {
            return it.key().path();
        }
    }
    return {};
}

DBusInterfaceList DBusHelper::generateDBusInterfaceList(QObject* adaptor)
{
    if (!adaptor) {
        return {};
    }
    const QString interface = interfaceName(adaptor);
    if (interface.isEmpty()) {
        return {};
    }
    const QMetaObject* metaObject = adaptor->metaObject();
    QVariantMap properties;
    for (int i = QDBusAbstractAdaptor::staticMetaObject.propertyCount(); i < metaObject->propertyCount();
         ++i) {
        const QMetaProperty property = metaObject->property(i);
        properties.insert(QString::fromLatin1(property.name()), property.read(adaptor));
    }
    return {{interface, properties}};
}

QString DBusHelper::interfaceName(const QObject* adaptor)
{
    const QMetaObject* metaObject = adaptor->metaObject();
    const int index = metaObject->indexOfClassInfo("D-Bus Interface");
    return index < 0 ? QString() : QString::fromLatin1(metaObject->classInfo(index).value());
}

QVariant DBusHelper::marshallable(const QVariant& value)
{
    const int type = value.userType();
    if (type == QMetaType::QVariantMap) {
        QVariantMap map;
        const QVariantMap all = value.toMap();
        for (auto it = all.cbegin(); it != all.cend(); ++it) {
            const QVariant entry = marshallable(*it);
            if (entry.isValid()) {
                map.insert(it.key(), entry);
            }
        }
        return map;
    }
    if (type == QMetaType::QVariantList) {
        QVariantList list;
        for (const QVariant& item : value.toList()) {
            const QVariant kept = marshallable(item);
            if (kept.isValid()) {
                list << kept;
            }
        }
        return list;
    }
    if (type == qMetaTypeId<QDBusVariant>()) {
        const QVariant inner = marshallable(value.value<QDBusVariant>().variant());
        return inner.isValid() ? QVariant::fromValue(QDBusVariant(inner)) : QVariant();
    }
    const bool emptyPath =
        type == qMetaTypeId<QDBusObjectPath>() && value.value<QDBusObjectPath>().path().isEmpty();
    return value.isValid() && !emptyPath && QDBusMetaType::typeToSignature(type) ? value : QVariant();
}

void DBusHelper::replyError(const QDBusMessage& call, QDBusError::ErrorType error, const QString& text)
{
    call.setDelayedReply(true);
    QDBusConnection::systemBus().send(call.createErrorReply(error, text));
}

void DBusHelper::replyUnknownInterface(const QDBusMessage& call, const QString& interface)
{
    replyError(call, QDBusError::UnknownInterface,
               QStringLiteral("Interface %1 was not found in object %2").arg(interface, call.path()));
}

void DBusHelper::replyUnknownProperty(const QDBusMessage& call, const QString& interface, const QString& name)
{
    replyError(call, QDBusError::UnknownProperty,
               QStringLiteral("Property %1.%2 was not found in object %3").arg(interface, name, call.path()));
}
