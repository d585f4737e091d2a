#include "ControlTypes.h"

#include <QDBusMetaType>

QDBusArgument& operator<<(QDBusArgument& argument, const ObjectReference& reference)
{
    argument.beginStructure();
    argument << reference.sender << reference.path;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, ObjectReference& reference)
{
    argument.beginStructure();
    argument >> reference.sender >> reference.path;
    argument.endStructure();
    return argument;
}

void registerControlTypes()
{
    registerDBusTypes();
    qDBusRegisterMetaType<ObjectReference>();
    qDBusRegisterMetaType<QList<ObjectReference>>();
    qDBusRegisterMetaType<QList<QVariantMap>>();
    qDBusRegisterMetaType<QList<QByteArray>>();
    qDBusRegisterMetaType<StringMap>();
}
