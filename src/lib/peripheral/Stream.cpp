#include "Stream.h"

#include "AttLimits.h"
#include "BluezObjects.h"
#include "ByteQueue.h"
#include "DaemonVersion.h"
#include "Service.h"
#include "SocketTransport.h"
#include "StreamOutput.h"

#include "BluezInterfaces.h"
#include "GattApplication.h"
#include "plimlog.h"

#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace {

constexpr qint64 usualBufferSize = 65536;

qint64 atLeastOneWrite(qint64 size)
{
    return std::max<qint64>(size, plim::detail::maximumAttributeSize);
}

} // namespace

plim::Stream::Stream(GattApplication* application, QObject* parent)
    : Stream(application, StreamService(), parent)
{
}

plim::Stream::Stream(GattApplication* application, const StreamService& service, QObject* parent)
    : QIODevice(parent),
      m_bluez(detail::BluezObjects::shared()),
      m_received(new detail::ByteQueue),
      m_readBufferSize(usualBufferSize),
      m_writeBufferSize(usualBufferSize),
      m_transport(service.transport)
{
    const QPointer<Service> owner = Service::create(application, service.service);
    if (owner) {
        m_rx = Characteristic::create(owner, service.rx, service.rxAccess);
    }
    if (owner) {
        m_tx = Characteristic::create(owner, service.tx, service.txAccess);
    }
    if (!m_rx || !m_tx) {
        return; // a slot has deleted them
    }
    m_output = std::make_unique<detail::StreamOutput>(m_tx);
    plim::connect(m_output.get(), &detail::StreamOutput::taken, this, &Stream::on_taken);
    m_rx->setWriteHandler([self = QPointer<Stream>(this)](const WriteRequest& request) {
        if (self) {
            self->receive(request);
        } else {
            request.reject(AttError::application(OtherCentral));
        }
    });
    m_tx->trackSubscribers();
    m_tx->setTransport(m_transport);
    chooseTransportOfWrites();
    plim::connect(m_bluez.get(), &detail::BluezObjects::objectAdded, this, &Stream::chooseTransportOfWrites);
    plim::connect(m_tx.data(), &Characteristic::subscribed, this, &Stream::on_subscribed);
    plim::connect(m_tx.data(), &Characteristic::unsubscribed, this, &Stream::on_unsubscribed);
    plim::connect(m_tx.data(), &QObject::destroyed, this, &Stream::end);
    plim::connect(m_rx.data(), &QObject::destroyed, this, &Stream::end);
    plim::connect(m_bluez.get(), &detail::BluezObjects::deviceDisconnected, this,
                  &Stream::on_deviceDisconnected);
    plim::connect(m_bluez.get(), &detail::BluezObjects::propertiesChanged, this,
                  &Stream::on_propertiesChanged);
}

plim::Stream::~Stream()
{
    const qint64 unsent = Stream::bytesToWrite();
    const qint64 unread = Stream::bytesAvailable();
    if (unsent + unread > 0) {
        PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
                 "Stream with " << m_central.path() << " deleted with " << unsent << " bytes to write and "
                                << unread << " bytes to read");
    }
}

void plim::Stream::setReadBufferSize(qint64 size)
{
    m_readBufferSize = atLeastOneWrite(size);
}

void plim::Stream::setWriteBufferSize(qint64 size)
{
    m_writeBufferSize = atLeastOneWrite(size);
}

bool plim::Stream::open(OpenMode mode)
{
    PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
             "Stream not opened with mode " << int(mode) << ": it opens when a central subscribes");
    return false;
}

void plim::Stream::close()
{
    if (!m_isEnding) {
        m_waiting.removeAll(m_central);
        end();
    }
}

bool plim::Stream::isSequential() const
{
    return true;
}

qint64 plim::Stream::bytesAvailable() const
{
    return m_received->size() + QIODevice::bytesAvailable();
}

qint64 plim::Stream::bytesToWrite() const
{
    return m_output ? m_output->size() : 0;
}

bool plim::Stream::canReadLine() const
{
    return m_received->lineSize() > 0 || QIODevice::canReadLine();
}

