#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class QDBusError;

/**
 * Signals of whoever owns a bus name: none of them is lost, and nobody else's is taken. Internal: not
 * installed.
 *
 * A subscription with a sender's name leaves the choice to Qt, which compares the sender with the owner that
 * it knows. But messages from before the first turn of the event loop can arrive in another order than they
 * were sent, and then Qt drops what the new owner sent before the news of it arrives. Here, a signal from
 * anybody but the known owner waits until the bus has been asked who the owner is.
 *
 * All of it happens on the thread of this object, which needs an event loop. Without a connection to the bus,
 * or when Qt refuses a subscription, nothing is received, and a line at ERROR says so.
 */
class ServiceSignals : public QObject
{
    Q_OBJECT

public:
    ServiceSignals(const QString& service, const QDBusConnection& connection, QObject* parent);

    /**
     * Subscribes to a signal. Those with other argument types are ignored.
     *
     * @param path       the object that sends it
     * @param signature  the argument types, for instance "oas"
     * @return whether it is received from now on
     */
    bool subscribe(const QString& path, const QString& interface, const QString& name,
                   const QString& signature);

signals:
    /** In the order of arrival. The receiver may delete this object. */
    void received(const QDBusMessage& signal);

private slots:
    void on_signal(const QDBusMessage& signal);
    void on_ownerChanged(const QDBusMessage& signal);
    void on_owner(const QDBusMessage& answer);
    void on_noOwner(const QDBusError& error, const QDBusMessage& call);

private:
    bool connectTo(const QString& service, const QString& path, const QString& interface, const QString& name,
                   const QStringList& firstArgument, const QString& signature, const char* slot);
    void askForOwner();
    void decide();
    void forget(const char* reason);

    const QString m_service;
    QDBusConnection m_connection;
    QString m_owner;
    QList<QDBusMessage> m_waiting;
    qint64 m_decided = 0; ///< how many signals have waited before those that wait now
    qint64 m_asked = 0;   ///< m_decided as it will be after the answer that is awaited
    bool m_isAsking = false;
};
