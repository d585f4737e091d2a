#include "Adapter.h"

#include "AdapterChoice.h"
#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "UserCallback.h"
#include "plimlog.h"

#include <QDBusArgument>
#include <QMetaProperty>
#include <QPointer>
#include <QTimer>

using plim::detail::BluezObjects;

namespace {

const log4cplus::Logger& logger = plim::bleLogger();

} // namespace

plim::Adapter::Adapter(const QString& nameOrAddress, QObject* parent)
    : QObject(parent), m_choice(nameOrAddress), m_bluez(BluezObjects::shared())
{
    m_path = chosenPath();
    m_told = values();
    const auto consider = [this](const QString& /*path*/, const QString& interface) {
        if (interface == BluezInterfaces::Adapter || interface == BluezInterfaces::AdvertisingManager) {
            update();
        }
    };
    plim::connect(m_bluez.get(), &BluezObjects::objectAdded, this, consider);
    plim::connect(m_bluez.get(), &BluezObjects::objectRemoved, this, consider);
    plim::connect(m_bluez.get(), &BluezObjects::propertiesChanged, this, consider);
}

plim::Adapter::~Adapter() = default;

QString plim::Adapter::address() const
{
    return setting("Address").toString();
}

QString plim::Adapter::alias() const
{
    return setting("Alias").toString();
}

bool plim::Adapter::isPowered() const
{
    return setting("Powered").toBool();
}

bool plim::Adapter::isDiscoverable() const
{
    return setting("Discoverable").toBool();
}

uint plim::Adapter::discoverableTimeout() const
{
    return setting("DiscoverableTimeout").toUInt();
}

bool plim::Adapter::isPairable() const
{
    return setting("Pairable").toBool();
}

uint plim::Adapter::pairableTimeout() const
{
    return setting("PairableTimeout").toUInt();
}

int plim::Adapter::advertisementsLeft() const
{
    return capability("SupportedInstances").toInt();
}

int plim::Adapter::advertisementsActive() const
{
    return capability("ActiveInstances").toInt();
}

int plim::Adapter::maximumAdvertisingData() const
{
    return qdbus_cast<QVariantMap>(capability("SupportedCapabilities"))
        .value(QStringLiteral("MaxAdvLen"))
        .toInt();
}

int plim::Adapter::maximumScanResponseData() const
{
    return qdbus_cast<QVariantMap>(capability("SupportedCapabilities"))
        .value(QStringLiteral("MaxScnRspLen"))
        .toInt();
}

QStringList plim::Adapter::secondaryChannels() const
{
    return capability("SupportedSecondaryChannels").toStringList();
}

void plim::Adapter::setAlias(const QString& alias, const Finished& finished)
{
    set("Alias", alias, finished);
}

void plim::Adapter::setPowered(bool powered, const Finished& finished)
{
    set("Powered", powered, finished);
}

void plim::Adapter::setDiscoverable(bool discoverable, const Finished& finished)
{
    set("Discoverable", discoverable, finished);
}

void plim::Adapter::setDiscoverableTimeout(uint seconds, const Finished& finished)
{
    set("DiscoverableTimeout", seconds, finished);
}

void plim::Adapter::setPairable(bool pairable, const Finished& finished)
{
    set("Pairable", pairable, finished);
}

void plim::Adapter::setPairableTimeout(uint seconds, const Finished& finished)
{
    set("PairableTimeout", seconds, finished);
}

QVariant plim::Adapter::setting(const char* name) const
{
    return m_bluez->value(m_path, BluezInterfaces::Adapter, QLatin1String(name));
}

QVariant plim::Adapter::capability(const char* name) const
{
    return m_bluez->value(m_path, BluezInterfaces::AdvertisingManager, QLatin1String(name));
}

void plim::Adapter::set(const char* name, const QVariant& value, const Finished& finished)
{
    const QString what = QLatin1String(name) + QLatin1String(" of adapter ") + m_choice;
    const Finished end = [finished, what](const QDBusError& error) {
        if (finished) {
            UserCallback::call("Callback of setting", what, [&] { finished(error); });
        } else if (error.isValid()) {
            PLIM_LOG(logger, WARN, Q_FUNC_INFO, "Cannot set " << what << ": " << error.message());
        }
    };
    m_bluez->whenLooked(this, [this, name, value, end] {
        if (m_path.isEmpty()) {
            const QDBusError error(QDBusError::UnknownObject, QStringLiteral("There is no such adapter"));
            QTimer::singleShot(0, this, [end, error] { end(error); });
        } else {
            m_bluez->set(m_path, BluezInterfaces::Adapter, QLatin1String(name), value, this, end);
        }
    });
}

QString plim::Adapter::chosenPath() const
{
    const QStringList paths = m_bluez->paths(BluezInterfaces::Adapter);
    if (m_choice.isEmpty() && paths.contains(m_path)) {
        return m_path;
    }
    for (const QString& path : paths) {
        const QString address =
            m_bluez->value(path, BluezInterfaces::Adapter, QStringLiteral("Address")).toString();
        if (AdapterChoice::isChosen(m_choice, path, address)) {
            return path;
        }
    }
    return {};
}

/** The properties of this class. */
QVariantMap plim::Adapter::values() const
{
    QVariantMap all;
    for (int i = staticMetaObject.propertyOffset(); i < staticMetaObject.propertyCount(); ++i) {
        const QMetaProperty property = staticMetaObject.property(i);
        all.insert(QLatin1String(property.name()), property.read(this));
    }
    return all;
}

/** Tells what has changed. */
void plim::Adapter::update()
{
    m_path = chosenPath();
    const QVariantMap now = values();
    const QVariantMap before = std::exchange(m_told, now);
    const QPointer<Adapter> self = this;
    for (int i = staticMetaObject.propertyOffset(); i < staticMetaObject.propertyCount() && self; ++i) {
        const QMetaProperty property = staticMetaObject.property(i);
        const QString name = QLatin1String(property.name());
        if (now.value(name) != before.value(name)) {
            property.notifySignal().invoke(this, Qt::DirectConnection);
        }
    }
}
