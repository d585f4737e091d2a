#pragma once

#include "DBusTypes.h"
#include "PlimDBusExport.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariant>

/** Functions for the adaptors of this library and of those above it. Internal: not installed. */
namespace DBusDetail {

/**
 * QMetaObject::invokeMethod() for an adaptor's call to its parent. It searches the parent's class for the
 * slot only at the first call, since the search takes longer than the rest of a short call.
 *
 * @param object  the parent; its meta-object is stored, so it must stay, as those that moc generates do. Null
 * gives false.
 * @param name    the slot's name; its address is stored, so it has to be a literal, as the type names of
 * Q_ARG are
 * @param result  gets the slot's result
 * @param first   the slot's first argument, if it has one
 * @param second  the slot's second argument, if it has one
 * @return whether there is such a slot; if not, Qt says so on standard error
 */
PLIM_DBUS_EXPORT bool invokeMethod(QObject* object, const char* name, QGenericReturnArgument result,
                                   QGenericArgument first = {}, QGenericArgument second = {});

/** The same without a result. */
PLIM_DBUS_EXPORT bool invokeMethod(QObject* object, const char* name, QGenericArgument first = {},
                                   QGenericArgument second = {});

/** The D-Bus interface that an adaptor serves, from its "D-Bus Interface" class information; empty without
 * one. */
PLIM_DBUS_EXPORT QString interfaceName(const QObject* adaptor);

/** The longest byte array or string that is sent, in bytes: 16 MiB, half of what a system bus takes in a
 * message. */
constexpr int maximumLength = 16 * 1024 * 1024;

/**
 * The part of a value that D-Bus can carry. These entries of maps and items of lists are left out:
 * - values of a type that Qt D-Bus does not know, and invalid ones;
 * - empty object paths and signatures, and invalid file descriptors;
 * - byte arrays and strings that are longer than maximumLength, and what is more than 16 containers deep;
 * - containers that came over the bus, if they hold file descriptors (Qt loses them) or exceed maximumLength.
 *
 * With such a value, the message would never be sent, libdbus would abort the process, or the bus would drop
 * the connection.
 * @return the value, or what is left of it; invalid if nothing is left
 */
PLIM_DBUS_EXPORT QVariant marshallable(const QVariant& value);

/**
 * Answers a call on the system bus with an error, at once and instead of the reply that Qt sends when the
 * slot returns. Call it in an adaptor's slot, on its thread, with the message that the slot got.
 */
PLIM_DBUS_EXPORT void replyError(const QDBusMessage& call, QDBusError::ErrorType error, const QString& text);

/**
 * The part of an object manager's answer that fits in one message. A byte array is left out if it and those
 * before it would take more than maximumLength.
 */
PLIM_DBUS_EXPORT DBusManagedObjectList withinOneMessage(DBusManagedObjectList objects);

/** replyError() with org.freedesktop.DBus.Error.UnknownInterface and the text that Qt uses for it. */
PLIM_DBUS_EXPORT void replyUnknownInterface(const QDBusMessage& call, const QString& interface);

/** replyError() with org.freedesktop.DBus.Error.UnknownProperty and the text that Qt uses for it. */
PLIM_DBUS_EXPORT void replyUnknownProperty(const QDBusMessage& call, const QString& interface,
                                           const QString& name);

/** replyError() with org.freedesktop.DBus.Error.PropertyReadOnly and the text that Qt uses for it. */
PLIM_DBUS_EXPORT void replyReadOnlyProperty(const QDBusMessage& call, const QString& interface,
                                            const QString& name);

} // namespace DBusDetail
