#pragma once

#include "AttError.h"
#include "Central.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

#include <deque>
#include <memory>
#include <optional>
#include <vector>

class GattCharacteristic;
class PropertiesAdaptor;
class QDBusContext;

namespace plim {
namespace detail {

class AttSocket;
class BluezObjects;
class LostSubscriptions;

/**
 * The sockets of one characteristic: one for the notifications of each central, and one for its writes. Slots
 * of the signals may delete it. Internal: not installed.
 */
class SocketTransport : public QObject
{
    Q_OBJECT

public:
    /** Sends the characteristic's notifications from now on. @param characteristic  outlives this object */
    SocketTransport(GattCharacteristic* characteristic, const std::shared_ptr<BluezObjects>& bluez);
    ~SocketTransport() override;

    /** The answer to a call that gets no socket. BlueZ then calls StartNotify(). */
    static inline const std::optional<AttError> declined{AttError::RequestNotSupported};

    /** Whether further sockets are given to BlueZ, for notifications and for writes. */
    void setOffered(bool notifying, bool writing)
    {
        m_offersNotifying = notifying;
        m_offersWriting = writing;
    }

    /** Answers BlueZ's call that asks for a socket. While BlueZ has not described its objects, and so has not
     * told its version, the call waits, at most 5 s. */
    void acquireNotify(const QDBusContext& call, const QVariantMap& options);
    /** The same for writes, without waiting: the value comes another way. @return whether it was answered */
    bool acquireWrite(const QDBusContext& call, const QVariantMap& options);

    /** Whether BlueZ has a socket for notifications. */
    bool isNotifying() const { return !m_notifying.empty(); }
    /** Whether BlueZ has a socket for writes. */
    bool isWriting() const { return !m_writing.empty(); }
    /** Whether a central has a socket for notifications. */
    bool hasSocket(const Central& central) const;
    /** BlueZ has called StartNotify: there is a subscriber without a socket. */
    void startBus() { m_isBusNotified = true; }
    /** BlueZ has called StopNotify. @return whether subscribers with sockets are left */
    bool stopBus();

    /** See Characteristic. */
    bool notify(const QByteArray& value);
    bool notify(const Central& central, const QByteArray& value);
    const QList<Central>& missed() const { return m_missed; }

    /** The bytes that BlueZ has not read yet. */
    qint64 unread(const Central& central) const;

    /** Whether notify() reaches a central through a socket, and nobody else. */
    bool reachesAlone(const Central& central) const;
    /** Whether the writes of a central are read from its socket. */
    void setReading(const Central& central, bool isReading);
    /** Reads the writes of a central that wait in its socket, up to some. */
    void read(const Central& central);

    /** Closes all sockets, after the end of all subscriptions. Emits nothing. */
    void closeAll();

signals:
    /** A central has got a socket, or is subscribed without one. */
    void subscribed(const plim::Central& central);
    /** A central is not subscribed any more. */
    void unsubscribed(const plim::Central& central);
    void readyToWrite(const plim::Central& central);
    /** A central has confirmed an indication. */
    void confirmed();
    /** A central has written. @param options  what BlueZ would say with a call */
    void written(const QByteArray& value, const QVariantMap& options);

private:
    using Sockets = std::vector<AttSocket*>;

    /** BlueZ's call that asks for a socket. */
    struct Acquisition
    {
        QDBusMessage call;
        QDBusConnection connection;
        QVariantMap options;
    };

    void answer(const Acquisition& acquisition);
    void answerWaiting();
    void refuseWaiting();
    std::optional<AttError> acquire(const Acquisition& acquisition, Sockets& sockets);
    AttSocket* socketFor(const Central& central) const;
    bool isTheOnlyCentral(const Central& central) const;
    bool reachesAll() const;
    bool hasSubscribers() const;
    void route(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);
    void send(const QByteArray& value);
    void startNotifying(const Central& central);
    void stopNotifying(const Central& central);
    void on_notifyClosed(AttSocket* socket);
    void on_received(const QByteArray& packet);
    static void remove(AttSocket* socket, Sockets& sockets);

    GattCharacteristic* const m_characteristic;
    PropertiesAdaptor* const m_bus; ///< what sends notifications to the bus
    const std::shared_ptr<BluezObjects> m_bluez;
    LostSubscriptions* const m_lost;
    bool m_offersNotifying = false;
    bool m_offersWriting = false;
    bool m_isBusNotified = false;
    bool m_isSingle = false; ///< whether BlueZ has one socket for all centrals
    bool m_isShared = false; ///< whether BlueZ sends what it reads from any socket to all subscribers
    Sockets m_notifying;     ///< the last one is the one that was opened last
    Sockets m_writing;
    std::deque<Acquisition> m_waiting;
    QTimer m_patience; ///< how long they wait
    QList<Central> m_missed;
    bool m_isInNotify = false;
};

} // namespace detail
} // namespace plim
