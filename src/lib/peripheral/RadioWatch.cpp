#include "RadioWatch.h"

#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "plim.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QDBusMessage>

namespace {

const QString Powered = QStringLiteral("Powered");
const QString Connected = QStringLiteral("Connected");
const QString SupportedInstances = QStringLiteral("SupportedInstances");

} // namespace

plim::detail::RadioWatch::RadioWatch() : m_bluez(BluezObjects::shared())
{
    plim::connect(m_bluez.get(), &BluezObjects::objectAdded, this, &RadioWatch::on_objectAdded);
    plim::connect(m_bluez.get(), &BluezObjects::propertiesChanged, this, &RadioWatch::on_propertiesChanged);
    if (!QDBusConnection::systemBus().connect(
            QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
            QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"), {},
            QStringLiteral("b"), this, SLOT(on_prepareForSleep(QDBusMessage)))) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO, "Suspend cannot be watched: no system bus");
    }
}

bool plim::detail::RadioWatch::isPowered(const QString& adapter) const
{
    const QVariant powered = m_bluez->value(adapter, BluezInterfaces::Adapter, Powered);
    return !powered.isValid() || powered.toBool();
}

bool plim::detail::RadioWatch::hasFreeInstance(const QString& adapter) const
{
    const QVariant free = m_bluez->value(adapter, BluezInterfaces::AdvertisingManager, SupportedInstances);
    return !free.isValid() || free.toInt() > 0;
}

void plim::detail::RadioWatch::on_prepareForSleep(const QDBusMessage& signal)
{
    m_isAsleep = signal.arguments().value(0).toBool();
    emit sleepChanged(m_isAsleep);
}

void plim::detail::RadioWatch::on_objectAdded(const QString& path, const QString& interface)
{
    if (interface == BluezInterfaces::Device) {
        on_propertiesChanged(path, interface, {Connected});
    } else if (interface == BluezInterfaces::Adapter && !isPowered(path)) {
        emit powerChanged(path, false);
    } else if (interface == BluezInterfaces::AdvertisingManager) {
        // It may have become free before anybody listened.
        on_propertiesChanged(path, interface, {SupportedInstances});
    }
}

void plim::detail::RadioWatch::on_propertiesChanged(const QString& path, const QString& interface,
                                                    const QStringList& names)
{
    if (interface == BluezInterfaces::Adapter && names.contains(Powered)) {
        emit powerChanged(path, isPowered(path));
    } else if (interface == BluezInterfaces::Device && names.contains(Connected) &&
               m_bluez->value(path, interface, Connected).toBool()) {
        emit connected(path);
    } else if (interface == BluezInterfaces::AdvertisingManager && names.contains(SupportedInstances) &&
               hasFreeInstance(path)) {
        emit instanceFreed(path);
    }
}
