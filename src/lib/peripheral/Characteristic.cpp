#include "Characteristic.h"

#include "AcquireNotifyAdaptor.h"
#include "AcquireNotifyWriteAdaptor.h"
#include "AcquireWriteAdaptor.h"
#include "AttLimits.h"
#include "AttributeServer.h"
#include "BluezObjects.h"
#include "GattService.h"
#include "LinkMtus.h"
#include "SocketTransport.h"
#include "TreePath.h"
#include "plimlog.h"

#include <QDBusObjectPath>
#include <QPointer>
#include <QSignalBlocker>

#include <optional>

namespace {

/** When a link is lost, BlueZ says so, and right after that it calls Confirm for each open indication. */
constexpr int falseConfirmationsMs = 500;

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
    m_sockets.reset();
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

/** Shows on the bus what makes BlueZ ask for sockets. */
void plim::Characteristic::showAcquiring()
{
    // Of several adaptors for one interface, Qt calls the one that was created last.
    if (m_tracking && m_offersWriting) {
        new AcquireNotifyWriteAdaptor(this);
    } else if (m_offersWriting) {
        new AcquireWriteAdaptor(this);
    } else {
        new AcquireNotifyAdaptor(this);
    }
}

void plim::Characteristic::setTransport(Transport transport)
{
    const bool writes = transport == Transport::SocketsBothWays;
    m_transport = transport;
    if (transport != Transport::Bus && !m_sockets) {
        makeSockets();
    }
    if (writes && access().allowsWriteWithoutResponse() && !m_offersWriting) {
        m_offersWriting = true;
        showAcquiring();
    }
    if (m_sockets) {
        m_sockets->setOffered(transport != Transport::Bus, writes);
    }
}

void plim::Characteristic::makeSockets()
{
    if (access().allowsSubscribing()) {
        trackSubscribers();
    }
    watchBluez();
    using detail::SocketTransport;
    m_sockets = std::make_unique<SocketTransport>(this, m_bluez);
    plim::connect(m_sockets.get(), &SocketTransport::subscribed, this, &Characteristic::addSubscriber);
    plim::connect(m_sockets.get(), &SocketTransport::unsubscribed, this, &Characteristic::removeSubscriber);
    plim::connect(m_sockets.get(), &SocketTransport::readyToWrite, this, &Characteristic::readyToWrite);
    plim::connect(m_sockets.get(), &SocketTransport::confirmed, this, &Characteristic::confirmed);
    plim::connect(m_sockets.get(), &SocketTransport::written, this, &Characteristic::on_written);
}

bool plim::Characteristic::notify(const QByteArray& value)
{
    if (m_sockets) {
        return m_sockets->notify(value);
    }
    setValue(value);
    return true;
}

bool plim::Characteristic::notify(const Central& central, const QByteArray& value)
{
    if (m_sockets) {
        return m_sockets->notify(central, value);
    }
    PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO, central.path() << " has no socket for " << dbusPath());
    return false;
}

QList<plim::Central> plim::Characteristic::missed() const
{
    return m_sockets ? m_sockets->missed() : QList<Central>();
}

qint64 plim::Characteristic::bytesToWrite(const Central& central) const
{
    return m_sockets ? m_sockets->unread(central) : 0;
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

/** A write that arrived through a socket. */
void plim::Characteristic::on_written(const QByteArray& value, const QVariantMap& options)
{
    if (!hasPage() ||
        !m_server->writeAcknowledged(value, options, [=](bool notify) { store(value, options, notify); })) {
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
        if (m_sockets) {
            m_sockets->startBus();
        }
        GattCharacteristic::StartNotify();
    }
}

void plim::Characteristic::StopNotify()
{
    const QPointer<Characteristic> self = this;
    const bool someHaveSockets = m_sockets && m_sockets->stopBus();
    const QList<Central> ended = takeSubscribersOfBus();
    if (!someHaveSockets) {
        GattCharacteristic::StopNotify();
    }
    if (self) {
        tellUnsubscribed(ended);
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
    const int endings = m_endings;
    if (!calledFromDBus() || refusesSubscribing() || !m_server->note(*this, options)) {
        return;
    }
    if (m_endings != endings) {
        // It was given up in the event loop of a slot.
        m_server->refuse(*this, *detail::SocketTransport::declined);
    } else if (m_sockets) {
        m_sockets->acquireNotify(*this, options);
    } else {
        m_server->refuse(*this, *detail::SocketTransport::declined);
        addSubscriber(Central(options.value(QStringLiteral("device")).value<QDBusObjectPath>().path()));
    }
}

void plim::Characteristic::AcquireWrite(const QVariantMap& options)
{
    if (!calledFromDBus() || !m_server->note(*this, options)) {
        return;
    }
    if (!m_sockets || !m_sockets->acquireWrite(*this, options)) {
        // BlueZ calls WriteValue(). After another error, it would drop the value.
        m_server->refuse(*this, AttError::UnlikelyError);
    }
}

QDBusVariant plim::Characteristic::Get(const QString& interface, const QString& name)
{
    if ((!m_tracking && name == QLatin1String("NotifyAcquired")) ||
        (!m_offersWriting && name == QLatin1String("WriteAcquired"))) {
        return QDBusVariant(QVariant());
    }
    return GattCharacteristic::Get(interface, name);
}

bool plim::Characteristic::notifyAcquired() const
{
    return m_sockets && m_sockets->isNotifying();
}

bool plim::Characteristic::writeAcquired() const
{
    return m_sockets && m_sockets->isWriting();
}

void plim::Characteristic::watchBluez()
{
    if (!m_bluez) {
        m_bluez = detail::BluezObjects::shared();
        plim::connect(m_bluez.get(), &detail::BluezObjects::deviceDisconnected, this,
                      [this] { m_sinceDisconnection.start(); });
    }
}
