#pragma once

#include "State.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QList>
#include <QObject>
#include <QStringList>
#include <functional>

namespace simulator {

class Daemon;

/** Lets the daemon appear and vanish, and keeps the data that survives this. */
class Simulator : public QObject
{
    Q_OBJECT

public:
    /** Called when an operation has ended, with an error text or an empty one. */
    using Done = std::function<void(const QString& error)>;

    /** control is the connection that stays; address says on which bus the daemon appears. */
    Simulator(const QDBusConnection& control, const QString& address);
    ~Simulator() override;

    /** Opens a bus by its address, or the well-known one for "system" and "session". */
    static QDBusConnection openBus(const QString& address, const QString& name);

    /** Comes onto the bus, with all adapters. Does nothing when it is there already. */
    void appear(const Done& done);

    /** Leaves the bus as if killed; done is called when the bus has noticed. Does nothing when it is away
     * already. */
    void vanish(const Done& done);

    /** Adds or removes an adapter, now or for the next appearance; returns an error text, or an empty
     * one. */
    QString addAdapter(const QString& name, const QString& address = QString());
    QString removeAdapter(const QString& name);

    /** Lets a further phone connect to an adapter, now or when the daemon is there and it is told to. device
     * becomes the path of the daemon's object for it; returns what is wrong with it or an empty text. */
    QString addPhone(const QString& adapter, const QString& address, QString& device);

    /** The daemon while it is on the bus, otherwise null. */
    Daemon* daemon() const { return m_daemon; }

    State& state() { return m_state; }

signals:
    void registered(const QString& kind, const QString& path);
    void refused(const QString& kind, const QString& path, const QString& errorName,
                 const QString& errorMessage);
    void unregistered(const QString& kind, const QString& path);
    void notified(const QString& path, const QByteArray& value);
    void phoneNotified(const QString& device, const QString& path, const QByteArray& value);

private slots:
    void onNameReleased();

private:
    void disconnectDaemon();

    State m_state;
    QString m_address;
    QStringList m_adapters;
    QMap<QString, QString> m_addresses; // of adapters, by name; empty for the one that belongs to the name
    Daemon* m_daemon = nullptr;
    QString m_connectionName;
    int m_appearances = 0;
    bool m_isLeaving = false;
    QList<Done> m_afterLeaving;
    QDBusServiceWatcher m_nameWatcher;
};

} // namespace simulator