bool plim::Stream::waitForReadyRead(int msecs)
{
    return waitFor(m_arrivals, msecs);
}

bool plim::Stream::waitForBytesWritten(int msecs)
{
    return bytesToWrite() > 0 && waitFor(m_departures, msecs);
}

/** Whether the counter has changed before the connection ended. */
bool plim::Stream::waitFor(const quint64& counter, int msecs)
{
    const QPointer<Stream> self = this;
    const quint64 before = counter;
    const quint64 connection = m_connections;
    bool isLate = false;
    QEventLoop loop;
    plim::connect(this, &Stream::progressed, &loop, &QEventLoop::quit);
    plim::connect(this, &QObject::destroyed, &loop, &QEventLoop::quit);
    if (msecs >= 0) {
        QTimer::singleShot(msecs, &loop, [&] {
            isLate = true;
            loop.quit();
        });
    }
    const auto isServed = [&] { return self && isOpen() && !m_isEnding && m_connections == connection; };
    while (isServed() && counter == before && !isLate) {
        if (loop.exec() != 0) {
            break; // the program ends
        }
    }
    return isServed() && counter != before;
}

qint64 plim::Stream::readData(char* data, qint64 maxSize)
{
    const qint64 count = m_received->take(data, maxSize);
    if (m_isPaused) {
        QMetaObject::invokeMethod(this, &Stream::resume, Qt::QueuedConnection);
    }
    return count;
}

qint64 plim::Stream::readLineData(char* data, qint64 maxSize)
{
    const qint64 line = m_received->lineSize();
    return readData(data, line < 0 ? maxSize : std::min(line, maxSize));
}

qint64 plim::Stream::writeData(const char* data, qint64 maxSize)
{
    const qint64 count = std::min(maxSize, std::max<qint64>(0, m_writeBufferSize - bytesToWrite()));
    if (count > 0) {
        m_output->add(QByteArray(data, int(count)));
    }
    return count;
}

void plim::Stream::on_subscribed(const Central& central)
{
    if (!m_waiting.contains(central)) {
        m_waiting << central;
        begin();
    }
}

void plim::Stream::on_unsubscribed(const Central& central)
{
    m_waiting.removeAll(central);
    if (central == m_central) {
        end();
    }
}

/** What follows from it is done in on_propertiesChanged(). */
void plim::Stream::on_deviceDisconnected(const QString& path)
{
    const Central central(path);
    m_waiting.removeAll(central);
    m_isLinkLost = m_isLinkLost || central == m_central;
}

/** BlueZ keeps the subscriptions of bonded centrals that leave, and does not name them again. When this is
 * called, the central may be back: others' slots run event loops. */
void plim::Stream::on_propertiesChanged(const QString& path, const QString& interface,
                                        const QStringList& names)
{
    const QString connected = QStringLiteral("Connected");
    if (interface != BluezInterfaces::Device || !names.contains(connected)) {
        return;
    }
    const Central central(path);
    const QPointer<Stream> self = this;
    if (m_isLinkLost && central == m_central) {
        end();
    }
    if (self && m_bluez->value(path, interface, connected).toBool() && m_tx &&
        m_tx->subscribers().contains(central)) {
        on_subscribed(central);
    }
}

void plim::Stream::on_taken(qint64 bytes)
{
    ++m_departures;
    const QPointer<Stream> self = this;
    emit progressed(QPrivateSignal());
    if (self) {
        emit bytesWritten(bytes);
    }
}

/** Serves the central that has waited longest. */
void plim::Stream::begin()
{
    if (isOpen() || m_isEnding || m_waiting.isEmpty() || !m_rx || !m_tx) {
        return;
    }
    m_central = m_waiting.constFirst();
    m_isLinkLost = false;
    ++m_connections;
    m_output->begin(m_central);
    QIODevice::open(ReadWrite | Unbuffered);
    PLIM_LOG(plim::bleLogger(), DEBUG, Q_FUNC_INFO, "Stream with " << m_central.path() << " begins");
    // A copy: slots may end the connection, or this object, and use it afterwards.
    const Central central = m_central;
    emit connected(central);
}

