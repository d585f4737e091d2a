#pragma once

#include <QByteArray>
#include <QList>
#include <QSocketNotifier>
#include <QString>

#include <functional>
#include <memory>

/**
 * A central that speaks the Attribute Protocol itself, over a socket of the kernel's: it gets every error as
 * it is, pairs only when it is told to, and confirms only if it wants to, which BlueZ's own client side does
 * not allow. Where the link breaks unexpectedly the scene ends.
 */
class AttClient
{
public:
    /** An attribute of the peripheral: its type is the characteristic's UUID where it is a value. */
    struct Attribute
    {
        quint16 handle = 0;
        QString type;
    };
    /** What the peripheral sent without having been asked. */
    struct Notification
    {
        quint16 handle = 0;
        QByteArray value;
        bool isIndication = false;
        qint64 time = 0; ///< monotonicTime() when it was read
    };
    /** The answer to a request. */
    struct Answer
    {
        int error = 0; ///< the error's number, 0 for none
        QByteArray value;
    };
    /** How well the link is protected, as the kernel counts. */
    enum Security
    {
        Encrypted = 2,
        Authenticated = 3
    };

    /** @param own  the address of the central's controller; peripheral: the address to connect to */
    AttClient(const QString& own, const QString& peripheral);
    ~AttClient();
    Q_DISABLE_COPY(AttClient)

    /** Connects, and finds all attributes. */
    void connectDevice();
    /**
     * Connects, and reads at once a value that connectDevice() has found before: for a link that does not
     * last. @return the value in hexadecimal, the error as "0x0f", or "link lost"
     */
    QString connectAndRead(quint16 handle);
    void disconnectDevice();
    bool connected() const { return m_socket >= 0; }

    /** Finds all attributes again. */
    void discover();
    QList<Attribute> attributes() const { return m_attributes; }
    /** The handles of all attributes with the type, in their order. */
    QList<quint16> handles(const QString& type) const;
    /** The handle of the only attribute with the type. */
    quint16 handle(const QString& type) const;
    /** The handle of the next attribute of the type behind another one. */
    quint16 next(quint16 handle, const QString& type) const;

    /** Asks for protection; the kernel pairs where it has to. Returns without waiting. */
    void protect(Security security);

    Answer read(quint16 handle);
    Answer write(quint16 handle, const QByteArray& value);
    /** A write in prepared pieces; the answer to the last request, which executes them. */
    Answer writePrepared(quint16 handle, const QByteArray& value);
    /** A write that nobody answers. */
    void command(quint16 handle, const QByteArray& value);
    /** Writes the Client Characteristic Configuration behind the value: 0 nothing, 1 notify, 2 indicate. */
    Answer subscribe(quint16 handle, int what);

    /** Writes the values one after the other, each when the one before is answered, without the event loop,
     * which would take most of the time. @return how many were accepted */
    int writeEach(quint16 handle, const QList<QByteArray>& values);

    QList<Notification> notifications() const { return m_notifications; }
    /** Waits until there are so many, without the event loop, which would take most of the time, or until
     * nothing has come for a minute. */
    void awaitNotifications(qsizetype count);
    /** Whether indications are confirmed; they are until told otherwise. */
    void setConfirming(bool confirming) { m_confirming = confirming; }

    /** The errors that came for reads and writes, as "0x0021 0x0e": handle, error. */
    QStringList errors() const { return m_errors; }

private:
    void connectLink();
    void openSocket();
    void closeSocket();
    void receive();
    void receiveUntil(const std::function<bool()>& condition);
    void take(const QByteArray& packet);
    void send(const QByteArray& packet);
    Answer ask(const QByteArray& request);
    void addAttributes(const QByteArray& information);

    const QString m_own;
    const QString m_peripheral;
    int m_socket = -1;
    std::unique_ptr<QSocketNotifier> m_readable;
    bool m_knowsPacketSize = false;
    bool m_confirming = true;
    QByteArray m_response;
    QList<Attribute> m_attributes;
    QList<Notification> m_notifications;
    QStringList m_errors;
};

/** Writes a UUID as the Bluetooth base UUID has it. */
QString longUuid(quint16 uuid);
