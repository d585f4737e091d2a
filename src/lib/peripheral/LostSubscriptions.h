#pragma once

#include "Central.h"

#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

namespace plim {
namespace detail {

class BluezObjects;

/**
 * Finds subscribers that BlueZ still has, although it has closed their sockets. It then notifies them over
 * the bus only. It closes a socket without the end of the subscription in two cases: when a bonded central
 * disconnects, which stays subscribed, and by mistake when another central of the same adapter disconnects.
 *
 * Where it cannot know, it takes a central for subscribed: the bus reaches it if it is, and does no harm if
 * it is not. Internal: not installed.
 */
class LostSubscriptions : public QObject
{
    Q_OBJECT

public:
    LostSubscriptions(const std::shared_ptr<BluezObjects>& bluez, QObject* parent);

    /** Whether there is one that is connected. */
    bool isAnyConnected() const { return m_isAnyConnected; }

    /** BlueZ has closed the central's socket. */
    void noteClosed(const Central& central);
    /** The central has a socket again. */
    void forget(const Central& central);
    /** All subscriptions have ended. Emits nothing. */
    void clear();

signals:
    /** The central is connected, and may be subscribed without a socket. */
    void found(const plim::Central& central);
    /** It has disconnected. */
    void gone(const plim::Central& central);

private:
    struct Closed
    {
        Central central;
        QElapsedTimer since;
        bool isLost = false;  ///< whether it may still be subscribed
        bool isFound = false; ///< whether found() is the last that was said about it
    };

    bool is(const Central& central, const char* property) const;
    bool mayBeSubscribed(const Closed& closed) const;
    void on_deviceDisconnected(const QString& path);
    void on_propertiesChanged(const QString& path, const QString& interface, const QStringList& names);
    void on_objectRemoved(const QString& path, const QString& interface);
    void update();

    const std::shared_ptr<BluezObjects> m_bluez;
    QList<Closed> m_closed;
    QHash<Central, QElapsedTimer> m_disconnections; ///< the last ones
    bool m_isAnyConnected = false;
};

} // namespace detail
} // namespace plim
