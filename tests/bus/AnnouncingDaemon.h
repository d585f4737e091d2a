#pragma once

#include "DBusTypes.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QString>

/** A program with an object manager, on a connection of its own to the bus; nothing here runs an event loop.
 */
class AnnouncingDaemon
{
public:
    explicit AnnouncingDaemon(const QString& connectionName)
        : m_connectionName(connectionName),
          m_bus(QDBusConnection::connectToBus(QDBusConnection::SystemBus, connectionName))
    {
    }
    ~AnnouncingDaemon() { QDBusConnection::disconnectFromBus(m_connectionName); }
    Q_DISABLE_COPY(AnnouncingDaemon)

    QString uniqueName() const { return m_bus.baseService(); }
    bool own(const QString& name) { return m_bus.registerService(name); }
    bool release(const QString& name) { return m_bus.unregisterService(name); }

    void add(const QString& object)
    {
        const DBusInterfaceList interfaces{
            {QStringLiteral("org.example.Thing"), {{QStringLiteral("Size"), 7}}}};
        send(QStringLiteral("InterfacesAdded"),
             {QVariant::fromValue(QDBusObjectPath(object)), QVariant::fromValue(interfaces)});
    }
    void remove(const QString& object)
    {
        send(QStringLiteral("InterfacesRemoved"), {QVariant::fromValue(QDBusObjectPath(object)),
                                                   QStringList(QStringLiteral("org.example.Thing"))});
    }
    void send(const QString& signal, const QVariantList& arguments, const QString& path = QStringLiteral("/"),
              const QString& interface = QStringLiteral("org.freedesktop.DBus.ObjectManager"))
    {
        QDBusMessage message = QDBusMessage::createSignal(path, interface, signal);
        message.setArguments(arguments);
        m_bus.send(message);
    }

    /** Returns when the bus has passed on all that was sent. */
    void flush() { m_bus.interface()->isServiceRegistered(QStringLiteral("org.example.Nobody")); }

private:
    const QString m_connectionName;
    QDBusConnection m_bus;
};
