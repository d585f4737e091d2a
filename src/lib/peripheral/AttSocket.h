#pragma once

#include "Central.h"

#include <QByteArray>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QVariantMap>

#include <deque>

class QSocketNotifier;

namespace plim {
namespace detail {

/**
 * This program's end of a packet socket whose other end BlueZ gets. Nothing here ever waits for BlueZ.
 * Slots of its signals may delete it. Internal: not installed.
 */
class AttSocket : public QObject
{
    Q_OBJECT

public:
    /** @param options  what BlueZ said when it asked for the socket: "device", "mtu", "link" */
    explicit AttSocket(const QVariantMap& options, QObject* parent);
    ~AttSocket() override;

    /** Opens both ends, and gives away BlueZ's. To be called once. @return invalid if this process has no
     * more file descriptors */
    QDBusUnixFileDescriptor open();

    const Central& central() const { return m_central; }
    const QVariantMap& options() const { return m_options; }
    bool isOpen() const { return m_descriptor >= 0; }

    /** Whether the other end is closed, also when closed() has not been emitted yet. */
    bool isHungUp() const;

    enum class Sent
    {
        Yes,
        NoRoom, ///< none is sent until writable() is emitted
        HungUp  ///< closed() comes from the event loop
    };
    /** Sends a packet of 1 to 512 bytes. */
    Sent send(const QByteArray& packet);

    /** The bytes of the packets that were sent, and that the other end has not read. */
    qint64 unread();

    /** Whether packets are received. While they are not, the other end finds the socket full after a while,
     * and its closing is not noticed. */
    void setReading(bool isReading);
    /** Receives what is there, up to some packets, without the event loop. */
    void read();

signals:
    void received(const QByteArray& packet);
    /** A packet of more than 512 bytes was received and dropped. */
    void oversized();
    /** The last signal: the other end was closed. */
    void closed();
    /** After Sent::NoRoom: most of what was sent has been read. */
    void writable();

private:
    enum class Received
    {
        Packet,
        OversizedPacket,
        Nothing,
        End
    };

    Received receive(QByteArray& packet) const;
    void close();
    void on_writable();

    const QVariantMap m_options;
    const Central m_central;
    int m_descriptor = -1;
    QSocketNotifier* m_incoming = nullptr;
    QSocketNotifier* m_outgoing = nullptr; ///< only while there is no room
    std::deque<int> m_sent; ///< the lengths of the last packets, some of which are not read yet
};

} // namespace detail
} // namespace plim
