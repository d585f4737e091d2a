#pragma once

#include "Access.h"
#include "Central.h"
#include "Characteristic.h"
#include "PlimPeripheralExport.h"

#include <QIODevice>
#include <QList>
#include <QPointer>
#include <QString>

#include <memory>

class GattApplication;

namespace plim {

namespace detail {
class BluezObjects;
class ByteQueue;
class StreamOutput;
} // namespace detail

/** The service of a Stream: at first the UART service that terminal apps of phones know. */
struct StreamService
{
    QString service = QStringLiteral("6e400001-b5a3-f393-e0a9-e50e24dcca9e"); ///< UUID of the service
    QString rx = QStringLiteral("6e400002-b5a3-f393-e0a9-e50e24dcca9e");      ///< UUID; centrals write here
    QString tx = QStringLiteral("6e400003-b5a3-f393-e0a9-e50e24dcca9e"); ///< UUID; centrals subscribe here
    /** For a central to learn that a write was rejected, it has to be write() alone. */
    Access rxAccess = Access().write().writeWithoutResponse();
    /** notify() or indicate(). Indications are confirmed one by one: slower, but always in order. */
    Access txAccess = Access().notify();
    /** Sockets are faster. For SocketsBothWays, see Characteristic::setTransport(): a central that writes too
     * fast waits, but its first writes may be garbled. */
    Characteristic::Transport transport = Characteristic::Transport::Sockets;
};

/**
 * A serial connection with one central over two characteristics: what the central writes to RX is read here,
 * and what is written here reaches the central as notifications of TX.
 *
 *     plim::Stream serial(&app);
 *     QObject::connect(&serial, &QIODevice::readyRead, [&serial] {
 *         while (serial.canReadLine()) {
 *             QTextStream(&serial) << "you said " << serial.readLine();
 *         }
 *     });
 *
 * **One central at a time.** The stream is open while central() is not null: from when a central subscribes
 * to TX until it unsubscribes, its link ends, close() is called, or an attribute is deleted. A central that
 * subscribes meanwhile waits, and its writes are rejected with the error OtherCentral. When the first one has
 * gone, the stream opens for the one that has waited longest. Over the bus, BlueZ also sends it the
 * notifications that are meant for the first one, and before 5.76 always. A bonded central that has left
 * without unsubscribing is served again as soon as it is connected; let it write first, since BlueZ may not
 * be ready to notify it.
 *
 * **What is not transferred.** At the end of a connection, disconnected() tells how many bytes the central
 * was not sent, and how many nobody has read; both are dropped. In slots of readChannelFinished(), what was
 * received can still be read. What BlueZ had taken before the link ended, or what waited in its socket, may
 * not have arrived, and nobody knows: a protocol that has to know needs its own answers.
 *
 * **Buffers.** Both have limits. If the write buffer is full, write() takes fewer bytes than it is given, or
 * 0. A QTextStream then has the status WriteFailed and drops the rest: make the buffer as large as the
 * longest text, or wait for bytesWritten(). If the read buffer is full, a write is rejected as a whole
 * with the error BufferFull, and rejected() is emitted. The central gets this error only if it has written
 * with response and StreamService::rxAccess does not allow writes without response. With
 * Transport::SocketsBothWays, and BlueZ from 5.69 on, writes stay in the socket instead; when that is full,
 * too, BlueZ answers a write with an error, and drops a write without response.
 *
 * **Order.** Bytes are sent and received in their order. But if a link has several channels (EATT, with the
 * default configuration of BlueZ 5.66 up to three), BlueZ may swap notifications that follow each other
 * closely, and so may a central do with its writes without response. Set Channels = 1 in the section [GATT]
 * of main.conf, or use indications and writes with response.
 *
 * A sequential device that is always unbuffered. It belongs to the thread of the application.
 */
class PLIM_PERIPHERAL_EXPORT Stream : public QIODevice
{
    Q_OBJECT

public:
    /** Why writes are rejected: with AttError::application() of this number. */
    enum Refusal
    {
        BufferFull = 0x81,  ///< the read buffer has no room for all of it; try again later
        OtherCentral = 0x82 ///< the writer has not subscribed, or another central is served
    };
    Q_ENUM(Refusal)

    /**
     * Adds the UART service to an application.
     * @param application  not null; it owns the service. Add it to the manager afterwards.
     * @param parent       the owner of the stream; may be null. The service stays when the stream is deleted,
     * and then rejects all writes.
     */
    explicit Stream(GattApplication* application, QObject* parent = nullptr);
    /** The same with UUIDs or access of your own. */
    Stream(GattApplication* application, const StreamService& service, QObject* parent = nullptr);
    /** Ends the connection without a signal. */
    ~Stream() override;

