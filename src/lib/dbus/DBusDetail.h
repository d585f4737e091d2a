#pragma once

#include "DBusTypes.h"
#include "PlimDBusExport.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariant>

/** What our own adaptors share, here and in the libraries above. Internal: not installed. */
namespace DBusDetail {

/**
 * QMetaObject::invokeMethod() for an adaptor's call to its parent, which searches the parent's class for the
 * slot at the first call only: the search takes longer than all else that a short call does.
 *
 * @param object  of a class that stays, as those that moc knows do; null gives false
 * @param name    the slot's name, as text that stays where it is (a literal), like the type names of Q_ARG
 * @param result  where the slot's result goes
 * @param first   the slot's arguments, as many as it has
 * @param second  see first
 * @return whether there was such a slot; where there is none, Qt says so on standard error
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
 * What D-Bus can carry of a value. Entries of maps and items of lists that it cannot are left out: those of a
 * type that Qt D-Bus does not know, invalid ones, empty object paths and signatures, file descriptors that
 * are none, byte arrays and strings over maximumLength, what lies more than 16 containers deep, and
 * containers as they came over the bus if they hold file descriptors (Qt loses them) or exceed maximumLength.
 * Sent all the same, such a value would mean that the message is never sent, that libdbus aborts the process,
 * or that the bus drops the connection.
 * @return the value or what is left of it; invalid where nothing is
 */
PLIM_DBUS_EXPORT QVariant marshallable(const QVariant& value);

/**
 * Answers a call on the system bus with an error, at once and instead of the reply that Qt sends when the
 * slot returns. To be called in an adaptor's slot, on its thread, with the message that the slot was given.
 */
PLIM_DBUS_EXPORT void replyError(const QDBusMessage& call, QDBusError::ErrorType error, const QString& text);

/**
 * What one message can carry of an object manager's answer: byte arrays are left out once those before them
 * have taken maximumLength.
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
