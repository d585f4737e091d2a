#include "StreamOutput.h"

#include "AttLimits.h"
#include "BluezObjects.h"
#include "Characteristic.h"
#include "plim.h"

#include <QTimer>

#include <algorithm>

namespace {

/** Enough to use a link fully, few enough not to fill BlueZ's memory. */
constexpr int valuesOfAGroup = 8;
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

int plim::detail::StreamOutput::pieceSize() const
{
    return std::min(m_characteristic->maximumLength(m_central), maximumAttributeSize);
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
    if (m_onTheWay > 0) {
        return;
    }
    const QPointer<StreamOutput> self = this;
    const quint64 group = m_group;
    const int mostValues = m_indicates ? 1 : valuesOfAGroup;
    for (int count = 0; count < mostValues && !m_queue.isEmpty(); ++count) {
        // Before BlueZ listens, a value would reach nobody.
        if (!m_characteristic || !m_characteristic->notifying()) {
            break;
        }
        const QByteArray piece = m_queue.head(pieceSize());
        m_queue.drop(piece.size());
        m_onTheWay += piece.size();
        m_characteristic->setValue(piece);
        if (!self || group != m_group) {
            return; // a slot has ended the stream
        }
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