    /** The central that is served; null while the stream is not open. */
    Central central() const { return m_central; }

    /** The characteristic that centrals write to. Null once it is deleted. */
    Characteristic* rx() const { return m_rx.data(); }
    /** The characteristic that centrals subscribe to. Null once it is deleted. */
    Characteristic* tx() const { return m_tx.data(); }

    /** The most bytes that wait to be read; 64 KiB at first. */
    qint64 readBufferSize() const { return m_readBufferSize; }
    /** Sets it. Less than 512 bytes, one long write, counts as 512. */
    void setReadBufferSize(qint64 size);
    /** The most bytes that wait to be sent; 64 KiB at first. */
    qint64 writeBufferSize() const { return m_writeBufferSize; }
    /** Sets it. Less than 512 bytes counts as 512. */
    void setWriteBufferSize(qint64 size);

    /** How many bytes of all centrals were rejected, whatever the reason. */
    qint64 rejectedBytes() const { return m_rejectedBytes; }

    /** Always false: a stream opens when a central subscribes. */
    bool open(OpenMode mode) override;
    /** Ends the connection: disconnected() is emitted. The link and the subscription stay, but the central is
     * served again only after it has subscribed again. */
    void close() override;

    /** True. */
    bool isSequential() const override;
    /** Bytes that can be read. */
    qint64 bytesAvailable() const override;
    /** Bytes that neither BlueZ nor its socket has taken yet. */
    qint64 bytesToWrite() const override;
    /** Whether a whole line can be read. */
    bool canReadLine() const override;

    /**
     * Waits until new bytes have arrived. The event loop runs meanwhile, and slots may do anything. Better
     * use readyRead().
     * @param msecs  the longest time in ms; -1 for no limit
     * @return whether bytes have arrived; false as well if the stream is closed, or ends meanwhile
     */
    bool waitForReadyRead(int msecs) override;
    /** Waits in the same way until BlueZ has taken some of the bytes to write. False at once if there are
     * none. */
    bool waitForBytesWritten(int msecs) override;

signals:
    /** The stream is open. */
    void connected(const plim::Central& central);
    /**
     * The stream was closed: for whatever reason the connection has ended.
     * @param central      the one that was served
     * @param unsentBytes  bytes that were written here and that BlueZ did not take
     * @param unreadBytes  bytes that the central has written and that were not read
     */
    void disconnected(const plim::Central& central, qint64 unsentBytes, qint64 unreadBytes);
    /**
     * A write was rejected.
     * @param central  the one that wrote; null if BlueZ did not say
     * @param bytes    how many it has written
     */
    void rejected(const plim::Central& central, qint64 bytes);
    /** For the functions that wait. */
    void progressed(QPrivateSignal);

protected:
    /** Takes received bytes. */
    qint64 readData(char* data, qint64 maxSize) override;
    /** The same up to the end of a line. */
    qint64 readLineData(char* data, qint64 maxSize) override;
    /** Adds bytes to the write buffer, as many as there is room for. */
    qint64 writeData(const char* data, qint64 maxSize) override;

private:
    void on_subscribed(const Central& central);
    void on_unsubscribed(const Central& central);
    void on_deviceDisconnected(const QString& path);
    void on_propertiesChanged(const QString& path, const QString& interface, const QStringList& names);
    void on_taken(qint64 bytes);
    void begin();
    void end();
    void chooseTransportOfWrites();
    void receive(const WriteRequest& request);
    void pause(bool isPaused);
    void resume();
    bool receiveRest();
    void reject(const WriteRequest& request, Refusal reason);
    void announce();
    bool waitFor(const quint64& counter, int msecs);

    const std::shared_ptr<detail::BluezObjects> m_bluez;
    QPointer<Characteristic> m_rx;
    QPointer<Characteristic> m_tx;
    const std::unique_ptr<detail::ByteQueue> m_received;
    std::unique_ptr<detail::StreamOutput> m_output;
    QList<Central> m_waiting; ///< subscribed, the one that is served first
    Central m_central;
    qint64 m_readBufferSize;
    qint64 m_writeBufferSize;
    qint64 m_rejectedBytes = 0;
    const Characteristic::Transport m_transport;
    bool m_isPaused = false;   ///< nothing is read from the socket of m_central's writes
    bool m_isLinkLost = false; ///< m_central has disconnected
    bool m_isEnding = false;
    bool m_isAnnouncing = false; ///< readyRead() is being emitted
    quint64 m_connections = 0;
    quint64 m_arrivals = 0;   ///< writes that were received
    quint64 m_departures = 0; ///< times that BlueZ has taken something
};

} // namespace plim
