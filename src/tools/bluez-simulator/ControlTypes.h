#pragma once

#include "DBusTypes.h"

#include <QByteArrayList>
#include <QDBusArgument>
#include <QList>

/** An object and the unique name of the program that exports it; on D-Bus (so). */
struct ObjectReference
{
    QString sender;
    QDBusObjectPath path;
};

using StringMap = QMap<QString, QString>;

Q_DECLARE_METATYPE(ObjectReference)
Q_DECLARE_METATYPE(StringMap)

QDBusArgument& operator<<(QDBusArgument& argument, const ObjectReference& reference);
const QDBusArgument& operator>>(const QDBusArgument& argument, ObjectReference& reference);

/** Makes the types of the control interface known to Qt's D-Bus type system. */
void registerControlTypes();
