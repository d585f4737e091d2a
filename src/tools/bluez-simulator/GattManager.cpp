#include "GattManager.h"

#include "DBusValue.h"
#include "Daemon.h"
#include "GattJudge.h"
#include "Names.h"
#include "Phone.h"

#include <QDBusArgument>

GattManager::GattManager(const QString& path, Daemon* daemon)
    : RegistrationManager(QStringLiteral("application"), path, daemon)
{
}

QDBusMessage GattManager::readRequest(const Registration& registration) const
{
    return QDBusMessage::createMethodCall(registration.sender, registration.path, Names::ObjectManager,
                                          QStringLiteral("GetManagedObjects"));
}

Refusal GattManager::judge(Registration& registration, const QDBusMessage& answer) const
{
    // A client that fails to tell its objects counts as one that has none.
    const QVariant objects = answer.arguments().value(0);
    if (answer.type() == QDBusMessage::ReplyMessage &&
        DBusValue::signature(objects) == QLatin1String("a{oa{sa{sv}}}")) {
        registration.objects = qdbus_cast<DBusManagedObjectList>(objects);
    }
    return GattJudge(registration.objects).judge();
}

void GattManager::onRemoved(const Registration& registration)
{
    daemon()->phone().forget(registration);
}
