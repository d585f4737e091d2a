#pragma once

#include "DBusTypes.h"
#include "PlimBleTestProcesses.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QStringList>

#include <functional>

/** A client of the daemon without the library: it shows any objects, records what it is called with, and
 * answers as a test wants. */
class RawPeripheral : public QDBusVirtualObject
{
    Q_OBJECT

public:
    using Answer = std::function<QDBusMessage(const QDBusMessage& call)>;

    RawPeripheral()
        : m_bus(QDBusConnection::connectToBus(qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"), "raw"))
    {
        registerDBusTypes();
        m_bus.registerVirtualObject("/app", this, QDBusConnection::SubPath);
        // What the daemon tells everybody stands in the same list as its calls, in the order of arrival.
        m_bus.connect("org.bluez", {}, "org.freedesktop.DBus.Properties", "PropertiesChanged", this,
                      SLOT(on_signal(QDBusMessage)));
        m_bus.connect("org.bluez", {}, "org.freedesktop.DBus.ObjectManager", {}, this,
                      SLOT(on_signal(QDBusMessage)));
    }
    ~RawPeripheral() override { QDBusConnection::disconnectFromBus("raw"); }

    /** Adds a service, unless there is one, and a characteristic with these flags. */
    void add(const QString& path, const QStringList& flags, const QVariantMap& more = {})
    {
        addService("/app/s");
        QVariantMap properties{{"UUID", "c0de0002-5f2a-4d6b-9a57-1f6d0a3b0000"},
                               {"Service", QVariant::fromValue(QDBusObjectPath("/app/s"))},
                               {"Flags", flags}};
        properties.insert(more);
        m_objects[QDBusObjectPath(path)]["org.bluez.GattCharacteristic1"] = properties;
    }
    void addDescriptor(const QString& path, const QString& characteristic, const QStringList& flags)
    {
        m_objects[QDBusObjectPath(path)]["org.bluez.GattDescriptor1"] = {
            {"UUID", "c0de0003-5f2a-4d6b-9a57-1f6d0a3b0000"},
            {"Characteristic", QVariant::fromValue(QDBusObjectPath(characteristic))},
            {"Flags", flags}};
    }
    void addService(const QString& path, const QVariantMap& more = {})
    {
        QVariantMap properties{{"UUID", "c0de0001-5f2a-4d6b-9a57-1f6d0a3b0000"}, {"Primary", true}};
        properties.insert(more);
        m_objects[QDBusObjectPath(path)]["org.bluez.GattService1"] = properties;
    }
    void clear() { m_objects.clear(); }

    /** Registers; the daemon's error text, or nothing. */
    QString registerApplication() { return tell("RegisterApplication", {path(), QVariantMap()}); }
    QString unregisterApplication() { return tell("UnregisterApplication", {path()}); }

    /** How calls of the daemon's are answered from now on; nothing for an empty success. */
    void answerWith(const Answer& answer) { m_answer = answer; }

    void send(const QDBusMessage& answer) { m_bus.send(answer); }

    /** Announces a value of a characteristic. */
    void setValue(const QString& characteristic, const QByteArray& value)
    {
        QDBusMessage signal = QDBusMessage::createSignal(characteristic, "org.freedesktop.DBus.Properties",
                                                         "PropertiesChanged");
        signal << "org.bluez.GattCharacteristic1" << QVariantMap{{"Value", value}} << QStringList();
        m_bus.send(signal);
    }

    /** Returns when the daemon has handled what was sent to it before. */
    void settle()
    {
        PlimBleTestDetail::callWithEventLoop(
            m_bus, QDBusMessage::createMethodCall("org.bluez", "/", "org.freedesktop.DBus.Introspectable",
                                                  "Introspect"));
    }

    /** The calls and signals that have arrived since, by their members. */
    QStringList takeMembers()
    {
        QStringList members;
        for (const QDBusMessage& message : std::exchange(m_messages, {})) {
            members << message.member();
        }
        return members;
    }
    /** The last one of that name. */
    QDBusMessage last(const QString& member) const
    {
        for (auto message = m_messages.crbegin(); message != m_messages.crend(); ++message) {
            if (message->member() == member) {
                return *message;
            }
        }
        return QDBusMessage();
    }

    QString introspect(const QString&) const override { return QString(); }
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override
    {
        if (call.member() == "GetManagedObjects") {
            return bus.send(call.createReply(QVariant::fromValue(m_objects)));
        }
        if (call.member() == "Introspect") {
            return false; // Qt answers
        }
        m_messages << call;
        if (!call.isReplyRequired()) {
            return true;
        }
        if (m_answer) {
            const QDBusMessage answer = m_answer(call);
            return answer.type() == QDBusMessage::InvalidMessage || bus.send(answer);
        }
        return bus.send(call.member() == "ReadValue" ? call.createReply(QByteArray("value"))
                                                     : call.createReply());
    }

private slots:
    void on_signal(const QDBusMessage& signal) { m_messages << signal; }

private:
    static QVariant path() { return QVariant::fromValue(QDBusObjectPath("/app")); }
    QString tell(const QString& method, const QVariantList& arguments)
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall("org.bluez", "/org/bluez/hci0", "org.bluez.GattManager1", method);
        call.setArguments(arguments);
        return PlimBleTestDetail::callWithEventLoop(m_bus, call).errorMessage();
    }

    QDBusConnection m_bus;
    DBusManagedObjectList m_objects;
    Answer m_answer;
    QList<QDBusMessage> m_messages;
};
