#pragma once

#include <QByteArray>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QSocketNotifier>

namespace simulator {

/** The daemon's end of a socket that a client has given for notifications or for writes. */
class ClientSocket : public QObject
{
    Q_OBJECT

public:
    ClientSocket(const QDBusUnixFileDescriptor& descriptor, QObject* parent);

    /** Whether packets are taken from the client, as they are at first. */
    void setReading(bool reading);

    /** False if the client has no room for it or has closed its end. */
    bool send(const QByteArray& packet) const;

    /** Closes this end; no signal follows. */
    void close();

    /** Whether the client has read all that was sent. */
    bool isDrained() const;

signals:
    void received(const QByteArray& packet);
    /** The client has closed its end. */
    void closed();

private:
    void read();

    QDBusUnixFileDescriptor m_descriptor;
    QSocketNotifier m_incoming;
    bool m_isDeaf = false; // an empty packet has ended the daemon's interest
};

} // namespace simulator
