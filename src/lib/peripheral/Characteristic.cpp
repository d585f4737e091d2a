#include "Characteristic.h"

#include "AcquireNotifyAdaptor.h"
#include "AttLimits.h"
#include "AttributeServer.h"
#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "GattApplication.h"
#include "GattService.h"
#include "LinkMtus.h"
#include "RequestWitness.h"
#include "TreePath.h"
#include "plimlog.h"

#include <QDBusObjectPath>
#include <QPointer>
#include <QSignalBlocker>

#include <utility>

namespace {

/** When a link is lost, BlueZ says so, and right after that it calls Confirm for each open indication. */
constexpr int falseConfirmationsMs = 500;

/** More than any peripheral has. Without a limit, a caller could fill the memory. */
constexpr int maximumSubscribers = 256;

/** Bytes of a notification in front of the value. */
constexpr int notificationHeader = 3;

/** The base class's options for an access. */
GattCharacteristic::Option optionOf(const plim::Access& access)
{
    return GattCharacteristic::Option((access.allowsRead() ? GattCharacteristic::Read : 0) |
                                      (access.allowsWrite() ? GattCharacteristic::Write : 0) |
                                      (access.allowsSubscribing() ? GattCharacteristic::Notify : 0));
}

} // namespace

plim::Characteristic* plim::Characteristic::create(GattService* service, const QString& uuid,
                                                   const Access& access, const QString& pathElement,
                                                   GattCharacteristic* control)
{
    const detail::TreePath place(service->dbusPath(), uuid, pathElement);
    return static_cast<Characteristic*>(
        service->record(new Characteristic(service, uuid, place.path(), access, control), place.key()));
}

plim::Characteristic::Characteristic(GattService* service, const QString& uuid, const QString& dbusPath,
                                     const Access& access, GattCharacteristic* control)
    : GattCharacteristic(service, uuid, dbusPath, optionOf(access), control),
      m_control(control),
      m_server(new detail::AttributeServer(this, access, dbusPath))
{
    if (access.allowsIndications()) {
        watchBluez();
        // Only indications from before the lost link are given up. A confirmation of this one is a real one,
        // perhaps by a central that has connected in between.
        plim::connect(this, &GattCharacteristic::PropertiesChanged, this,
                      [this] { m_sinceDisconnection.invalidate(); });
    }
}

plim::Characteristic::~Characteristic()
{
    // Qt would end these connections after destroyed(), at which the application emits applicationChanged().
    disconnect(m_treeChanges);
    if (m_bluez) {
        m_bluez->disconnect(this);
    }
}

plim::Access plim::Characteristic::access() const
{
    return m_server->access();
}

QStringList plim::Characteristic::flags() const
{
    PLIM_LOG_ENTER(plim::bleLogger(), TRACE, "QStringList GattCharacteristic::flags() const", "");
    return m_server->access().flags();
}

void plim::Characteristic::setReadHandler(const ReadHandler& handler)
{
    m_server->setReadHandler(handler);
}

void plim::Characteristic::setWriteHandler(const WriteHandler& handler)
{
    m_server->setWriteHandler(handler);
}

void plim::Characteristic::trackSubscribers()
{
    if (m_tracking) {
        return;
    }
    m_tracking = true;
    m_mtus = detail::LinkMtus::shared();
    // Of several adaptors for one interface, Qt calls the one that was created last.
    new AcquireNotifyAdaptor(this);
    watchBluez();
    plim::connect(m_bluez.get(), &detail::BluezObjects::objectRemoved, this,
                  &Characteristic::on_objectRemoved);
    // Subscribers that BlueZ has not shown as objects end with it as well.
    plim::connect(m_bluez.get(), &detail::BluezObjects::ended, this, &Characteristic::unsubscribeAll);
    if (const auto* application = qobject_cast<GattApplication*>(parent() ? parent()->parent() : nullptr)) {
        // It is registered again, which ends all subscriptions.
        m_treeChanges = plim::connect(application, &GattApplication::applicationChanged, this,
                                      &Characteristic::unsubscribeAll);
    }
}

QList<plim::Central> plim::Characteristic::subscribers() const
{
    return m_subscribers;
}

void plim::Characteristic::setTransport(Transport transport)
{
    m_transport = transport;
}

plim::Characteristic::Transport plim::Characteristic::transport() const
{
    return m_transport;
}

bool plim::Characteristic::notify(const QByteArray& value)
{
    setValue(value);
    return true;
}

bool plim::Characteristic::notify(const Central& central, const QByteArray& value)
{
    PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
             central.path() << " has no socket for " << dbusPath() << ": " << value.size()
                            << " bytes not sent");
    return false;
}

