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

namespace detail {
class AttributeServer;
class BluezObjects;
class TreeProblems;
} // namespace detail

/**
 * A characteristic with what the base class leaves out: protected access, writes without an answer,
 * indications, requests that know who asks and may be refused, and who has subscribed.
 *
 * Without handlers it answers as the base class does, except that what its access does not allow is refused
 * with the error NotPermitted: where only notifications or indications are allowed, BlueZ itself lets reads
 * and writes through. The program's own calls of the slots, which come from no bus, do what they do in the
 * base class.
 *
 * Made by create() and owned by its service. Lives on the thread of the application, like all of the tree.
 */
class PLIM_PERIPHERAL_EXPORT Characteristic : public GattCharacteristic, protected QDBusContext
{
    Q_OBJECT
    Q_PROPERTY(QStringList Flags READ flags)
    Q_PROPERTY(bool NotifyAcquired READ notifyAcquired)

public:
    /**
     * Adds a characteristic to a service, which owns it. See GattService::createCharacteristic().
     *
     * @param service      not null; of this layer or not
     * @param uuid         as GattService::createCharacteristic() takes it
     * @param access       what centrals may do with it
     * @param pathElement  what the object path ends in, of letters, digits and "_"; empty for the UUID with
     * "_" for "-". Several characteristics with one UUID, as a keyboard's reports, need different elements.
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

    /** BlueZ's words for the access. */
    QStringList flags() const;

    /**
     * Sets who answers reads, in place of the value and the read callback; an empty function removes it. It
     * also gets the reads of a control's pages, and their offsets are its own to make sense of.
     *
     * It runs on this object's thread, and may do anything: answer, keep the request for later, delete this
     * object, replace itself. What it throws is logged at ERROR, and the request rejected with
     * AttError::UnlikelyError, unless it was answered before or is kept elsewhere. The same happens to
     * requests that arrive while 32 handlers run inside each other, each in an event loop of the one before.
     */
    void setReadHandler(const ReadHandler& handler);

    /**
     * Sets who decides on writes; an empty function removes it, and writes are then taken and notified as in
     * the base class. It runs like a read handler.
     *
     * What no attribute can be written, more than 512 bytes or beyond byte 512, does not reach it and is
     * rejected. Where the access allows writes without an answer, a refusal only keeps the value as it is:
     * the central has been told otherwise.
     */
    void setWriteHandler(const WriteHandler& handler);

    /**
     * Asks BlueZ to name the centrals that subscribe. Call it before the application is handed over, or it
     * takes effect with the next registration. It cannot be taken back.
     */
    void trackSubscribers();

    /**
     * The centrals that are subscribed, in the order in which they did; empty without trackSubscribers().
     *
     * It is as much as BlueZ tells. A central stands here from its subscribing until BlueZ says that nobody
     * is subscribed any more, forgets the central (an unpaired one some 30 s after it has gone), or ends; or
     * until a change of the tree makes the application register anew, which takes everybody's subscription
     * away. So of several centrals one that has unsubscribed may still be here, as may a paired one that is
     * away and still subscribed. One that subscribed before the program started is not here.
     */
    QList<Central> subscribers() const;

signals:
    /** A central has confirmed an indication. That BlueZ gives up those that it still waited for, because the
     * link was lost, is not told. Several centrals' confirmations come one by one and without a name. */
    void confirmed();
    /** A central has subscribed; only with trackSubscribers(). notifyStateChanged() follows. */
    void subscribed(const plim::Central& central);
    /** A central is in subscribers() no longer. */
    void unsubscribed(const plim::Central& central);

public slots:
    /** BlueZ's read. */
    QByteArray ReadValue(const QVariantMap& options);
    /** BlueZ's write. */
    void WriteValue(const QByteArray& value, const QVariantMap& options);
    /** BlueZ's request for notifications or indications. */
    void StartNotify();
    /** BlueZ's word that nobody is subscribed any more. */
    void StopNotify();
    /** BlueZ's confirmation of an indication, or its end without one. */
    void Confirm();
    /** BlueZ's offer of a socket for a central, which is declined: StartNotify() follows. */
    void AcquireNotify(const QVariantMap& options);
    /** As in the base class; NotifyAcquired is there only with trackSubscribers(). */
    QDBusVariant Get(const QString& interface, const QString& name);

private:
    friend class detail::TreeProblems;

    Characteristic(GattService* service, const QString& uuid, const QString& dbusPath, const Access& access,
                   GattCharacteristic* control);
    bool refusesSubscribing();
    bool hasPage() const;
    bool notifyAcquired() const;
    void store(const QByteArray& value, const QVariantMap& options, bool notify);
    void watchBluez();
    void on_propertiesChanged(const QString& path, const QString& interface, const QStringList& names);
    void on_objectRemoved(const QString& path, const QString& interface);
    void unsubscribeAll();

    const QPointer<GattCharacteristic> m_control;
    const std::unique_ptr<detail::AttributeServer> m_server;
    std::shared_ptr<detail::BluezObjects> m_bluez;
    QMetaObject::Connection m_treeChanges;
    QElapsedTimer m_sinceDisconnection;
    bool m_tracking = false;
    QList<Central> m_subscribers;
};

} // namespace plim
