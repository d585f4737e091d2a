#include "SocketTransport.h"

#include "AttLimits.h"
#include "AttSocket.h"
#include "AttributeServer.h"
#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "DBusDetail.h"
#include "DaemonVersion.h"
#include "GattCharacteristic.h"
#include "LostSubscriptions.h"
#include "PropertiesAdaptor.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace {

/** More than any peripheral has. Without a limit, a caller could use up the file descriptors, or memory. */
constexpr std::size_t maximumSockets = 256;

/** As long as other requests wait. */
constexpr int patienceMs = 5000;

/** A confirmation is a packet with this one byte. */
const QByteArray confirmation = QByteArrayLiteral("\x01");

QString deviceIn(const QVariantMap& options)
{
    return options.value(QStringLiteral("device")).value<QDBusObjectPath>().path();
}

plim::detail::AttSocket* find(const std::vector<plim::detail::AttSocket*>& sockets,
                              const plim::Central& central)
{
    const auto found = std::find_if(sockets.begin(), sockets.end(),
                                    [&](const auto* socket) { return socket->central() == central; });
    return found == sockets.end() ? nullptr : *found;
}

/** The daemon's version; null if it does not tell it. */
QVersionNumber versionOf(const plim::detail::BluezObjects& bluez, const QString& device)
{
    const QString adapter = device.left(device.lastIndexOf(QLatin1Char('/')));
    return plim::detail::daemonVersion(
        bluez.value(adapter, BluezInterfaces::Adapter, QStringLiteral("Modalias")).toString());
}

} // namespace

plim::detail::SocketTransport::SocketTransport(GattCharacteristic* characteristic,
                                               const std::shared_ptr<BluezObjects>& bluez)
    : m_characteristic(characteristic),
      m_bus(characteristic->findChild<PropertiesAdaptor*>(QString(), Qt::FindDirectChildrenOnly)),
      m_bluez(bluez),
      m_lost(new LostSubscriptions(bluez, this))
{
    plim::connect(m_lost, &LostSubscriptions::found, this, &SocketTransport::startNotifying);
    plim::connect(m_lost, &LostSubscriptions::gone, this, &SocketTransport::stopNotifying);
    m_patience.setSingleShot(true);
    m_patience.setInterval(patienceMs);
    plim::connect(&m_patience, &QTimer::timeout, this, &SocketTransport::answerWaiting);
    plim::connect(m_bluez.get(), &BluezObjects::started, this, &SocketTransport::answerWaiting);
    // The base class sends all notifications to the bus.
    QObject::disconnect(characteristic, &GattCharacteristic::PropertiesChanged, m_bus, nullptr);
    plim::connect(characteristic, &GattCharacteristic::PropertiesChanged, this, &SocketTransport::route);
}

plim::detail::SocketTransport::~SocketTransport()
{
    refuseWaiting();
}

void plim::detail::SocketTransport::acquireNotify(const QDBusContext& call, const QVariantMap& options)
{
    call.setDelayedReply(true);
    Acquisition acquisition{call.message(), call.connection(), options};
    if (m_bluez->isStarting() && m_waiting.size() < maximumSockets) {
        m_waiting.push_back(std::move(acquisition));
        if (!m_patience.isActive()) {
            m_patience.start();
        }
    } else {
        answer(acquisition);
    }
}

void plim::detail::SocketTransport::answerWaiting()
{
    m_patience.stop();
    const QPointer<SocketTransport> self = this;
    // In the event loop of a slot, BlueZ may restart, and ask again: what comes then waits anew.
    while (self && !m_patience.isActive() && !m_waiting.empty()) {
        const Acquisition first = std::move(m_waiting.front());
        m_waiting.pop_front();
        answer(first);
    }
}

/** Their centrals are not subscribed any more. */
void plim::detail::SocketTransport::refuseWaiting()
{
    for (const Acquisition& acquisition : std::exchange(m_waiting, {})) {
        AttributeServer::refuse(acquisition.call, acquisition.connection, m_characteristic->dbusPath(),
                                *declined);
    }
}

void plim::detail::SocketTransport::answer(const Acquisition& acquisition)
{
    const std::optional<AttError> refusal = m_offersNotifying ? acquire(acquisition, m_notifying) : declined;
    if (refusal) {
        AttributeServer::refuse(acquisition.call, acquisition.connection, m_characteristic->dbusPath(),
                                *refusal);
        emit subscribed(Central(deviceIn(acquisition.options)));
        return;
    }
    AttSocket* socket = m_notifying.back();
    plim::connect(socket, &AttSocket::closed, this, [this, socket] { on_notifyClosed(socket); });
    plim::connect(socket, &AttSocket::received, this, &SocketTransport::on_received);
    const Central central = socket->central();
    // A copy: the socket may end while slots use it.
    plim::connect(socket, &AttSocket::writable, this, [this, central] { emit readyToWrite(central); });
    const QPointer<SocketTransport> self = this;
    m_lost->forget(central);
    if (self && hasSocket(central)) {
        startNotifying(central);
    }
}

