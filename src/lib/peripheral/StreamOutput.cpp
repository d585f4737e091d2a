#include "StreamOutput.h"

#include "AttLimits.h"
#include "BluezObjects.h"
#include "Characteristic.h"
#include "SocketTransport.h"
#include "plim.h"

#include <QTimer>

#include <algorithm>

namespace {

/** Enough to use a link fully, few enough not to fill BlueZ's memory. */
constexpr int valuesOfAGroup = 8;

/** Packets that are sent before other events have their turn. */
constexpr int packetsInARow = 64;

constexpr int askAgainMs = 1000;

bool onlyIndicates(const plim::Characteristic* characteristic)
{
    return characteristic->access().flags().filter(QStringLiteral("notify")).isEmpty();
}

} // namespace

plim::detail::StreamOutput::StreamOutput(Characteristic* characteristic)
    : m_characteristic(characteristic),
      m_bluez(BluezObjects::shared()),
      m_indicates(onlyIndicates(characteristic))
{
    plim::connect(characteristic, &GattCharacteristic::notifyStateChanged, this, &StreamOutput::schedule);
    plim::connect(characteristic, &Characteristic::readyToWrite, this, &StreamOutput::schedule);
    plim::connect(characteristic, &Characteristic::confirmed, this, [this] {
        if (m_indicates && m_onTheWay > 0) {
            on_taken();
        }
    });
}

plim::detail::StreamOutput::~StreamOutput() = default;

void plim::detail::StreamOutput::begin(const Central& central)
{
    m_central = central;
}

qint64 plim::detail::StreamOutput::end()
{
    const qint64 notTaken = size();
    m_central = Central();
    m_queue.clear();
    m_onTheWay = 0;
    ++m_group;
    return notTaken;
}

void plim::detail::StreamOutput::add(const QByteArray& bytes)
{
    m_queue.append(bytes);
    schedule();
}

/** Whether there is a socket whose packets reach this central only. */
bool plim::detail::StreamOutput::hasSocket() const
{
    return m_characteristic->m_sockets && m_characteristic->m_sockets->reachesAlone(m_central);
}

/** The next bytes for one packet of the link. */
QByteArray plim::detail::StreamOutput::piece() const
{
    return m_queue.head(std::min(m_characteristic->maximumLength(m_central), maximumAttributeSize));
}

/** What is added until the event loop runs shares packets. */
void plim::detail::StreamOutput::schedule()
{
    if (!m_isScheduled) {
        m_isScheduled = true;
        QMetaObject::invokeMethod(this, &StreamOutput::send, Qt::QueuedConnection);
    }
}

void plim::detail::StreamOutput::send()
{
    m_isScheduled = false;
    if (!m_characteristic || m_isSending || m_onTheWay > 0) {
        return;
    }
    if (hasSocket()) {
        sendThroughSocket();
    } else {
        sendOverBus();
    }
}

void plim::detail::StreamOutput::sendThroughSocket()
{
    qint64 bytes = 0;
    int count = 0;
    for (; count < packetsInARow && !m_queue.isEmpty(); ++count) {
        const QByteArray packet = piece();
        if (!m_characteristic->notify(m_central, packet)) {
            break; // readyToWrite() or the end of the socket follows
        }
        m_queue.drop(packet.size());
        bytes += packet.size();
    }
    if (count == packetsInARow) {
        schedule(); // after other events
    }
    if (bytes > 0) {
        emit taken(bytes);
    }
}

void plim::detail::StreamOutput::sendOverBus()
{
    const QPointer<StreamOutput> self = this;
    const quint64 group = m_group;
    const int mostValues = m_indicates ? 1 : valuesOfAGroup;
    for (int count = 0; count < mostValues && !m_queue.isEmpty(); ++count) {
        // Before BlueZ listens, a value would reach nobody.
        if (!m_characteristic || !m_characteristic->notifying()) {
            break;
        }
        const QByteArray value = piece();
        m_isSending = true;
        // Other subscribers may have a socket, through which this one is reached, too.
        const bool isSent = m_characteristic->notify(value);
        if (!self) {
            return; // a slot has ended the stream
        }
        m_isSending = false;
        if (!isSent || group != m_group) {
            break;
        }
        m_queue.drop(value.size());
        m_onTheWay += value.size();
    }
    if (m_onTheWay > 0 && !m_indicates) {
        askWhetherTaken(m_group);
    }
}

void plim::detail::StreamOutput::askWhetherTaken(quint64 group)
{
    // BlueZ answers after it has handled the signals that were sent before.
    m_bluez->call(QStringLiteral("/"), QStringLiteral("org.freedesktop.DBus.Peer"), QStringLiteral("Ping"),
                  {}, this, [this, group](const QDBusError& error) {
                      if (group != m_group) {
                          return;
                      }
                      if (!error.isValid()) {
                          on_taken();
                      } else {
                          QTimer::singleShot(askAgainMs, this, [this, group] {
                              if (group == m_group) {
                                  askWhetherTaken(group);
                              }
                          });
                      }
                  });
}

void plim::detail::StreamOutput::on_taken()
{
    const qint64 bytes = m_onTheWay;
    m_onTheWay = 0;
    ++m_group;
    schedule();
    emit taken(bytes);
}
