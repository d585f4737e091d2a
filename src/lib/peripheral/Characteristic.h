#pragma once

#include "Access.h"
#include "Central.h"
#include "PlimPeripheralExport.h"
#include "ReadRequest.h"
#include "WriteRequest.h"

#include "GattCharacteristic.h"

#include <QDBusContext>
#include <QElapsedTimer>
#include <QList>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

namespace plim {

class Stream;

namespace detail {
class AttributeServer;
class BluezObjects;
class LinkMtus;
class SocketTransport;
class StreamOutput;
class TreeProblems;
} // namespace detail

/**
 * A characteristic with features that the base class does not have: protected access, writes without a
 * response, indications, requests that name the central and can be rejected, and a list of subscribers.
 *
 * Without handlers it answers as the base class does. But it rejects what its access does not allow, with the
 * error NotPermitted. BlueZ alone would not: if only notifications or indications are allowed, it lets reads
 * and writes through. If the program itself calls a slot, not over the bus, the slot does what it does in the
 * base class.
 *
 * Created by create() and owned by its service. Lives on the thread of the application, like the whole tree.
 */
class PLIM_PERIPHERAL_EXPORT Characteristic : public GattCharacteristic, protected QDBusContext
{
    Q_OBJECT
    Q_PROPERTY(QStringList Flags READ flags)
    Q_PROPERTY(bool NotifyAcquired READ notifyAcquired)
    Q_PROPERTY(bool WriteAcquired READ writeAcquired)

public:
    /** How notifications and writes travel between this program and BlueZ. */
    enum class Transport
    {
        Bus,            ///< as D-Bus messages
        Sockets,        ///< notifications as packets, through a socket for each central
        SocketsBothWays ///< writes, too, if the access allows writes without a response
    };

    /**
     * Adds a characteristic to a service, which owns it. See GattService::createCharacteristic().
     *
     * @param service      a service of this layer or of the base layer; not null
     * @param uuid         as GattService::createCharacteristic() takes it
     * @param access       what centrals may do with it
     * @param pathElement  what the object path ends in, of letters, digits and "_"; empty for the UUID with
     * "_" for "-". Several characteristics with one UUID, as the reports of a keyboard, need different
     * elements.
     * @param control      the characteristic that selects the page of long values, or null; not owned
     * @return the characteristic; null only if a slot of handlesChanged() or applicationChanged() deleted it
     * at once
     */
    static Characteristic* create(GattService* service, const QString& uuid, const Access& access,
                                  const QString& pathElement = QString(),
                                  GattCharacteristic* control = nullptr);

    /** Rejects the requests that are still open. */
    ~Characteristic() override;

    /** What centrals may do with it. */
    Access access() const;

    /** BlueZ's names of what the access allows. */
    QStringList flags() const;

    /**
     * Sets the function that answers reads, instead of the value and the read callback; an empty function
     * removes it. With a control characteristic, it gets the reads of all pages, and has to find out itself
     * which page is selected.
     *
     * It runs on this object's thread, and may do anything: answer, keep the request for later, delete this
     * object, replace itself. If it throws an exception, that is logged at ERROR, and the request is rejected
     * with AttError::UnlikelyError, unless it was answered before or a copy of it is kept. The same happens
     * to a request that arrives while 32 handlers are nested, each in an event loop of the one before.
     */
    void setReadHandler(const ReadHandler& handler);

    /**
     * Sets the function that decides on writes; an empty function removes it, and writes are then stored and
     * notified as in the base class. It runs like a read handler.
     *
     * A write of more than 512 bytes, or beyond byte 512, is rejected without a call of the handler. If the
     * access allows writes without a response, to reject a write only keeps the old value: BlueZ has told the
     * central already that the write succeeded.
     */
    void setWriteHandler(const WriteHandler& handler);

    /**
     * Asks BlueZ to say which centrals subscribe. Call it before the application is added; otherwise it takes
     * effect with the next registration. It cannot be undone.
     */
    void trackSubscribers();

    /**
     * The centrals that are subscribed, in the order in which they did; empty without trackSubscribers().
     *
     * The list is as exact as what BlueZ tells. A central is in it from when it subscribes until one of
     * these:
     * - BlueZ says that nobody is subscribed any more;
     * - BlueZ forgets the central (an unpaired one about 30 s after it has gone), or ends;
     * - a change of the tree makes the application register again, which ends all subscriptions.
     *
     * So if there are several centrals, one that has unsubscribed may still be in the list. A paired central
     * that is away, but still subscribed, is in it, too. One that subscribed before the program started is
     * not.
     */
    QList<Central> subscribers() const;

    /**
     * Offers BlueZ sockets. A packet costs a small part of what a D-Bus message costs. Call it before the
     * application is added; otherwise it takes effect with the next registration.
     *
     * Whether values then go through the sockets depends on the subscribers: if one of them has no socket,
     * all are notified over the bus. So each gets each value once. An empty value always goes over the bus.
     * Values that go different ways may overtake each other.
     *
     * Sockets also track the subscribers, see trackSubscribers(). They need BlueZ to tell its version, which
     * it does unless its configuration has another DeviceID. Once offered, they stay on the bus: after a
     * change back, BlueZ's requests for sockets are declined.
     *
     * With SocketsBothWays, BlueZ (5.66 to 5.82, at least) garbles writes: while it waits for the socket,
     * which it asks for at the first write, it keeps no copy of what is written, so whatever the central
     * sends next may take its place: another write, or an answer while BlueZ still searches the central's
     * services. Choose it only if centrals check what they write, or wait some seconds before their first
     * write, and for its answer. All writes are then acknowledged at once, and without an offset.
     */
    void setTransport(Transport transport);