bool plim::detail::SocketTransport::acquireWrite(const QDBusContext& call, const QVariantMap& options)
{
    // What comes from a socket that the centrals share comes from any of them.
    QVariantMap ofWriter = options;
    if (versionOf(*m_bluez, deviceIn(options)) < firstWithSocketPerCentral) {
        ofWriter.remove(QStringLiteral("device"));
    }
    if (!m_offersWriting || acquire({call.message(), call.connection(), options}, m_writing)) {
        return false;
    }
    call.setDelayedReply(true);
    AttSocket* socket = m_writing.back();
    plim::connect(socket, &AttSocket::closed, this, [this, socket] { remove(socket, m_writing); });
    plim::connect(socket, &AttSocket::received, this,
                  [this, ofWriter](const QByteArray& value) { emit written(value, ofWriter); });
    plim::connect(socket, &AttSocket::oversized, this, [this] {
        PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
                 "Write of more than " << maximumAttributeSize << " bytes to " << m_characteristic->dbusPath()
                                       << " dropped");
    });
    return true;
}

/** Answers the call with a new socket, which is then the last one of the list. */
std::optional<plim::AttError> plim::detail::SocketTransport::acquire(const Acquisition& acquisition,
                                                                     Sockets& sockets)
{
    const auto& [call, connection, options] = acquisition;
    const QString device = deviceIn(options);
    const QVersionNumber version = versionOf(*m_bluez, device);
    const bool canPass = connection.connectionCapabilities() & QDBusConnection::UnixFileDescriptorPassing;
    if (!canPass || !call.isReplyRequired() || !m_bluez->isBluez(call.service()) || version.isNull() ||
        sockets.size() >= maximumSockets) {
        return declined;
    }
    m_isShared = version < firstWithSeparateSockets;
    m_isSingle = version < firstWithSocketPerCentral;
    const AttSocket* former = find(sockets, Central(device));
    if (!m_isSingle && former && !former->isHungUp()) {
        // BlueZ would not use another one. After this error, it stays with the one that it has.
        return AttError(AttError::UnlikelyError);
    }
    auto* socket = new AttSocket(options, this);
    const QDBusUnixFileDescriptor theirs = socket->open();
    if (!theirs.isValid()) {
        PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
                 "No socket for " << m_characteristic->dbusPath() << ": " << qt_error_string().toStdString());
        delete socket;
        return declined;
    }
    sockets.push_back(socket);
    const auto mtu = quint16(options.value(QStringLiteral("mtu"), smallestMtu).toUInt());
    connection.send(call.createReply({QVariant::fromValue(theirs), QVariant::fromValue(mtu)}));
    return {};
}

bool plim::detail::SocketTransport::stopBus()
{
    m_isBusNotified = false;
    m_lost->clear();
    return !m_notifying.empty();
}

bool plim::detail::SocketTransport::hasSocket(const Central& central) const
{
    return find(m_notifying, central) != nullptr;
}

/** Whether all subscribers have sockets. */
bool plim::detail::SocketTransport::reachesAll() const
{
    return !m_notifying.empty() && !m_isBusNotified && !m_lost->isAnyConnected();
}

/** Whether anybody is subscribed, as far as is known. */
bool plim::detail::SocketTransport::hasSubscribers() const
{
    return !m_notifying.empty() || m_isBusNotified || m_lost->isAnyConnected();
}

bool plim::detail::SocketTransport::notify(const QByteArray& value)
{
    const QPointer<SocketTransport> self = this;
    m_isInNotify = true;
    m_characteristic->setValue(value);
    if (self) {
        m_isInNotify = false;
    }
    return !self || m_missed.isEmpty();
}

/** Sends a notification, through the sockets if all subscribers have one. */
void plim::detail::SocketTransport::route(const QString& interface, const QVariantMap& changed,
                                          const QStringList& invalidated)
{
    const QByteArray value = m_characteristic->value();
    m_missed.clear();
    if (value.size() > DBusDetail::maximumLength) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO,
                 "Value too long to be notified at " << m_characteristic->dbusPath());
    } else if (value.isEmpty() || !reachesAll()) {
        // BlueZ takes an empty packet for the end of the socket.
        emit m_bus->PropertiesChanged(interface, changed, invalidated);
    } else {
        send(value);
    }
}

