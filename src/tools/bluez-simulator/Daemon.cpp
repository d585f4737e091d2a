#include "Daemon.h"

#include "AdvertisingManager.h"
#include "AgentManager.h"
#include "AttPhone.h"
#include "ClientSockets.h"
#include "DBusValue.h"
#include "DeviceCalls.h"
#include "GattManager.h"
#include "Names.h"
#include "Phone.h"
#include "PropertiesCalls.h"
#include "State.h"

#include <QDBusConnectionInterface>
#include <QTimer>
#include <algorithm>

namespace simulator {

namespace {

QStringList adapterInterfaces()
{
    return {Names::Introspectable, Names::Properties, Names::Adapter, Names::GattManager,
            Names::AdvertisingManager};
}

/** The daemon tells its version in it. */
QString modaliasOf(BluezVersion version)
{
    return version == BluezVersion::Bluez566 ? QStringLiteral("usb:v1D6Bp0246d0542")
                                             : QStringLiteral("usb:v1D6Bp0246d0552");
}

template <typename Manager>
QList<Registration> registeredWith(const QMap<QString, Manager*>& managers)
{
    QList<Registration> found;
    for (const Manager* manager : managers) {
        for (const Registration& registration : manager->registrations()) {
            if (registration.isRegistered) {
                found += registration;
            }
        }
    }
    return found;
}

} // namespace

Daemon::Daemon(const QDBusConnection& connection, State& state, QObject* parent)
    : QDBusVirtualObject(parent),
      m_connection(connection),
      m_state(state),
      m_phone(new Phone(this)),
      m_agents(new AgentManager(this)),
      m_sockets(new ClientSockets(this))
{
    m_clients.setConnection(m_connection);
    m_clients.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(&m_clients, &QDBusServiceWatcher::serviceUnregistered, this, &Daemon::onClientVanished);
    m_connection.connect(QString(), QString(), Names::Properties, QStringLiteral("PropertiesChanged"), this,
                         SLOT(onPropertiesChanged(QDBusMessage)));
    connect(
        m_sockets, &ClientSockets::notified, this,
        [this](const QString& sender, const QString& path, const QString& device, const QByteArray& value) {
            for (AttPhone* phone : qAsConst(m_attPhones)) {
                if (device.isEmpty() || device == phone->state().device()) {
                    phone->notify(sender, path, value, true);
                }
            }
        });
    m_tree.add(Names::BluezPath, {Names::Introspectable, Names::Properties, Names::AgentManager,
                                  QStringLiteral("org.bluez.ProfileManager1")});
    for (auto& phone : m_state.phones) {
        addPhone(phone.second);
    }
    m_connection.registerVirtualObject(QStringLiteral("/"), this, QDBusConnection::SubPath);
}

Daemon::~Daemon()
{
    m_connection.unregisterObject(QStringLiteral("/"), QDBusConnection::UnregisterTree);
}

bool Daemon::takeName()
{
    return m_connection.registerService(Names::BluezService);
}

void Daemon::announce(const QString& path, const QStringList& interfaces)
{
    DBusInterfaceList added = m_tree.add(path, interfaces);
    if (added.contains(Names::Adapter)) {
        const QString modalias = modaliasOf(m_state.version);
        m_tree.setProperty(path, Names::Adapter, QStringLiteral("Modalias"), modalias);
        added[Names::Adapter][QStringLiteral("Modalias")] = modalias;
    }
    if (added.contains(Names::GattManager) && !m_gattManagers.contains(path)) {
        m_gattManagers[path] = new GattManager(path, this);
        serve(m_gattManagers[path]);
    }
    if (added.contains(Names::AdvertisingManager) && !m_advertisingManagers.contains(path)) {
        m_advertisingManagers[path] = new AdvertisingManager(path, this);
        serve(m_advertisingManagers[path]);
    }
    sendInterfacesAdded(path, added);
}

void Daemon::announceObject(const QString& path, const QString& interface, const QVariantMap& properties)
{
    m_tree.add(path, {Names::Introspectable, Names::Properties, interface});
    for (auto property = properties.begin(); property != properties.end(); ++property) {
        m_tree.setProperty(path, interface, property.key(), property.value());
    }
    sendInterfacesAdded(path, m_tree.interfaces(path));
}

void Daemon::withdraw(const QString& path, const QStringList& interfaces)
{
    m_tree.remove(path, interfaces);
    QList<RegistrationManager*> ended;
    if (interfaces.contains(Names::GattManager) && m_gattManagers.contains(path)) {
        ended += m_gattManagers.take(path);
    }
    if (interfaces.contains(Names::AdvertisingManager) && m_advertisingManagers.contains(path)) {
        ended += m_advertisingManagers.take(path);
    }
    for (RegistrationManager* manager : qAsConst(ended)) {
        manager->dropAll();
        manager->deleteLater();
    }
    QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/"), Names::ObjectManager,
                                                     QStringLiteral("InterfacesRemoved"));
    signal << QVariant::fromValue(QDBusObjectPath(path)) << interfaces;
    m_connection.send(signal);
}

