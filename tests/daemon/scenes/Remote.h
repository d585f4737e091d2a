#pragma once

#include "DBusTypes.h"

#include <QDBusMessage>
#include <QString>
#include <QVariantMap>

/** Calls to the daemon, blocking. */
namespace Remote {

const QString adapterInterface = QStringLiteral("org.bluez.Adapter1");
const QString deviceInterface = QStringLiteral("org.bluez.Device1");
const QString serviceInterface = QStringLiteral("org.bluez.GattService1");
const QString characteristicInterface = QStringLiteral("org.bluez.GattCharacteristic1");
const QString descriptorInterface = QStringLiteral("org.bluez.GattDescriptor1");

/** The answer or the error. */
QDBusMessage tryCall(const QString& path, const QString& interface, const QString& member,
                     const QVariantList& arguments = {}, int seconds = 40);

/** The answer; an error ends the scene. */
QDBusMessage call(const QString& path, const QString& interface, const QString& member,
                  const QVariantList& arguments = {}, int seconds = 40);

/** The daemon's objects, none where no daemon runs. */
DBusManagedObjectList objects();

/** All properties of an interface of an object, none where there is no such object. */
QVariantMap properties(const QString& path, const QString& interface);

void setProperty(const QString& path, const QString& interface, const QString& name, const QVariant& value);

/** "org.bluez.Error.Failed: text", or empty for a good answer. */
QString errorOf(const QDBusMessage& answer);

} // namespace Remote
