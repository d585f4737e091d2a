#pragma once

#include "ByteQueue.h"
#include "Central.h"

#include <QObject>
#include <QPointer>

#include <memory>

namespace plim {

class Characteristic;

namespace detail {

class BluezObjects;

/**
 * Sends bytes to one central as values of a characteristic, no faster than they are taken.
 *
 * A socket says when it is full. The bus never does. So an indication waits for the confirmation of the one
 * before, and notifications go out in small groups, each of which waits until BlueZ has taken the one before:
 * an answered ping tells that. Internal: not installed.
 */
class StreamOutput : public QObject
{
    Q_OBJECT

public:
    /** @param characteristic  the one that the central subscribes to; not null */
    explicit StreamOutput(Characteristic* characteristic);
    ~StreamOutput() override;

    /** From now on, bytes are for this central. */
    void begin(const Central& central);
    /** Drops what was not taken. @return how many bytes */
    qint64 end();

    /** Bytes that were added and not taken yet. */
    qint64 size() const { return m_queue.size() + m_onTheWay; }
    /** Adds bytes; the event loop sends them. */
    void add(const QByteArray& bytes);

signals:
    /** So many bytes more were taken. */
    void taken(qint64 bytes);

private:
    void schedule();
    void send();
    void sendThroughSocket();
    void sendOverBus();
    bool hasSocket() const;
    QByteArray piece() const;
    void askWhetherTaken(quint64 group);
    void on_taken();

    const QPointer<Characteristic> m_characteristic;
    const std::shared_ptr<BluezObjects> m_bluez;
    const bool m_indicates;
    Central m_central;
    ByteQueue m_queue;
    qint64 m_onTheWay = 0;
    quint64 m_group = 0; ///< counts the groups, so that a late answer is not taken for this one's
    bool m_isScheduled = false;
    bool m_isSending = false;
};

} // namespace detail
} // namespace plim
