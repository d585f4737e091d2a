#include "GattManager.h"

#include "DBusValue.h"
#include "Daemon.h"
#include "GattJudge.h"
#include "Names.h"

#include <QDBusArgument>

namespace simulator {

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
    Refusal refusal = GattJudge(registration.objects).judge();
    if (refusal) {
        return refusal;
    }
    const auto placement = m_handles.place(registration.objects);
    if (!placement) {
        return Refusal::failed(QStringLiteral("Failed to create entry in database"));
    }
    registration.placement = *placement;
    return Refusal();
}

void GattManager::onRegistered(const Registration& registration)
{
    m_handles.take(registration.placement);
    // Whoever shows a handle of 0 is told which one it got.
    const auto& objects = registration.objects;
    for (auto object = objects.begin(); object != objects.end(); ++object) {
        for (const QString& interface :
             {Names::GattService, Names::GattCharacteristic, Names::GattDescriptor}) {
            const QVariant shown = object->value(interface).value(QStringLiteral("Handle"));
            if (!shown.isValid() || shown.toUInt() != 0) {
                continue;
            }
            const quint16 handle = registration.placement.handles.value(object.key().path());
            QDBusMessage set = QDBusMessage::createMethodCall(registration.sender, object.key().path(),
                                                              Names::Properties, QStringLiteral("Set"));
            set << interface << QStringLiteral("Handle")
                << QVariant::fromValue(QDBusVariant(QVariant::fromValue(handle)));
            daemon()->connection().send(set);
        }
    }
}

void GattManager::onRemoved(const Registration& registration)
{
    m_handles.release(registration.placement);
    daemon()->dropSubscriptions(registration);
}

} // namespace simulator
