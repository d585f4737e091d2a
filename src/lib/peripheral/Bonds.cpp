#include "Bonds.h"

#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "plim.h"

#include <QDBusObjectPath>
#include <QPointer>

#include <utility>

namespace {

/** Older daemons only say whether a device has paired. */
bool isBonded(const QVariantMap& device)
{
    const QVariant bonded = device.value(QStringLiteral("Bonded"));
    return bonded.isValid() ? bonded.toBool() : device.value(QStringLiteral("Paired")).toBool();
}

QString errorText(const QDBusError& error)
{
    return error.isValid() ? error.name() + QStringLiteral(": ") + error.message() : QString();
}

} // namespace

plim::Bonds::Bonds(QObject* parent) : QObject(parent), m_bluez(detail::BluezObjects::shared())
{
    qRegisterMetaType<plim::Bond>();
    qRegisterMetaType<plim::Central>();
    using detail::BluezObjects;
    plim::connect(m_bluez.get(), &BluezObjects::started, this, &Bonds::readAll);
    // What is announced before started() is read then; what goes with BlueZ's end is only out of sight.
    const auto onDevice = [this](void (Bonds::*function)(const QString&)) {
        return [this, function](const QString& path, const QString& interface) {
            if (m_bluez->isStarted() && interface == BluezInterfaces::Device) {
                (this->*function)(path);
            }
        };
    };
    plim::connect(m_bluez.get(), &BluezObjects::objectAdded, this, onDevice(&Bonds::update));
    plim::connect(m_bluez.get(), &BluezObjects::propertiesChanged, this, onDevice(&Bonds::update));
    plim::connect(m_bluez.get(), &BluezObjects::objectRemoved, this, onDevice(&Bonds::remove));
    if (m_bluez->isStarted()) {
        readAll();
    }
}

plim::Bonds::~Bonds() = default;

void plim::Bonds::forget(const Central& central)
{
    removeDevice(central.path(),
                 [this, central](const QString& error) { emit forgotten(Central(central.path()), error); });
}

void plim::Bonds::forgetAll()
{
    if (std::exchange(m_forgetsAll, true)) {
        return;
    }
    m_firstError = m_isKnown ? QString() : QStringLiteral("BlueZ has not told its bonds");
    const QStringList paths = m_bonds.keys();
    m_toForget = int(paths.size());
    for (const QString& path : paths) {
        removeDevice(path, [this, path](const QString& error) { finishOne(path, error); });
    }
    if (paths.isEmpty()) {
        QMetaObject::invokeMethod(this, &Bonds::finishAll, Qt::QueuedConnection);
    }
}

void plim::Bonds::readAll()
{
    const QPointer<Bonds> self(this);
    // BlueZ may end in the event loop of a slot.
    const auto canRead = [this, &self] { return self && m_bluez->isStarted(); };
    const QStringList before = m_bonds.keys();
    for (const QString& path : before) {
        if (canRead() && !m_bluez->contains(path, BluezInterfaces::Device)) {
            remove(path);
        }
    }
    const QStringList devices = canRead() ? m_bluez->paths(BluezInterfaces::Device) : QStringList();
    for (const QString& path : devices) {
        if (canRead()) {
            update(path);
        }
    }
    if (canRead() && !std::exchange(m_isKnown, true)) {
        emit known();
    }
}

void plim::Bonds::update(const QString& path)
{
    const QVariantMap device = m_bluez->properties(path, BluezInterfaces::Device);
    if (!isBonded(device)) {
        remove(path);
        return;
    }
    const Bond bond{Central(path), device.value(QStringLiteral("Address")).toString(),
                    device.value(QStringLiteral("Alias")).toString(),
                    device.value(QStringLiteral("Connected")).toBool()};
    const bool isNew = !m_bonds.contains(path);
    if (!isNew && m_bonds.value(path) == bond) {
        return;
    }
    m_bonds[path] = bond;
    if (isNew) {
        emit added(bond);
    } else {
        emit changed(bond);
    }
}

void plim::Bonds::remove(const QString& path)
{
    if (m_bonds.remove(path) != 0) {
        emit removed(Central(path));
    }
}

void plim::Bonds::removeDevice(const QString& path, const std::function<void(const QString&)>& finished)
{
    const QString adapter = path.section(QLatin1Char('/'), 0, -2);
    m_bluez->call(adapter, BluezInterfaces::Adapter, QStringLiteral("RemoveDevice"),
                  {QVariant::fromValue(QDBusObjectPath(path))}, this,
                  [finished](const QDBusError& error) { finished(errorText(error)); });
}

void plim::Bonds::finishOne(const QString& path, const QString& error)
{
    if (m_firstError.isEmpty()) {
        m_firstError = error;
    }
    const bool isLast = --m_toForget == 0;
    const QPointer<Bonds> self(this);
    emit forgotten(Central(path), error);
    if (self && isLast) {
        finishAll();
    }
}

void plim::Bonds::finishAll()
{
    m_forgetsAll = false;
    // Not the member: slots may end this object, or forget all again.
    const QString error = std::exchange(m_firstError, {});
    emit allForgotten(error);
}
