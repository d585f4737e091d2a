#pragma once

#include "PlimBleTestProcesses.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <QtTest>

#ifndef PLIM_BLUEZ_SIMULATOR
/** The simulator's program file; plim_add_ble_test() sets it. */
#define PLIM_BLUEZ_SIMULATOR "plim-bluez-simulator"
#endif

/**
 * Tests your own peripheral without Bluetooth and without privileges: plim-bluez-simulator plays the
 * Bluetooth daemon and a connected phone. It runs as long as this object lives. Create one in each test
 * function: each test then has a new daemon.
 *
 * The first object of a process also starts a private message bus and makes it the system bus. Nothing may
 * use the system bus before that; otherwise the constructor ends the program. Both processes end with this
 * one, even if it crashes, is killed, or is aborted by QTest's watchdog.
 *
 * Use it on the main thread, in a test function, after the application object was created. While a call waits
 * for its answer, the event loop runs, so that the peripheral under test can answer in the same program. If
 * the simulator rejects a call, or the peripheral answers with an error, the current test fails and the call
 * returns an empty value.
 */
class PlimBleTest
{
public:
    /** @param arguments  for the simulator's command line, for instance {"--bluez", "5.66"}; not "--address"
     */
    explicit PlimBleTest(const QStringList& arguments = {})
    {
        static const SystemBus bus; // ends with the program
        const QString ready =
            m_simulator.startAndRead(QStringLiteral(PLIM_BLUEZ_SIMULATOR),
                                     QStringList{QStringLiteral("--address"), bus.address()} + arguments);
        if (!ready.contains(QLatin1String(": ready"))) {
            qFatal("PlimBleTest: the simulator does not start: %s", qPrintable(ready));
        }
        const QDBusConnection system = QDBusConnection::systemBus();
        if (!system.isConnected() || system.interface()->servicePid(service()) != m_simulator.processId()) {
            qFatal("PlimBleTest: the simulator is not on this program's system bus: the program has used "
                   "the bus before");
        }
        awaitAnnouncements();
    }

    Q_DISABLE_COPY(PlimBleTest)

    /** The object paths of the registered applications, in the order of their registration. */
    QStringList applications() const { return paths(QStringLiteral("Applications")); }
    /** The object paths of the registered advertisements, in the order of their registration. */
    QStringList advertisements() const { return paths(QStringLiteral("Advertisements")); }

    /** The properties that the daemon has read from a registered advertisement. */
    QVariantMap advertisement(const QString& path) const
    {
        return ask<QVariantMap>(QStringLiteral("Advertisement"), {asPath(path)});
    }

    /** The object path of the registered service, characteristic or descriptor with this UUID. */
    QString find(const QString& uuid) const
    {
        using Objects = QMap<QDBusObjectPath, QMap<QString, QVariantMap>>;
        const QStringList all = applications();
        for (const QString& application : all) {
            const auto objects = ask<Objects>(QStringLiteral("Tree"), {asPath(application)});
            for (auto object = objects.cbegin(); object != objects.cend(); ++object) {
                for (const QVariantMap& properties : *object) {
                    if (properties.value(QStringLiteral("UUID")).toString() == uuid) {
                        return object.key().path();
                    }
                }
            }
        }
        fail(QStringLiteral("no registered object has the UUID ") + uuid);
        return QString();
    }

    /** The phone reads a value, in parts of 22 bytes, at most 512 bytes. */
    QByteArray read(const QString& path) const
    {
        return ask<QByteArray>(QStringLiteral("ReadLong"), {asPath(path)});
    }

    /** The phone reads a long value page by page; it writes the page number to the control characteristic. */
    QList<QByteArray> readPages(const QString& data, const QString& control) const
    {
        return ask<QList<QByteArray>>(QStringLiteral("ReadPages"), {asPath(data), asPath(control)});
    }

    /** The phone writes, with response. */
    void write(const QString& path, const QByteArray& value) const
    {
        order(QStringLiteral("Write"), {asPath(path), value, QVariant::fromValue(ushort(0))});
    }

    /** The phone asks for notifications. */
    void subscribe(const QString& path) const { order(QStringLiteral("Subscribe"), {asPath(path)}); }
    /** The phone ends the notifications. */
    void unsubscribe(const QString& path) const { order(QStringLiteral("Unsubscribe"), {asPath(path)}); }