void plim::detail::SocketTransport::send(const QByteArray& value)
{
    const QByteArray packet = value.size() > maximumAttributeSize ? value.left(maximumAttributeSize) : value;
    for (auto socket = m_notifying.rbegin(); socket != m_notifying.rend(); ++socket) {
        const AttSocket::Sent sent = (*socket)->send(packet);
        if (sent == AttSocket::Sent::NoRoom) {
            m_missed << (*socket)->central();
        }
        if (m_isShared && sent != AttSocket::Sent::HungUp) {
            break;
        }
    }
    if (!m_missed.isEmpty() && !m_isInNotify) {
        PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
                 m_missed.size() << " centrals have no room for a value of " << m_characteristic->dbusPath());
    }
}

bool plim::detail::SocketTransport::notify(const Central& central, const QByteArray& value)
{
    AttSocket* socket = socketFor(central);
    if (value.isEmpty() || !reachesAlone(central)) {
        PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
                 value.size() << " bytes of " << m_characteristic->dbusPath() << " cannot be sent to "
                              << central.path() << " alone");
        return false;
    }
    return socket->send(value.left(maximumAttributeSize)) == AttSocket::Sent::Yes;
}

bool plim::detail::SocketTransport::reachesAlone(const Central& central) const
{
    return socketFor(central) && (!m_isShared || isTheOnlyCentral(central));
}

void plim::detail::SocketTransport::setReading(const Central& central, bool isReading)
{
    if (AttSocket* socket = find(m_writing, central)) {
        socket->setReading(isReading);
    }
}

void plim::detail::SocketTransport::read(const Central& central)
{
    if (AttSocket* socket = find(m_writing, central)) {
        socket->read();
    }
}

qint64 plim::detail::SocketTransport::unread(const Central& central) const
{
    AttSocket* socket = socketFor(central);
    return socket ? socket->unread() : 0;
}

void plim::detail::SocketTransport::closeAll()
{
    refuseWaiting();
    for (Sockets* sockets : {&m_notifying, &m_writing}) {
        for (AttSocket* socket : *sockets) {
            socket->disconnect(this);
            socket->deleteLater();
        }
        sockets->clear();
    }
    m_missed.clear();
    m_isBusNotified = false;
    m_lost->clear();
}

/** The socket that reaches a central; null if there is none. */
plim::detail::AttSocket* plim::detail::SocketTransport::socketFor(const Central& central) const
{
    return m_isShared && !m_notifying.empty() ? m_notifying.back() : find(m_notifying, central);
}

/** Whether no other central is connected, so that what all subscribers get, only this one gets. */
bool plim::detail::SocketTransport::isTheOnlyCentral(const Central& central) const
{
    const QStringList devices = m_bluez->paths(BluezInterfaces::Device);
    return std::all_of(devices.begin(), devices.end(), [&](const QString& device) {
        const bool isConnected =
            m_bluez->value(device, BluezInterfaces::Device, QStringLiteral("Connected")).toBool();
        return isConnected == (device == central.path());
    });
}

void plim::detail::SocketTransport::on_notifyClosed(AttSocket* socket)
{
    const Central central = socket->central();
    remove(socket, m_notifying);
    m_missed.removeAll(central);
    const QPointer<SocketTransport> self = this;
    stopNotifying(central);
    if (self && hasSocket(central)) {
        startNotifying(central); // it has subscribed again before this was known
    } else if (self && !m_isSingle) {
        // A single socket is closed at the end of the last subscription, and not before.
        m_lost->noteClosed(central);
    }
}

void plim::detail::SocketTransport::startNotifying(const Central& central)
{
    const QPointer<SocketTransport> self = this;
    emit subscribed(central);
    // The subscription may have ended in the event loop of a slot.
    if (self && hasSubscribers()) {
        m_characteristic->StartNotify();
    }
}

void plim::detail::SocketTransport::stopNotifying(const Central& central)
{
    const QPointer<SocketTransport> self = this;
    emit unsubscribed(central);
    if (self && !hasSubscribers()) {
        m_characteristic->StopNotify();
    }
}

void plim::detail::SocketTransport::on_received(const QByteArray& packet)
{
    if (packet == confirmation) {
        emit confirmed();
    }
}

void plim::detail::SocketTransport::remove(AttSocket* socket, Sockets& sockets)
{
    sockets.erase(std::remove(sockets.begin(), sockets.end(), socket), sockets.end());
    socket->deleteLater(); // not now, since this is called by its signal
}
