#include "DBusHelper.h"

#include <QDBusAbstractAdaptor>
#include <QDBusMetaType>
#include <QDBusSignature>
#include <QDBusVariant>
#include <QMetaClassInfo>
#include <QMetaProperty>

#include <algorithm>

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
    const QMetaObject* metaObject = adaptor->metaObject();
    const int nameIndex = metaObject->indexOfClassInfo("D-Bus Interface");
    if (nameIndex < 0) {
        return {};
    }
    QVariantMap properties;
    for (int i = QDBusAbstractAdaptor::staticMetaObject.propertyCount(); i < metaObject->propertyCount(); ++i) {
        const QMetaProperty property = metaObject->property(i);
        properties.insert(QString::fromLatin1(property.name()), property.read(adaptor));
    }
    return {{QString::fromLatin1(metaObject->classInfo(nameIndex).value()), properties}};
}

bool DBusHelper::isMarshallable(const QVariant& value)
{
    const int type = value.userType();
    if (type == qMetaTypeId<QDBusObjectPath>()) {
        return !value.value<QDBusObjectPath>().path().isEmpty();
    }
    if (type == qMetaTypeId<QDBusSignature>()) {
        return !value.value<QDBusSignature>().signature().isEmpty();
    }
    if (type == qMetaTypeId<QDBusVariant>()) {
        return isMarshallable(value.value<QDBusVariant>().variant());
    }
    if (type == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        return std::all_of(map.cbegin(), map.cend(), isMarshallable);
    }
    if (type == QMetaType::QVariantList) {
        const QVariantList list = value.toList();
        return std::all_of(list.cbegin(), list.cend(), isMarshallable);
    }
    return value.isValid() && QDBusMetaType::typeToSignature(type);
}
