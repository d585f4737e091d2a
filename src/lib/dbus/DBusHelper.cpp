#include "DBusHelper.h"

#include "DBusDetail.h"
#include "QtVersion.h"

#include <QDBusAbstractAdaptor>
#include <QHash>
#include <QMetaProperty>
#include <QVector>

#include <cstring>

namespace {

/** Where a property is in its class. */
struct Property
{
    int index;
    int type; ///< QMetaType::UnknownType if only QMetaProperty can read it
};

/** What is known of an adaptor's class. */
struct AdaptorClass
{
    QByteArray name;
    QString interface;
    QVariantMap blank;            ///< the properties without values: a copy of it gets the values
    QVector<Property> properties; ///< in the order of their names
};

Property describe(const QMetaProperty& property)
{
    const int type = property.userType();
    const bool isPlain = !property.isEnumType() && type != QMetaType::QVariant;
    return {property.propertyIndex(), isPlain ? type : int(QMetaType::UnknownType)};
}

AdaptorClass describe(const QObject* adaptor)
{
    const QMetaObject* metaObject = adaptor->metaObject();
    AdaptorClass result{metaObject->className(), DBusDetail::interfaceName(adaptor), {}, {}};
    for (int i = QDBusAbstractAdaptor::staticMetaObject.propertyCount(); i < metaObject->propertyCount();
         ++i) {
        result.blank.insert(QString::fromLatin1(metaObject->property(i).name()), QVariant());
    }
    for (auto it = result.blank.keyBegin(); it != result.blank.keyEnd(); ++it) {
        const int index = metaObject->indexOfProperty(it->toLatin1().constData());
        result.properties.append(describe(metaObject->property(index)));
    }
    return result;
}

/** The description of the adaptor's class, made once in each thread. */
AdaptorClass classOf(const QObject* adaptor)
{
    thread_local QHash<const QMetaObject*, AdaptorClass> known;
    const QMetaObject* metaObject = adaptor->metaObject();
    AdaptorClass& entry = known[metaObject];
    // When a class was unloaded, another one may have got its address.
    if (std::strcmp(entry.name.constData(), metaObject->className()) != 0) {
        entry = describe(adaptor);
    }
    return entry;
}

/** QMetaProperty::read() without the search for the type. */
QVariant read(QObject* adaptor, const Property& property)
{
    if (property.type == QMetaType::UnknownType) {
        return adaptor->metaObject()->property(property.index).read(adaptor);
    }
    QVariant value(QtVersion::Type(property.type), nullptr);
    int status = -1;
    void* arguments[] = {value.data(), &value, &status};
    QMetaObject::metacall(adaptor, QMetaObject::ReadProperty, property.index, arguments);
    return value;
}

} // namespace

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
    DBusInterfaceList list;
    if (!adaptor) {
        return list;
    }
    const AdaptorClass known = classOf(adaptor); // a copy: a property's getter may call this again
    if (known.interface.isEmpty()) {
        return list;
    }
    QVariantMap properties = known.blank;
    auto value = properties.begin();
    for (const Property& property : known.properties) {
        *value++ = read(adaptor, property);
    }
    list.insert(known.interface, properties);
    return list;
}
