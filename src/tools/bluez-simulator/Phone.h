#pragma once

#include "DelayedReply.h"
#include "Registration.h"

#include <QByteArrayList>
#include <QMap>
#include <QObject>
#include <functional>

namespace simulator {

class Daemon;

/**
 * A phone that is connected to the daemon: what it does reaches the clients' characteristics and descriptors
 * as the daemon would pass it on. Flags are ignored, so that a client can be tested beyond them.
 */
class Phone : public QObject
{
    Q_OBJECT

public:
    explicit Phone(Daemon* daemon);

    /** The address by which clients know it. */
    static QString address() { return QStringLiteral("00:AA:01:01:00:01"); }

    /** Reads once, from an offset on. */
    void read(const QString& path, quint16 offset, const DelayedReplyPtr& reply);

    /** Reads a value in parts, as a phone with the smallest MTU does. */
    void readLong(const QString& path, const DelayedReplyPtr& reply);

    /** Fetches a value of any length page by page: the page number goes to one characteristic, the page comes
     * from the other. */
    void readPages(const QString& data, const QString& control, const DelayedReplyPtr& reply);

    /** Writes with response. */
    void write(const QString& path, const QByteArray& value, quint16 offset, const DelayedReplyPtr& reply);

    /** Asks for notifications; answers when the client has agreed. */
    void subscribe(const QString& path, const DelayedReplyPtr& reply);

    /** Ends the notifications. */
    void unsubscribe(const QString& path, const DelayedReplyPtr& reply);

    bool isSubscribed(const QString& path) const { return m_subscriptions.contains(path); }

    /** Handles changed properties of a characteristic. */
    void notice(const QString& sender, const QString& path, const QVariantMap& changed);

    /** Forgets the subscriptions to an application that no longer exists. */
    void forget(const Registration& application);

signals:
    void notified(const QString& path, const QByteArray& value);

private:
    struct PageFetch
    {
        QString data;
        QString control;
        QByteArrayList pages;
        DelayedReplyPtr reply;
    };
    using Next = std::function<void(const QDBusMessage& answer)>;
    using NextValue = std::function<void(const QByteArray& value)>;

    void call(const QString& path, const QString& member, const QVariantList& arguments,
              const DelayedReplyPtr& reply, const Next& next);
    void readValue(const QString& path, int offset, quint16 transferUnit, const DelayedReplyPtr& reply,
                   const NextValue& next);
    void readPiece(const QString& path, const QByteArray& soFar, const DelayedReplyPtr& reply);
    void writeValue(const QString& path, const QByteArray& value, int offset, const DelayedReplyPtr& reply,
                    const Next& next);
    void fetchPage(const std::shared_ptr<PageFetch>& fetch);
    QVariantMap options(const QString& path, int offset, quint16 transferUnit) const;

    Daemon* m_daemon = nullptr;
    QMap<QString, QString> m_subscriptions; // the characteristic's path to its application's sender
};

} // namespace simulator