void Daemon::addAdapter(const QString& name, const QString& address)
{
    if (!address.isEmpty()) {
        m_tree.add(adapterPath(name), {Names::Adapter});
        m_tree.setProperty(adapterPath(name), Names::Adapter, QStringLiteral("Address"), address);
    }
    announce(adapterPath(name), adapterInterfaces());
    m_agents->prepare(adapterPath(name));
}

void Daemon::removeAdapter(const QString& name)
{
    for (AttPhone* phone : qAsConst(m_attPhones)) {
        if (phone->state().adapter == adapterPath(name)) {
            phone->forget();
        }
    }
    withdraw(adapterPath(name), adapterInterfaces());
}

void Daemon::addPhone(PhoneState& state)
{
    auto* phone = new AttPhone(state, this);
    m_attPhones[state.device()] = phone;
    connect(phone, &AttPhone::notified, this, [this, phone](const QString& path, const QByteArray& value) {
        emit phoneNotified(phone->state().device(), path, value);
    });
}

Attribute Daemon::attribute(const QString& path, const QString& adapter) const
{
    const QList<Registration> registered = applications();
    for (const Registration& application : registered) {
        const DBusInterfaceList interfaces = application.objects.value(QDBusObjectPath(path));
        for (const QString& interface : {Names::GattCharacteristic, Names::GattDescriptor}) {
            if (interfaces.contains(interface) && (adapter.isEmpty() || adapter == application.manager)) {
                return {application.sender, path, application.manager, interface,
                        interfaces.value(interface)};
            }
        }
    }
    return Attribute();
}

bool Daemon::hasSubscriber(const QString& path) const
{
    return m_phone->isSubscribed(path) ||
           std::any_of(m_attPhones.begin(), m_attPhones.end(),
                       [&path](const AttPhone* phone) { return phone->isSubscribed(path); });
}

void Daemon::dropSubscriptions(const Registration& application)
{
    m_sockets->drop(application);
    m_phone->forget(application);
    for (AttPhone* phone : qAsConst(m_attPhones)) {
        phone->drop(application);
    }
}

QList<Registration> Daemon::applications() const
{
    return registeredWith(m_gattManagers);
}

QList<Registration> Daemon::advertisements() const
{
    return registeredWith(m_advertisingManagers);
}

bool Daemon::releaseAdvertisement(const QString& path)
{
    bool isReleased = false;
    for (AdvertisingManager* manager : qAsConst(m_advertisingManagers)) {
        isReleased = manager->release(path) || isReleased;
    }
    return isReleased;
}

void Daemon::answer(const QDBusMessage& call, const QVariantList& values)
{
    send(call, call.createReply(values));
}

void Daemon::refuse(const QDBusMessage& call, const Refusal& refusal)
{
    send(call, call.createErrorReply(refusal.name, refusal.message));
}

bool Daemon::changeProperty(const QString& path, const QString& interface, const QString& name,
                            const QVariant& value)
{
    return changeProperties(path, interface, {{name, value}});
}

bool Daemon::changeProperties(const QString& path, const QString& interface, const QVariantMap& values)
{
    for (auto value = values.begin(); value != values.end(); ++value) {
        if (!m_tree.setProperty(path, interface, value.key(), value.value())) {
            return false;
        }
    }
    const QVariant powered = values.value(QStringLiteral("Powered"));
    if (interface == Names::Adapter && powered.isValid() && m_advertisingManagers.contains(path)) {
        m_advertisingManagers.value(path)->setPowered(powered.toBool());
    }
    QDBusMessage signal =
        QDBusMessage::createSignal(path, Names::Properties, QStringLiteral("PropertiesChanged"));
    signal << interface << values << QStringList();
    m_connection.send(signal);
    return true;
}

QVariant Daemon::property(const QString& path, const QString& interface, const QString& name) const
{
    return m_tree.interfaces(path).value(interface).value(name);
}

QString Daemon::introspect(const QString& path) const
{
    return m_tree.introspection(path);
}