QList<plim::Central> plim::Characteristic::missed() const
{
    return {};
}

qint64 plim::Characteristic::bytesToWrite(const Central& /*central*/) const
{
    return 0;
}

int plim::Characteristic::maximumLength(const Central& central) const
{
    return (m_mtus ? m_mtus->mtu(central.path()) : detail::smallestMtu) - notificationHeader;
}

QByteArray plim::Characteristic::ReadValue(const QVariantMap& options)
{
    if (m_server->read(*this, options)) {
        return {};
    }
    return GattCharacteristic::ReadValue(options);
}

void plim::Characteristic::WriteValue(const QByteArray& value, const QVariantMap& options)
{
    // With a negative page selected, the base class drops the write and says so.
    if (!hasPage() ||
        !m_server->write(*this, value, options, [=](bool notify) { store(value, options, notify); })) {
        GattCharacteristic::WriteValue(value, options);
    }
}

void plim::Characteristic::store(const QByteArray& value, const QVariantMap& options, bool notify)
{
    {
        // The base class would emit its signals now, and always notify.
        const QSignalBlocker quiet(this);
        GattCharacteristic::WriteValue(value, options);
    }
    if (!hasPage()) {
        return;
    }
    const QPointer<Characteristic> self = this;
    emit valueChanged();
    if (self && notify) {
        notifyValueChanged();
    }
}

/** Whether a write can be stored. The base class drops it if the control selects a negative page. */
bool plim::Characteristic::hasPage() const
{
    return !m_control || m_control->value().toInt(nullptr, 10) >= 0;
}

bool plim::Characteristic::refusesSubscribing()
{
    if (!calledFromDBus() || m_server->access().allowsSubscribing()) {
        return false;
    }
    m_server->refuse(*this, AttError::RequestNotSupported);
    return true;
}

void plim::Characteristic::StartNotify()
{
    if (!refusesSubscribing()) {
        GattCharacteristic::StartNotify();
    }
}

void plim::Characteristic::StopNotify()
{
    const QPointer<Characteristic> self = this;
    GattCharacteristic::StopNotify();
    if (self) {
        unsubscribeAll();
    }
}

void plim::Characteristic::Confirm()
{
    GattCharacteristic::Confirm();
    const bool linkWasLost =
        m_sinceDisconnection.isValid() && !m_sinceDisconnection.hasExpired(falseConfirmationsMs);
    if (m_server->access().allowsIndications() && !linkWasLost) {
        emit confirmed();
    }
}

void plim::Characteristic::AcquireNotify(const QVariantMap& options)
{
    if (!calledFromDBus() || refusesSubscribing()) {
        return;
    }
    detail::RequestWitness::note(*this, options);
    // BlueZ then calls StartNotify().
    m_server->refuse(*this, AttError::RequestNotSupported);
    const Central central(options.value(QStringLiteral("device")).value<QDBusObjectPath>().path());
    if (!central.isNull() && !m_subscribers.contains(central) && m_subscribers.size() < maximumSubscribers) {
        m_subscribers << central;
        emit subscribed(central);
    }
}

QDBusVariant plim::Characteristic::Get(const QString& interface, const QString& name)
{
    if (!m_tracking && name == QLatin1String("NotifyAcquired")) {
        return QDBusVariant(QVariant());
    }
    return GattCharacteristic::Get(interface, name);
}

bool plim::Characteristic::notifyAcquired() const
{
    return false; // sockets are declined
}

void plim::Characteristic::watchBluez()
{
    if (!m_bluez) {
        m_bluez = detail::BluezObjects::shared();
        plim::connect(m_bluez.get(), &detail::BluezObjects::propertiesChanged, this,
                      &Characteristic::on_propertiesChanged);
    }
}

void plim::Characteristic::on_propertiesChanged(const QString& path, const QString& interface,
                                                const QStringList& names)
{
    const QString connected = QStringLiteral("Connected");
    if (interface == BluezInterfaces::Device && names.contains(connected) &&
        !m_bluez->value(path, interface, connected).toBool()) {
        m_sinceDisconnection.start();
    }
}

void plim::Characteristic::on_objectRemoved(const QString& path, const QString& interface)
{
    if (interface == BluezInterfaces::Device && m_subscribers.removeOne(Central(path))) {
        emit unsubscribed(Central(path));
    }
}

void plim::Characteristic::unsubscribeAll()
{
    const QPointer<Characteristic> self = this;
    for (const Central& central : std::exchange(m_subscribers, {})) {
        emit unsubscribed(central);
        if (!self) {
            return;
        }
    }
}
