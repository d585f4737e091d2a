#pragma once

#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QString>

namespace simulator {

class Daemon;

/** The agents of the clients, which are asked when a phone pairs. As with the real daemon, adapters are
 * pairable as soon as there is an agent. */
class AgentManager : public QObject
{
    Q_OBJECT

public:
    /** A client's agent; null without a sender. */
    struct Agent
    {
        QString sender;
        QString path;
        QString capability;

        explicit operator bool() const { return !sender.isEmpty(); }
    };

    explicit AgentManager(Daemon* daemon);

    /** Answers a call of org.bluez.AgentManager1; false where it is none. */
    bool handle(const QDBusMessage& call);

    /** The one that is asked; null if there is none. */
    Agent defaultAgent() const { return m_agents.isEmpty() ? Agent() : m_agents.constFirst(); }

    /** Forgets the agent of a client that has left the bus. */
    void dropClient(const QString& sender);

    /** Makes an adapter pairable if there is an agent. */
    void prepare(const QString& adapter);

signals:
    /** An agent is gone. */
    void dropped(const QString& sender);

private:
    void add(const QDBusMessage& call);
    void remove(const QDBusMessage& call);
    void makeDefault(const QDBusMessage& call);
    int indexOf(const QString& sender, const QString& path) const;
    void setPairable(bool isPairable);

    Daemon* m_daemon = nullptr;
    QList<Agent> m_agents; // the default one first
};

} // namespace simulator