void plim::Stream::end()
{
    const quint64 connection = m_connections;
    if (!isOpen() || m_isEnding || !receiveRest()) {
        return;
    }
    if (!isOpen() || m_isEnding || m_connections != connection) {
        return; // a slot has ended it
    }
    m_isEnding = true;
    const QPointer<Stream> self = this;
    emit progressed(QPrivateSignal());
    if (self) {
        emit readChannelFinished();
    }
    if (!self) {
        return;
    }
    if (isTransactionStarted()) {
        commitTransaction();
    }
    const qint64 unread = bytesAvailable();
    readAll();
    // QIODevice::close() does this too, but does not survive a slot that deletes the device.
    emit aboutToClose();
    if (self.isNull()) {
        return;
    }
    setOpenMode(NotOpen);
    pause(false);
    const qint64 unsent = m_output->end();
    const Central central = std::exchange(m_central, Central());
    m_isEnding = false;
    PLIM_LOG(plim::bleLogger(), DEBUG, Q_FUNC_INFO,
             "Stream with " << central.path() << " ends, bytes not sent: " << unsent
                            << ", not read: " << unread);
    emit disconnected(central, unsent, unread);
    if (self) {
        begin();
    }
}

/** Older versions have one socket for all centrals, and it does not tell who writes. */
void plim::Stream::chooseTransportOfWrites()
{
    using Transport = Characteristic::Transport;
    if (!m_rx || m_transport != Transport::SocketsBothWays) {
        return;
    }
    const QStringList adapters = m_bluez->paths(BluezInterfaces::Adapter);
    const bool tellsCentral = std::all_of(adapters.begin(), adapters.end(), [this](const QString& adapter) {
        return detail::daemonVersion(
                   m_bluez->value(adapter, BluezInterfaces::Adapter, QStringLiteral("Modalias"))
                       .toString()) >= detail::firstWithSocketPerCentral;
    });
    m_rx->setTransport(tellsCentral ? m_transport : Transport::Bus);
}

void plim::Stream::receive(const WriteRequest& request)
{
    const QByteArray bytes = request.value();
    if (m_isEnding || m_central.isNull() || request.central() != m_central) {
        reject(request, OtherCentral);
        return;
    }
    if (bytesAvailable() + bytes.size() > m_readBufferSize) {
        reject(request, BufferFull);
        return;
    }
    m_received->append(bytes);
    ++m_arrivals;
    if (bytesAvailable() + detail::maximumAttributeSize > m_readBufferSize) {
        pause(true);
    }
    const QPointer<Stream> self = this;
    request.accept();
    if (self && !bytes.isEmpty()) {
        announce();
    }
}

/** Stops reading the socket, if there is one, before a packet does not fit, or reads it again. */
void plim::Stream::pause(bool isPaused)
{
    m_isPaused = isPaused;
    if (m_rx && m_rx->m_sockets) {
        m_rx->m_sockets->setReading(m_central, !isPaused);
    }
}

void plim::Stream::resume()
{
    if (m_isPaused && bytesAvailable() <= m_readBufferSize / 2) {
        pause(false);
    }
}

/** What was written before the end may still wait in the socket. @return false if this object has ended */
bool plim::Stream::receiveRest()
{
    const QPointer<Stream> self = this;
    quint64 before = m_arrivals - 1;
    while (self && before != m_arrivals && !m_isPaused && m_rx && m_rx->m_sockets) {
        before = m_arrivals;
        m_rx->m_sockets->read(m_central);
    }
    return self;
}

void plim::Stream::reject(const WriteRequest& request, Refusal reason)
{
    request.reject(AttError::application(reason));
    m_rejectedBytes += request.value().size();
    emit rejected(request.central(), request.value().size());
}

void plim::Stream::announce()
{
    const QPointer<Stream> self = this;
    emit progressed(QPrivateSignal());
    if (!self || m_isAnnouncing) {
        return;
    }
    m_isAnnouncing = true;
    for (quint64 told = m_arrivals - 1; self && isOpen() && told != m_arrivals;) {
        told = m_arrivals;
        emit readyRead();
    }
    if (self) {
        m_isAnnouncing = false;
    }
}
