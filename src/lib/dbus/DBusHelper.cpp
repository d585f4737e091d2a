#include "DBusHelper.h"

#include "DBusDetail.h"

#include <QDBusAbstractAdaptor>
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
    const QString interface = DBusDetail::interfaceName(adaptor);
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
