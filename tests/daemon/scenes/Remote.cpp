#include "Remote.h"

#include "DBusBluez.h"
#include "Expect.h"

#include <QDBusConnection>
#include <QDBusReply>
#include <QDBusVariant>

namespace Remote {

QDBusMessage tryCall(const QString& path, const QString& interface, const QString& member,
                     const QVariantList& arguments, int seconds)
{
    QDBusMessage message = QDBusMessage::createMethodCall(DBusBluezServiceName(), path, interface, member);
    message.setArguments(arguments);
    message.setAutoStartService(false);
    return QDBusConnection::systemBus().call(message, QDBus::Block, seconds * 1000);
}

QDBusMessage call(const QString& path, const QString& interface, const QString& member,
                  const QVariantList& arguments, int seconds)
{
    const QDBusMessage answer = tryCall(path, interface, member, arguments, seconds);
    if (answer.type() != QDBusMessage::ReplyMessage) {
        throw Expect::Impossible{member + " on " + path + " failed: " + errorOf(answer)};
    }
    return answer;
}

DBusManagedObjectList objects()
{
    registerDBusTypes(); // of an unknown type, the reply would be empty
    const QDBusReply<DBusManagedObjectList> reply =
        tryCall(DBusBluezObjectManagerPath(), "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
    return reply.value();
}

QVariantMap properties(const QString& path, const QString& interface)
{
    const QDBusReply<QVariantMap> reply =
        tryCall(path, "org.freedesktop.DBus.Properties", "GetAll", {interface});
    return reply.value();
}

void setProperty(const QString& path, const QString& interface, const QString& name, const QVariant& value)
{
    call(path, "org.freedesktop.DBus.Properties", "Set",
         {interface, name, QVariant::fromValue(QDBusVariant(value))});
}

QString errorOf(const QDBusMessage& answer)
{
    return answer.type() == QDBusMessage::ErrorMessage ? answer.errorName() + ": " + answer.errorMessage()
                                                       : QString();
}

} // namespace Remote
