#pragma once

#include <QByteArray>
#include <QDBusConnection>
#include <QObject>
#include <QSocketNotifier>

#include <memory>
#include <optional>
#include <string>

/** What came back for a call. */
struct RawAnswer
{
    enum Kind
    {
        Return,
        Error,
        /** Nothing, while a later call was answered. */
        Nothing
    };
    Kind kind = Nothing;
    std::string signature;
    QByteArray body;
};

/**
 * The other end of a peer-to-peer connection of Qt D-Bus: a socket on which any bytes can be sent to objects
 * of this process, and what they answer is seen as bytes. They take the way that messages from a bus take:
 * libdbus checks and Qt unpacks them on its own thread, and delivers them here.
 */
class RawPeer
{
public:
    /** @param object  is exported at "/" with all its slots; it and the peer live until the process ends */
    explicit RawPeer(QObject& object);
    Q_DISABLE_COPY(RawPeer)

    /** A call of a slot, ready to be sent. */
    static QByteArray call(const std::string& member, const std::string& signature, const QByteArray& body,
                           bool bigEndian);

    /** Whether libdbus takes the bytes as one message; if not, they end there, as they do on a connection. */
    static bool isMessage(const QByteArray& bytes);

    /** Sends one call and waits for its answer. */
    RawAnswer exchange(const QByteArray& message);

    /** Sends one message of any kind and waits until it is dealt with. */
    RawAnswer exchangeAnything(const QByteArray& message);

private:
    void shakeHands();
    void send(const QByteArray& bytes) const;
    void receive();
    RawAnswer answerTo(quint32 serial, RawAnswer* other);
    std::optional<QByteArray> takeMessage();

    int m_socket = -1;
    QByteArray m_received;
    std::unique_ptr<QSocketNotifier> m_notifier;
    quint32 m_serial = 0x10000;
};