    /** All values that the phone was notified of while subscribed, in order. */
    QList<QByteArray> notifications(const QString& path) const
    {
        return ask<QList<QByteArray>>(QStringLiteral("Notifications"), {asPath(path)});
    }

    /** The daemon ends as if killed. This and the next two return when all programs on the bus know it. */
    void vanish() const { change(QStringLiteral("Vanish")); }
    /** The daemon starts. */
    void appear() const { change(QStringLiteral("Appear")); }
    /** The daemon ends and starts again. */
    void restart() const { change(QStringLiteral("Restart")); }

    /**
     * From now on the daemon answers a method ("RegisterApplication", "RegisterAdvertisement", ...) with this
     * error. An empty name restores the normal answers.
     */
    void refuse(const QString& method, const QString& errorName, const QString& errorText = {}) const
    {
        const QString mode = errorName.isEmpty() ? QStringLiteral("normal") : QStringLiteral("error");
        order(QStringLiteral("SetAnswer"), {method, mode, errorName, errorText, QVariant::fromValue(0U)});
    }

    /** From now on a pairing agent has so many milliseconds for an answer, instead of 60,000. */
    void setAgentPatience(uint milliseconds) const
    {
        order(QStringLiteral("SetAgentPatience"), {milliseconds});
    }

    /** Calls any method of the simulator's control interface (see its manual page). The answer may be an
     * error. */
    static QDBusMessage control(const QString& method, const QVariantList& arguments = {})
    {
        return PlimBleTestDetail::control(method, arguments, PlimBleTestDetail::Waiting::EventLoop);
    }

    /**
     * A further phone. The daemon is as strict with it as the real one: the flags and the protection of its
     * link decide what it may do, and it gets the errors of the Attribute Protocol. Create it after a
     * PlimBleTest. It connects to the adapter hci0 at once.
     */
    class Phone
    {
    public:
        /** @param address  a Bluetooth address, different for each phone; 00:AA:01:01:00:01 is taken */
        explicit Phone(const QString& address = QStringLiteral("00:AA:01:01:00:02"))
        {
            const QVariant answer = order(QStringLiteral("AddPhone"), {QStringLiteral("hci0"), address});
            m_path = answer.value<QDBusObjectPath>().path();
        }

        /** The path of BlueZ's object for it, which a request's central has. */
        QString device() const
        {
            return QString(m_path).replace(QLatin1String("/org/plim/BluezSimulator"),
                                           QLatin1String("/org/bluez"));
        }

        /** The link is lost. A phone that is not bonded loses its subscriptions. */
        void disconnect() { tell(QStringLiteral("Disconnect")); }
        /** The same as BlueZ from 5.83 on announces it. @param reason  "Remote", "Timeout", "Local",
         * "Authentication", "Suspend" */
        void disconnect(const QString& reason) { tell(QStringLiteral("DisconnectFor"), {reason}); }
        /** It connects again. */
        void connect() { tell(QStringLiteral("Connect")); }
        /** The link is lost, and the daemon forgets the phone. */
        void forget() { tell(QStringLiteral("Forget")); }

        /** From now on its link is "open", "encrypted", "authenticated" or "secure-connections". It is bonded
         * by anything but "open". */
        void protect(const QString& level) { tell(QStringLiteral("SetProtection"), {level}); }

        /**
         * Starts to pair; pairing() tells how it goes on. What both sides can show and ask decides which
         * question the device's agent gets, as with LE Secure Connections. A failed pairing ends the link.
         * @param capability  what the phone can: "KeyboardDisplay" as most phones, "DisplayYesNo",
         * "KeyboardOnly", "DisplayOnly" or "NoInputNoOutput"
         */
        void pair(const QString& capability = QStringLiteral("KeyboardDisplay"))
        {
            tell(QStringLiteral("Pair"), {capability});
        }
        /** "" before the first pairing, "pairing", "paired", or "failed: " and the reason. */
        QString pairing() { return tell(QStringLiteral("Pairing")).toString(); }
        /** The six digits that the phone shows while it pairs; empty if it shows none. */
        QString passkey() { return tell(QStringLiteral("Passkey")).toString(); }
        /** The phone's user types the passkey that the device shows. */
        void typePasskey(const QString& passkey) { tell(QStringLiteral("TypePasskey"), {passkey}); }
        /** The phone's user gives up; does nothing if it does not pair. */
        void cancelPairing() { tell(QStringLiteral("CancelPairing")); }