bool Daemon::handleMessage(const QDBusMessage& call, const QDBusConnection& /*connection*/)
{
    if (call.type() != QDBusMessage::MethodCallMessage) {
        return false;
    }
    m_state.calls.record(call);
    const Answer ordered = m_state.faults.answerTo(call.member());
    if (ordered.mode == Answer::Error) {
        refuse(call, {ordered.errorName, ordered.errorMessage});
    } else if (ordered.mode != Answer::Never) {
        dispatch(call);
    }
    return true;
}

void Daemon::onClientVanished(const QString& sender)
{
    m_clients.removeWatchedService(sender);
    m_agents->dropClient(sender);
    for (GattManager* manager : qAsConst(m_gattManagers)) {
        manager->dropClient(sender);
    }
    for (AdvertisingManager* manager : qAsConst(m_advertisingManagers)) {
        manager->dropClient(sender);
    }
}

void Daemon::onPropertiesChanged(const QDBusMessage& signal)
{
    if (signal.signature() != QLatin1String("sa{sv}as")) {
        return;
    }
    const QString interface = signal.arguments().constFirst().toString();
    const QVariantMap changed = DBusValue::variantMap(signal.arguments().at(1));
    if (interface == Names::GattCharacteristic) {
        m_phone->notice(signal.service(), signal.path(), changed);
        for (AttPhone* phone : qAsConst(m_attPhones)) {
            phone->notice(signal.service(), signal.path(), changed);
        }
    } else if (interface == Names::Advertisement) {
        for (AdvertisingManager* manager : qAsConst(m_advertisingManagers)) {
            manager->update(signal.service(), signal.path(), changed);
        }
    }
}

void Daemon::send(const QDBusMessage& call, const QDBusMessage& reply)
{
    if (!call.isReplyRequired()) {
        return;
    }
    const int delay = m_state.faults.answerTo(call.member()).delayMs;
    if (delay > 0) {
        QTimer::singleShot(delay, this, [this, reply] { m_connection.send(reply); });
    } else {
        m_connection.send(reply);
    }
}

void Daemon::sendInterfacesAdded(const QString& path, const DBusInterfaceList& added)
{
    QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/"), Names::ObjectManager,
                                                     QStringLiteral("InterfacesAdded"));
    signal << QVariant::fromValue(QDBusObjectPath(path)) << QVariant::fromValue(added);
    m_connection.send(signal);
}

void Daemon::dispatch(const QDBusMessage& call)
{
    const QString interface = call.interface();
    const auto isCall = [&](const QString& served, const char* member) {
        return (interface.isEmpty() || interface == served) && call.member() == QLatin1String(member);
    };
    const QString introspection = introspect(call.path());
    if (isCall(Names::Introspectable, "Introspect") && !introspection.isEmpty()) {
        answer(call, {introspection});
    } else if (isCall(Names::ObjectManager, "GetManagedObjects") && call.path() == QLatin1String("/")) {
        answer(call, {QVariant::fromValue(m_tree.objects())});
    } else if (!handleManagerCall(call) && !m_agents->handle(call) && !handleDeviceCall(*this, call) &&
               !handlePropertiesCall(*this, call)) {
        refuse(call,
               {QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"),
                QStringLiteral("Method \"%1\" with signature \"%2\" on interface \"%3\" doesn't exist\n")
                    .arg(call.member(), call.signature(), interface)});
    }
}

bool Daemon::handleManagerCall(const QDBusMessage& call)
{
    const auto concerns = [&call](const QString& interface) {
        return call.interface().isEmpty() || call.interface() == interface;
    };
    // A method that is called with another signature is unknown to the daemon.
    const QString form = call.member() + QLatin1Char(' ') + call.signature();
    RegistrationManager* gatt = concerns(Names::GattManager) ? m_gattManagers.value(call.path()) : nullptr;
    RegistrationManager* advertising =
        concerns(Names::AdvertisingManager) ? m_advertisingManagers.value(call.path()) : nullptr;
    if (gatt && form == QLatin1String("RegisterApplication oa{sv}")) {
        gatt->add(call);
    } else if (gatt && form == QLatin1String("UnregisterApplication o")) {
        gatt->remove(call);
    } else if (advertising && form == QLatin1String("RegisterAdvertisement oa{sv}")) {
        advertising->add(call);
    } else if (advertising && form == QLatin1String("UnregisterAdvertisement o")) {
        advertising->remove(call);
    } else {
        return false;
    }
    return true;
}

void Daemon::serve(RegistrationManager* manager)
{
    connect(manager, &RegistrationManager::registered, this, &Daemon::registered);
    connect(manager, &RegistrationManager::refused, this, &Daemon::refused);
    connect(manager, &RegistrationManager::unregistered, this, &Daemon::unregistered);
}

} // namespace simulator
