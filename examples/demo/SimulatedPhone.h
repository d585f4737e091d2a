#pragma once

#include "DBusTypes.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QString>
#include <QVariantMap>

#include <functional>

/**
 * The phone that plim-bluez-simulator plays, by way of its control interface.
 * Every call blocks until it is answered; a failure ends the program with a message.
 */
class SimulatedPhone
{
public:
    SimulatedPhone();

    /** Every object of the registered application, as the daemon has read it. */
    DBusManagedObjectList tree(const QString& application) const;
    /** The path of the object that carries the UUID. */
    QString find(const DBusManagedObjectList& tree, const QString& uuid) const;

    QByteArray read(const QString& path) const;
    QByteArrayList readPages(const QString& data, const QString& control) const;
    void write(const QString& path, const QByteArray& value) const;
    QByteArrayList notifications(const QString& path, int count) const;

    /** The advertisement's properties as the daemon has read them. */
    QVariantMap advertisement(const QString& path) const;

    /** Ends the daemon and starts it again. */
    void restartDaemon() const;
    /** Waits until the daemon holds both the application and the advertisement. */
    void awaitRegistration(const QString& application, const QString& advertisement) const;
    /** Waits, 10 s at most, until the condition holds; `what` completes "timed out waiting for". */
    void await(const char* what, const std::function<bool()>& condition) const;

    [[noreturn]] static void fail(const QString& message);

private:
    QDBusMessage call(const QString& member, const QVariantList& arguments = {}) const;
    template <typename Result>
    Result ask(const QString& member, const QVariantList& arguments = {}) const
    {
        return QDBusReply<Result>(call(member, arguments)).value();
    }
    bool isRegistered(const QString& member, const QString& path) const;
};