        /** Whether it confirms indications, as it does at first. It gets no further one before it has. */
        void confirmIndications(bool confirms) { tell(QStringLiteral("SetConfirming"), {confirms}); }

        /** Whether the daemon takes the values for it out of the peripheral's socket, as it does at first. */
        void takeNotifications(bool takes) { tell(QStringLiteral("SetReading"), {takes}); }

        /** Reads a value, at most 512 bytes. */
        QByteArray read(const QString& path, quint16 offset = 0)
        {
            return tell(QStringLiteral("Read"), {asPath(path), QVariant::fromValue(offset)}).toByteArray();
        }
        /** Writes, with response. */
        void write(const QString& path, const QByteArray& value)
        {
            tell(QStringLiteral("Write"), {asPath(path), value, QVariant::fromValue(quint16(0))});
        }
        /** Writes without response; it is not told what becomes of it. */
        void writeWithoutResponse(const QString& path, const QByteArray& value)
        {
            tell(QStringLiteral("WriteWithoutResponse"), {asPath(path), value});
        }

        /** Asks for notifications. */
        void subscribe(const QString& path)
        {
            tell(QStringLiteral("Subscribe"), {asPath(path), QStringLiteral("notifications")});
        }
        /** Asks for indications. */
        void subscribeToIndications(const QString& path)
        {
            tell(QStringLiteral("Subscribe"), {asPath(path), QStringLiteral("indications")});
        }
        /** Ends either. */
        void unsubscribe(const QString& path) { tell(QStringLiteral("Unsubscribe"), {asPath(path)}); }
        /** All values that it was notified of, or that were indicated to it, in order. */
        QList<QByteArray> notifications(const QString& path)
        {
            return qdbus_cast<QList<QByteArray>>(tell(QStringLiteral("Notifications"), {asPath(path)}));
        }

        /** The Attribute Protocol's error that ended the last call, for instance "0x0f Insufficient
         * Encryption"; empty after a success. Such an error does not fail the test; any other does. */
        QString error() const { return m_error; }

    private:
        QVariant tell(const QString& method, const QVariantList& arguments = {})
        {
            const QDBusMessage answer =
                PlimBleTestDetail::call(m_path, QStringLiteral("org.plim.BluezSimulator1.Phone"), method,
                                        arguments, PlimBleTestDetail::Waiting::EventLoop);
            const bool isRefusal = answer.errorName() == service() + QLatin1String(".Error.Att");
            m_error = isRefusal ? answer.errorMessage() : QString();
            return isRefusal ? QVariant() : resultOf(answer, method);
        }

        QString m_path;
        QString m_error;
    };

private:
    /** The process's only private message bus, as its system bus. */
    class SystemBus : public PlimBleTestDetail::Bus
    {
    public:
        SystemBus() { qputenv("DBUS_SYSTEM_BUS_ADDRESS", address().toLocal8Bit()); }
    };

    static QString service() { return PlimBleTestDetail::service(); }
    static QVariant asPath(const QString& path) { return PlimBleTestDetail::asPath(path); }
    static void fail(const QString& reason) { QTest::qFail(qPrintable(reason), "PlimBleTest.h", __LINE__); }

    static QVariant order(const QString& method, const QVariantList& arguments = {})
    {
        return resultOf(control(method, arguments), method);
    }

    /** What a method answered; an error fails the test. */
    static QVariant resultOf(const QDBusMessage& answer, const QString& method)
    {
        if (answer.type() != QDBusMessage::ReplyMessage) {
            fail(method + QLatin1String(": ") + answer.errorMessage());
        }
        return answer.type() == QDBusMessage::ReplyMessage ? answer.arguments().value(0) : QVariant();
    }

    template <typename Result>
    static Result ask(const QString& method, const QVariantList& arguments = {})
    {
        const QVariant answer = order(method, arguments);
        return answer.isValid() ? qdbus_cast<Result>(answer) : Result();
    }

    static void change(const QString& method)
    {
        order(method);
        awaitAnnouncements();
    }

    static void awaitAnnouncements()
    {
        PlimBleTestDetail::awaitDaemon();
        QCoreApplication::processEvents();
    }

    static QStringList paths(const QString& method)
    {
        const QVariant answer = order(method);
        return answer.isValid() ? PlimBleTestDetail::pathsIn(answer) : QStringList();
    }

    PlimBleTestDetail::Child m_simulator;
};
