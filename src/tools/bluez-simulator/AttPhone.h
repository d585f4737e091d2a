#pragma once

#include "AttCode.h"
#include "Attribute.h"
#include "DelayedReply.h"
#include "PhoneState.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <functional>

namespace simulator {

class Daemon;
class Pairing;
struct Registration;

/**
 * A phone to which the daemon is as strict as the real one: its link has a protection, flags and protection
 * decide what it may do, and it gets the errors of the Attribute Protocol. It is an object of the daemon's.
 */
class AttPhone : public QObject
{
    Q_OBJECT

public:
    /** @param state  outlives this object */
    AttPhone(PhoneState& state, Daemon* daemon);

    const PhoneState& state() const { return m_state; }
    bool isConnected() const { return m_isConnected; }
    Pairing& pairing() const { return *m_pairing; }

    /** Connects; does nothing when it is connected. */
    void connectLink();
    /** Loses the link; does nothing when there is none. @param reason  what the daemon tells of it: "Remote";
     * nothing where empty, as up to 5.82 */
    void loseLink(const QString& reason = QString());
    /** Loses the link and its bond; the daemon forgets the phone. */
    void forget();

    /** What is more than Open bonds the phone. */
    void protect(Protection protection);
    /** Whether it confirms indications; those that wait are confirmed at once. */
    void setConfirming(bool confirms);
    /** Whether the daemon takes what comes for it through a socket. */
    void setReading(bool reads);

    // Requests; the reply is an error of the name Att where the Attribute Protocol's answer is one.
    void read(const QString& path, quint16 offset, const DelayedReplyPtr& reply);
    void write(const QString& path, const QByteArray& value, quint16 offset, const DelayedReplyPtr& reply);
    void writeWithoutResponse(const QString& path, const QByteArray& value, const DelayedReplyPtr& reply);
    void subscribe(const QString& path, bool indications, const DelayedReplyPtr& reply);
    void unsubscribe(const QString& path, const DelayedReplyPtr& reply);

    bool isSubscribed(const QString& path) const { return m_subscriptions.contains(path); }

    /** Takes notice of changed properties of a characteristic. */
    void notice(const QString& sender, const QString& path, const QVariantMap& changed);
    /** Takes notice of a value, if it is subscribed to it. */
    void notify(const QString& sender, const QString& path, const QByteArray& bytes, bool throughSocket);

    /** Drops the subscriptions to an application that is gone. */
    void drop(const Registration& application);

signals:
    void notified(const QString& path, const QByteArray& value);

private:
    struct Subscription
    {
        QString sender; // of the application
        bool indications = false;
    };
    struct Indication
    {
        Attribute attribute;
        QByteArray value;
        bool throughSocket = false;
    };
    using Next = std::function<void(const QDBusMessage& answer)>;

    Attribute find(const QString& path, const DelayedReplyPtr& reply) const;
    void request(const QDBusMessage& call, AttCode notPermitted, const DelayedReplyPtr& reply,
                 const Next& next);
    void send(const QDBusMessage& call);
    void answerWhenHandled(const Attribute& attribute, const DelayedReplyPtr& reply);
    void acquire(const Attribute& attribute, const DelayedReplyPtr& reply);
    void stopNotifying(const QString& path, bool isLinkLost);
    void dropSubscriptions();
    void deliver(const QString& path, const QByteArray& value);
    void deliverNextIndication();
    void confirmIndications();
    QVariantMap options(quint16 offset) const;

    PhoneState& m_state;
    Daemon* m_daemon = nullptr;
    Pairing* m_pairing = nullptr;
    bool m_isKnown = false; // to the daemon, which has an object for it
    bool m_isConnected = false;
    QMap<QString, Subscription> m_subscriptions; // by the characteristic's path
    QList<Indication> m_indications; // the first one has been delivered and waits for confirmation
};

} // namespace simulator
