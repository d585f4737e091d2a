#include "AdvertisingManager.h"

#include "AdvertisementJudge.h"
#include "AdvertisingLimits.h"
#include "DBusValue.h"
#include "Daemon.h"
#include "Names.h"
#include "State.h"

#include <QTimer>

namespace simulator {

AdvertisingManager::AdvertisingManager(const QString& path, Daemon* daemon)
    : RegistrationManager(QStringLiteral("advertisement"), path, daemon)
{
}

bool AdvertisingManager::release(const QString& advertisement)
{
    for (const Registration& registration : registrations()) {
        if (registration.path == advertisement && registration.isRegistered) {
            releaseById(registration.id);
            return true;
        }
    }
    return false;
}

void AdvertisingManager::update(const QString& sender, const QString& advertisement,
                                const QVariantMap& changed)
{
    for (const Registration& candidate : registrations()) {
        if (candidate.sender != sender || candidate.path != advertisement || !candidate.isRegistered) {
            continue;
        }
        QVariantMap updated = properties(candidate);
        for (auto property = changed.begin(); property != changed.end(); ++property) {
            updated[property.key()] = property.value();
        }
        if (!judgeProperties(updated)) {
            Registration& registration = at(indexOf(candidate.id));
            registration.objects[QDBusObjectPath(advertisement)][Names::Advertisement] = updated;
            registration.isOnAir = isPowered();
        }
        return;
    }
}

void AdvertisingManager::setPowered(bool isPowered)
{
    for (int index = 0; !isPowered && index < registrations().size(); ++index) {
        at(index).isOnAir = false;
    }
}

void AdvertisingManager::dropAll()
{
    for (const Registration& registration : registrations()) {
        sendRelease(registration);
    }
    RegistrationManager::dropAll();
}

QVariantMap AdvertisingManager::properties(const Registration& registration)
{
    return registration.objects.value(QDBusObjectPath(registration.path)).value(Names::Advertisement);
}

QVariantMap AdvertisingManager::managerProperties(int active)
{
    const QVariantMap capabilities{
        {QStringLiteral("MaxAdvLen"), QVariant::fromValue(uchar(AdvertisingLimits::MaximumLength))},
        {QStringLiteral("MaxScnRspLen"), QVariant::fromValue(uchar(AdvertisingLimits::MaximumLength))},
        {QStringLiteral("MinTxPower"), QVariant::fromValue(short(AdvertisingLimits::MinimumTxPower))},
        {QStringLiteral("MaxTxPower"), QVariant::fromValue(short(AdvertisingLimits::MaximumTxPower))}};
    return {
        {QStringLiteral("ActiveInstances"), QVariant::fromValue(uchar(active))},
        {QStringLiteral("SupportedInstances"),
         QVariant::fromValue(uchar(AdvertisingLimits::MaximumInstances - active))},
        {QStringLiteral("SupportedIncludes"),
         QStringList{QStringLiteral("tx-power"), QStringLiteral("appearance"), QStringLiteral("local-name")}},
        {QStringLiteral("SupportedSecondaryChannels"), AdvertisingLimits::secondaryChannels()},
        {QStringLiteral("SupportedFeatures"), QStringList{QStringLiteral("CanSetTxPower")}},
        {QStringLiteral("SupportedCapabilities"), capabilities}};
}

Refusal AdvertisingManager::admission() const
{
    return registrations().size() < AdvertisingLimits::MaximumInstances
               ? Refusal()
               : Refusal::notPermitted(QStringLiteral("Maximum advertisements reached"));
}

QDBusMessage AdvertisingManager::readRequest(const Registration& registration) const
{
    QDBusMessage request = QDBusMessage::createMethodCall(registration.sender, registration.path,
                                                          Names::Properties, QStringLiteral("GetAll"));
    request << Names::Advertisement;
    return request;
}

Refusal AdvertisingManager::judge(Registration& registration, const QDBusMessage& answer) const
{
    if (answer.type() != QDBusMessage::ReplyMessage || answer.signature() != QLatin1String("a{sv}")) {
        return Refusal::failed(QStringLiteral("Failed to parse advertisement."));
    }
    const QVariantMap properties = DBusValue::variantMap(answer.arguments().constFirst());
    registration.objects[QDBusObjectPath(registration.path)][Names::Advertisement] = properties;
    return judgeProperties(properties);
}

void AdvertisingManager::onRegistered(const Registration& registration)
{
    at(indexOf(registration.id)).isOnAir = isPowered();
    showInstances();
    const uint seconds = properties(registration).value(QStringLiteral("Timeout")).toUInt();
    if (seconds != 0) {
        QTimer::singleShot(int(seconds) * 1000, this, [this, id = registration.id] { releaseById(id); });
    }
}

void AdvertisingManager::onRemoved(const Registration& registration)
{
    if (registration.isRegistered) {
        showInstances();
    } else {
        daemon()->refuse(registration.call,
                         Refusal::failed(QStringLiteral("Failed to complete registration")));
    }
}

Refusal AdvertisingManager::judgeProperties(const QVariantMap& properties) const
{
    const State& state = daemon()->state();
    return state.acceptsEverything ? Refusal() : AdvertisementJudge(state.version, properties).judge();
}

void AdvertisingManager::sendRelease(const Registration& registration) const
{
    // send() sets the no-reply flag, as the daemon does.
    daemon()->connection().send(QDBusMessage::createMethodCall(
        registration.sender, registration.path, Names::Advertisement, QStringLiteral("Release")));
}

void AdvertisingManager::releaseById(quint64 id)
{
    const int index = indexOf(id);
    if (index >= 0) {
        sendRelease(at(index));
        removeAt(index);
    }
}

bool AdvertisingManager::isPowered() const
{
    const QVariant powered = daemon()->property(path(), Names::Adapter, QStringLiteral("Powered"));
    return !powered.isValid() || powered.toBool();
}

void AdvertisingManager::showInstances()
{
    const QVariantMap shown = managerProperties(int(registrations().size()));
    for (const QString& name : {QStringLiteral("SupportedInstances"), QStringLiteral("ActiveInstances")}) {
        daemon()->changeProperty(path(), Names::AdvertisingManager, name, shown.value(name));
    }
}

} // namespace simulator
