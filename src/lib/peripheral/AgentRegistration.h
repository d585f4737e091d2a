#pragma once

#include <QObject>
#include <QString>

class QDBusMessage;
class QDBusServiceWatcher;

namespace plim {
namespace detail {

/**
 * Makes an agent BlueZ's default one, again whenever BlueZ has started. Everything is sent without waiting.
 * Internal: not installed.
 */
class AgentRegistration : public QObject
{
    Q_OBJECT

public:
    enum State
    {
        WaitingForBlueZ,
        Pending,
        Registered,
        Refused
    };

    /**
     * Call start() next.
     * @param path        the agent's object path
     * @param capability  BlueZ's word for what the device can show and ask
     */
    AgentRegistration(const QString& path, const QString& capability);

    /** Unregisters the agent. */
    ~AgentRegistration() override;

    void start();

    State state() const { return m_state; }
    /** Why BlueZ has refused, as it says; empty in the other states. */
    QString error() const { return m_error; }

    /** BlueZ has removed the agent by itself. */
    void released();

signals:
    /** The unique bus name of the BlueZ that was given the agent has changed; empty if it is gone. */
    void daemonChanged(const QString& uniqueName);
    void stateChanged();

private slots:
    void on_ownerChanged(const QString& name, const QString& former, const QString& owner);

private:
    void onOwner(const QDBusMessage& reply);
    void registerAgent();
    void onRegistered(const QDBusMessage& reply);
    void onDefault(const QDBusMessage& reply);
    template <typename Next>
    void send(const QDBusMessage& question, const Next& next);
    QDBusMessage message(const char* method) const;
    void refuse(const QDBusMessage& reply);
    void setState(State state, const QString& error = QString());

    const QString m_path;
    const QString m_capability;
    QDBusServiceWatcher* const m_watcher;
    QString m_owner; ///< BlueZ's unique bus name; empty while it is not known
    State m_state = WaitingForBlueZ;
    QString m_error;
    int m_attempt = 0;
};

} // namespace detail
} // namespace plim
