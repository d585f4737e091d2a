#pragma once

#include "AttCode.h"
#include "Attribute.h"

#include <QByteArray>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <functional>

namespace simulator {

class ClientSocket;
class Daemon;
struct Registration;

/**
 * The sockets that clients have given for their characteristics. The versions up to 5.68 have one for all
 * phones; for them, all phones are the same here.
 */
class ClientSockets : public QObject
{
    Q_OBJECT

public:
    explicit ClientSockets(Daemon* daemon);

    using Acquired = std::function<void(const QString& problem)>;
    /**
     * Asks a client for a socket for a phone's notifications, unless there is one. If the client declines, it
     * is told to notify over the bus.
     * @param options   those of the call
     * @param acquired  called at the end, maybe at once, with what is wrong with the answer
     */
    void acquireNotify(const Attribute& attribute, const QString& device, const QVariantMap& options,
                       const Acquired& acquired);
    /**
     * The end of a phone's subscription. Where it comes from a lost link, the real daemon closes the socket
     * that was opened first, whosever it is.
     * @param isLast  whether no other phone is subscribed
     * @return whether it closed a socket
     */
    bool endSubscription(const QString& path, const QString& device, bool isLast, bool isLinkLost);
    /** Sends the confirmation of an indication; false if that goes over the bus. */
    bool confirm(const QString& path, const QString& device);
    /** Whether the daemon takes what a phone is to be notified of. */
    void setReading(const QString& device, bool reading);

    using Written = std::function<void(AttCode code)>;
    /**
     * Passes a write on through a socket, for which the client is asked before.
     * @param options  those of the calls
     * @param written  called at the end, maybe at once
     */
    void write(const Attribute& attribute, const QString& device, const QVariantMap& options,
               const QByteArray& value, const Written& written);
    /** Calls back when the client has read what was written. */
    void whenRead(const QString& path, const QString& device, const std::function<void()>& done);

    /** The end of a phone's link. */
    void disconnect(const QString& device);
    /** The end of an application. */
    void drop(const Registration& application);

signals:
    /** A notification. @param device  empty if it is for all phones that are subscribed */
    void notified(const QString& sender, const QString& path, const QString& device, const QByteArray& value);

private:
    enum class Use
    {
        Notify,
        Write
    };
    struct Entry
    {
        Use use;
        QString sender;
        QString path;
        QString device;
        ClientSocket* socket;
    };
    struct PendingWrite
    {
        QString path;
        QString device;
        QVariantMap options;
        QByteArray value;
        Written written;
    };

    static constexpr int NoLimit = -1;

    bool isSingle() const;
    QString owner(const QString& device) const;
    ClientSocket* find(Use use, const QString& path, const QString& device) const;
    bool addNotifying(const Attribute& attribute, const QString& device, const QDBusMessage& answer);
    ClientSocket* add(Use use, const Attribute& attribute, const QString& device, const QDBusMessage& answer);
    bool closeIf(const std::function<bool(const Entry&)>& ends, int limit = NoLimit);
    void finishWrites(const Attribute& attribute, const QString& device, const QDBusMessage& answer);

    Daemon* m_daemon = nullptr;
    QList<Entry> m_entries;       // in the order in which they were opened
    QList<PendingWrite> m_writes; // which wait for the answer to AcquireWrite
};

} // namespace simulator
