#pragma once

#include "DBusTypes.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusVirtualObject>
#include <QList>
#include <QVariantMap>

/**
 * What a test makes BlueZ say, on a connection of its own in the same process: so whoever waits for its
 * answer without an event loop waits in vain. Calls wait in `calls` for answers; GetManagedObjects is
 * answered at once unless holdsDescription is set.
 */
class FakeBluez : public QDBusVirtualObject
{
public:
    /** Joins the bus. @param name  the connection's, different for each */
    explicit FakeBluez(const QString& name) : m_name(name), m_bus(connected(name))
    {
        registerDBusTypes();
        m_bus.registerVirtualObject(QStringLiteral("/"), this, QDBusConnection::SubPath);
    }
    ~FakeBluez() override
    {
        m_bus.unregisterObject(QStringLiteral("/"), QDBusConnection::UnregisterTree);
        QDBusConnection::disconnectFromBus(m_name);
    }
    Q_DISABLE_COPY(FakeBluez)

    bool appear() { return m_bus.registerService(QStringLiteral("org.bluez")); }
    void vanish() { m_bus.unregisterService(QStringLiteral("org.bluez")); }
    void send(const QDBusMessage& message) { m_bus.send(message); }

    /** The answer to GetManagedObjects now. */
    QDBusMessage description(const QDBusMessage& question) const
    {
        return question.createReply(QVariant::fromValue(objects));
    }

    void add(const QString& path, const DBusInterfaceList& interfaces)
    {
        emitSignal(QStringLiteral("InterfacesAdded"),
                   {QVariant::fromValue(QDBusObjectPath(path)), QVariant::fromValue(interfaces)});
    }
    void remove(const QString& path, const QStringList& interfaces)
    {
        emitSignal(QStringLiteral("InterfacesRemoved"),
                   {QVariant::fromValue(QDBusObjectPath(path)), interfaces});
    }
    void change(const QString& path, const QString& interface, const QVariantMap& changed,
                const QStringList& invalidated = {})
    {
        QDBusMessage signal = QDBusMessage::createSignal(
            path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("PropertiesChanged"));
        signal << interface << changed << invalidated;
        m_bus.send(signal);
    }

    /** The signal of newer versions that tells why a link has ended. */
    void endLink(const QString& path, const QString& reason)
    {
        QDBusMessage signal = QDBusMessage::createSignal(path, QStringLiteral("org.bluez.Device1"),
                                                         QStringLiteral("Disconnected"));
        signal << reason << QStringLiteral("Connection terminated");
        m_bus.send(signal);
    }
    /** What BlueZ says with a call of the link that it came over. */
    static QVariantMap options(const QString& device, const QString& link, quint16 mtu)
    {
        return {{QStringLiteral("device"), QVariant::fromValue(QDBusObjectPath(device))},
                {QStringLiteral("link"), link},
                {QStringLiteral("mtu"), QVariant::fromValue(mtu)}};
    }
    /** A call of an object of the test's program. */
    QDBusPendingCall call(const QString& path, const QString& member, const QVariantList& arguments = {},
                          const QString& interface = QStringLiteral("org.bluez.GattCharacteristic1"))
    {
        return m_bus.asyncCall(callOf(path, member, arguments, interface));
    }
    /** The same without a reply. */
    void send(const QString& path, const QString& member, const QVariantList& arguments = {})
    {
        m_bus.send(callOf(path, member, arguments));
    }
    /** A central reads from the test's program. */
    void read(const QString& path, const QString& device, const QString& link, quint16 mtu)
    {
        send(path, QStringLiteral("ReadValue"), {options(device, link, mtu)});
    }

    QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& /*connection*/) override
    {
        if (call.member() == QLatin1String("GetManagedObjects") && !holdsDescription) {
            m_bus.send(description(call));
            ++descriptions;
        } else {
            calls << call;
        }
        return true;
    }

    DBusManagedObjectList objects; ///< what GetManagedObjects answers
    bool holdsDescription = false;
    int descriptions = 0; ///< how often GetManagedObjects was answered at once
    QList<QDBusMessage> calls;

private:
    static QDBusMessage callOf(const QString& path, const QString& member, const QVariantList& arguments,
                               const QString& interface = QStringLiteral("org.bluez.GattCharacteristic1"))
    {
        QDBusMessage call = QDBusMessage::createMethodCall(QDBusConnection::systemBus().baseService(), path,
                                                           interface, member);
        call.setArguments(arguments);
        return call;
    }
    static QDBusConnection connected(const QString& name)
    {
        return QDBusConnection::connectToBus(qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"), name);
    }
    void emitSignal(const QString& member, const QVariantList& arguments)
    {
        QDBusMessage signal = QDBusMessage::createSignal(
            QStringLiteral("/"), QStringLiteral("org.freedesktop.DBus.ObjectManager"), member);
        signal.setArguments(arguments);
        m_bus.send(signal);
    }

    const QString m_name;
    QDBusConnection m_bus;
};
