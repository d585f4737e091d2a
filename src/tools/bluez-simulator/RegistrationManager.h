#pragma once

#include "Refusal.h"
#include "Registration.h"

#include <QList>
#include <QObject>

class QDBusPendingCallWatcher;

namespace simulator {

class Daemon;

/** What the two managers of an adapter share: the registrations, and how a registration is made. */
class RegistrationManager : public QObject
{
    Q_OBJECT

public:
    /** kind is the word for what is registered, path the object that serves the manager. */
    RegistrationManager(const QString& kind, const QString& path, Daemon* daemon);

    /** The object that serves the manager. */
    const QString& path() const { return m_path; }

    /** Everything that is registered or being read, oldest first. */
    const QList<Registration>& registrations() const { return m_registrations; }

    /** Handles a client's call to register an object; it is answered when the object has been read. */
    void add(const QDBusMessage& call);

    /** Handles a client's call to unregister an object. */
    void remove(const QDBusMessage& call);

    /** Forgets everything of a client that has left the bus. */
    void dropClient(const QString& sender);

    /** Forgets everything, as when the adapter disappears. */
    virtual void dropAll();

signals:
    void registered(const QString& kind, const QString& path);
    void refused(const QString& kind, const QString& path, const QString& errorName,
                 const QString& errorMessage);
    void unregistered(const QString& kind, const QString& path);

protected:
    Daemon* daemon() const { return m_daemon; }
    int indexOf(quint64 id) const;
    Registration& at(int index) { return m_registrations[index]; }
    void removeAt(int index);

    /** Whether there is room for one more. */
    virtual Refusal admission() const { return Refusal(); }
    /** The call that reads the client's object. */
    virtual QDBusMessage readRequest(const Registration& registration) const = 0;
    /** Stores the answer in the registration, and decides. */
    virtual Refusal judge(Registration& registration, const QDBusMessage& answer) const = 0;
    /** Called after a registration was accepted. */
    virtual void onRegistered(const Registration& registration);
    /** Called after a registration was removed. */
    virtual void onRemoved(const Registration& registration);

private:
    void onRead(quint64 id, QDBusPendingCallWatcher* watcher);
    int indexOf(const QString& sender, const QString& path) const;

    QString m_kind;
    QString m_path;
    Daemon* m_daemon = nullptr;
    QList<Registration> m_registrations;
    quint64 m_lastId = 0;
};

} // namespace simulator
