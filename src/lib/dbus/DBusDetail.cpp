#include "DBusDetail.h"

#include "QtVersion.h"
#include "ValueSize.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QMetaClassInfo>

#include <array>
#include <iterator>
#include <map>

namespace {

constexpr int maximumDepth = 16;

QVariant marshallableAt(int depth, const QVariant& value);

QVariantMap marshallableEntries(int depth, const QVariantMap& all)
{
    QVariantMap map;
    for (auto it = all.cbegin(); it != all.cend(); ++it) {
        const QVariant entry = marshallableAt(depth, *it);
        if (entry.isValid()) {
            map.insert(it.key(), entry);
        }
    }
    return map;
}

QVariantList marshallableItems(int depth, const QVariantList& all)
{
    QVariantList list;
    for (const QVariant& item : all) {
        const QVariant kept = marshallableAt(depth, item);
        if (kept.isValid()) {
            list << kept;
        }
    }
    return list;
}

bool isMarshallableScalar(const QVariant& value)
{
    if (value.userType() == QMetaType::QByteArray) {
        return value.toByteArray().size() <= DBusDetail::maximumLength;
    }
    if (value.userType() == QMetaType::QString) {
        return value.toString().size() <=
               DBusDetail::maximumLength / 3; // UTF-8 takes up to three bytes for each
    }
    if (value.userType() == qMetaTypeId<QDBusObjectPath>()) {
        return !value.value<QDBusObjectPath>().path().isEmpty();
    }
    if (value.userType() == qMetaTypeId<QDBusSignature>()) {
        return !value.value<QDBusSignature>().signature().isEmpty();
    }
    if (value.userType() == qMetaTypeId<QDBusUnixFileDescriptor>()) {
        return value.value<QDBusUnixFileDescriptor>().isValid();
    }
    if (value.userType() == qMetaTypeId<QDBusArgument>()) {
        return value.value<QDBusArgument>().currentType() != QDBusArgument::UnknownType &&
               ValueSize::isWithin(DBusDetail::maximumLength, value);
    }
    return value.isValid() && QDBusMetaType::typeToSignature(QtVersion::Type(value.userType()));
}

QVariant marshallableAt(int depth, const QVariant& value)
{
    if (depth > maximumDepth) {
        return {};
    }
    const int type = value.userType();
    if (type == QMetaType::QVariantMap) {
        return marshallableEntries(depth + 1, value.toMap());
    }
    if (type == QMetaType::QVariantList) {
        return marshallableItems(depth + 1, value.toList());
    }
    if (type == qMetaTypeId<QDBusVariant>()) {
        const QVariant inner = marshallableAt(depth + 1, value.value<QDBusVariant>().variant());
        return inner.isValid() ? QVariant::fromValue(QDBusVariant(inner)) : QVariant();
    }
    return isMarshallableScalar(value) ? value : QVariant();
}

/** The invokable method with this name and these parameter types; types that are null do not count. */
QMetaMethod findMethod(const QMetaObject& metaObject, const char* name, std::array<const char*, 2> types)
{
    QByteArrayList parameters;
    for (const char* type : types) {
        if (type) {
            parameters << type;
        }
    }
    const QByteArray signature = QByteArray(name) + '(' + parameters.join(',') + ')';
    return metaObject.method(metaObject.indexOfMethod(QMetaObject::normalizedSignature(signature)));
}

qint64 sizeOfByteArray(const QVariant& value)
{
    return value.userType() == QMetaType::QByteArray ? value.toByteArray().size() : 0;
}

qint64 sizeOfByteArrays(const DBusManagedObjectList& objects)
{
    qint64 size = 0;
    for (const DBusInterfaceList& interfaces : objects) {
        for (const QVariantMap& properties : interfaces) {
            for (const QVariant& value : properties) {
                size += sizeOfByteArray(value);
            }
        }
    }
    return size;
}

/** How Qt's error texts name a property. */
QString fullName(const QString& interface, const QString& name)
{
    return interface.isEmpty() ? name : interface + QLatin1Char('.') + name;
}

} // namespace

bool DBusDetail::invokeMethod(QObject* object, const char* name, QGenericReturnArgument result,
                              QGenericArgument first, QGenericArgument second)
{
    if (!object) {
        return false;
    }
    // The texts are literals: the same addresses mean the same signature.
    using Call = std::array<const void*, 4>;
    thread_local std::map<Call, QMetaMethod> known;
    const Call call{object->metaObject(), name, first.name(), second.name()};
    auto it = known.find(call);
    if (it == known.end()) {
        const QMetaMethod method = findMethod(*object->metaObject(), name, {first.name(), second.name()});
        if (!method.isValid()) {
            return QMetaObject::invokeMethod(object, name, result, first, second);
        }
        it = known.emplace(call, method).first;
    }
    return it->second.invoke(object, result, first, second);
}

bool DBusDetail::invokeMethod(QObject* object, const char* name, QGenericArgument first,
                              QGenericArgument second)
{
    return invokeMethod(object, name, QGenericReturnArgument(), first, second);
}

QString DBusDetail::interfaceName(const QObject* adaptor)
{
    const QMetaObject* metaObject = adaptor->metaObject();
    const int index = metaObject->indexOfClassInfo("D-Bus Interface");
    return index < 0 ? QString() : QString::fromLatin1(metaObject->classInfo(index).value());
}

QVariant DBusDetail::marshallable(const QVariant& value)
{
    return marshallableAt(0, value);
}

DBusManagedObjectList DBusDetail::withinOneMessage(DBusManagedObjectList objects)
{
    if (sizeOfByteArrays(objects) <= maximumLength) {
        return objects; // at once: the loops below copy every map, even if they change nothing
    }
    qint64 left = maximumLength;
    for (DBusInterfaceList& interfaces : objects) {
        for (QVariantMap& properties : interfaces) {
            for (auto it = properties.begin(); it != properties.end();) {
                const qint64 size = sizeOfByteArray(*it);
                const bool fits = size <= left;
                left -= fits ? size : 0;
                it = fits ? std::next(it) : properties.erase(it);
            }
        }
    }
    return objects;
}

void DBusDetail::replyError(const QDBusMessage& call, QDBusError::ErrorType error, const QString& text)
{
    call.setDelayedReply(true);
    QDBusConnection::systemBus().send(call.createErrorReply(error, text));
}

void DBusDetail::replyUnknownInterface(const QDBusMessage& call, const QString& interface)
{
    replyError(call, QDBusError::UnknownInterface,
               QStringLiteral("Interface %1 was not found in object %2").arg(interface, call.path()));
}

void DBusDetail::replyUnknownProperty(const QDBusMessage& call, const QString& interface, const QString& name)
{
    replyError(
        call, QDBusError::UnknownProperty,
        QStringLiteral("Property %1 was not found in object %2").arg(fullName(interface, name), call.path()));
}

void DBusDetail::replyReadOnlyProperty(const QDBusMessage& call, const QString& interface,
                                       const QString& name)
{
    replyError(call, QDBusError::PropertyReadOnly,
               QStringLiteral("Property %1 is read-only").arg(fullName(interface, name)));
}