    /** What setTransport() has set; at first Transport::Bus. */
    Transport transport() const { return m_transport; }

    /**
     * Sets the value and notifies each subscriber once, as setValue() does, and says whether all of them were
     * reached. valueChanged() is not emitted.
     *
     * Nothing waits: a central whose socket is full does not get this value, and none of those that follow
     * until readyToWrite() is emitted for it. Over the bus, and if nobody is subscribed, the result is true.
     *
     * @param value  a notification carries the first maximumLength() bytes of it, an attribute at most 512
     * @return whether missed() is empty
     */
    bool notify(const QByteArray& value);

    /**
     * Notifies one central, and leaves the value as it is. This takes a socket: over the bus, BlueZ notifies
     * all subscribers.
     *
     * @return false if the central has no socket, if its socket is full, or if the value is empty, which a
     * socket cannot carry. Unless the socket is full, a line is logged at WARN.
     */
    bool notify(const Central& central, const QByteArray& value);

    /** The subscribers that the last notify() did not reach, because their sockets were full. */
    QList<Central> missed() const;

    /** The bytes that notify() has sent to a central, and that BlueZ has not taken yet; 0 without a socket.
     * BlueZ may hold further ones that it has not transmitted yet. */
    qint64 bytesToWrite(const Central& central) const;

    /** How many bytes of a value a notification of this central carries: three less than the longest packet
     * of the link. 20, the least there is, if BlueZ has not said: it says it with the requests that arrive
     * after trackSubscribers() or setTransport(). */
    int maximumLength(const Central& central) const;

signals:
    /** A central that a notify() did not reach, because its socket was full, can be notified again. */
    void readyToWrite(const plim::Central& central);
    /** A central has confirmed an indication. It is emitted once for each central, and does not say which one
     * it was. It is not emitted for indications that BlueZ gives up because the link was lost. */
    void confirmed();
    /** A central has subscribed; only with trackSubscribers(). notifyStateChanged() follows. */
    void subscribed(const plim::Central& central);
    /** A central is no longer in subscribers(). */
    void unsubscribed(const plim::Central& central);

public slots:
    /** BlueZ's read. */
    QByteArray ReadValue(const QVariantMap& options);
    /** BlueZ's write. */
    void WriteValue(const QByteArray& value, const QVariantMap& options);
    /** BlueZ's request for notifications or indications. */
    void StartNotify();
    /** BlueZ's message that nobody is subscribed any more. */
    void StopNotify();
    /** BlueZ's message that an indication was confirmed, or that it was given up. */
    void Confirm();
    /** BlueZ's request for a socket for a central's notifications. With Transport::Bus it is declined, and
     * BlueZ calls StartNotify(). */
    void AcquireNotify(const QVariantMap& options);
    /** BlueZ's request for a socket for a central's writes; only with Transport::SocketsBothWays. */
    void AcquireWrite(const QVariantMap& options);
    /** As in the base class. There is a NotifyAcquired only after trackSubscribers() or with
     * Transport::Sockets, and a WriteAcquired only with Transport::SocketsBothWays. */
    QDBusVariant Get(const QString& interface, const QString& name);

private:
    friend class detail::StreamOutput;
    friend class detail::TreeProblems;
    friend class Stream;

    Characteristic(GattService* service, const QString& uuid, const QString& dbusPath, const Access& access,
                   GattCharacteristic* control);
    bool refusesSubscribing();
    bool hasPage() const;
    bool notifyAcquired() const;
    bool writeAcquired() const;
    void showAcquiring();
    void makeSockets();
    void on_written(const QByteArray& value, const QVariantMap& options);
    void addSubscriber(const Central& central);
    void removeSubscriber(const Central& central);
    void endSubscriptions();
    void store(const QByteArray& value, const QVariantMap& options, bool notify);
    void watchBluez();
    void on_objectRemoved(const QString& path, const QString& interface);
    QList<Central> takeSubscribersOfBus();
    void tellUnsubscribed(const QList<Central>& centrals);

    const QPointer<GattCharacteristic> m_control;
    const std::unique_ptr<detail::AttributeServer> m_server;
    std::shared_ptr<detail::BluezObjects> m_bluez;
    std::shared_ptr<detail::LinkMtus> m_mtus;
    QMetaObject::Connection m_treeChanges;
    QElapsedTimer m_sinceDisconnection;
    bool m_tracking = false;
    int m_endings = 0; ///< how often all subscriptions have ended
    Transport m_transport = Transport::Bus;
    bool m_offersWriting = false;                       ///< whether the bus shows WriteAcquired
    std::unique_ptr<detail::SocketTransport> m_sockets; ///< null until Transport::Sockets is set
    QList<Central> m_subscribers;
};

} // namespace plim
