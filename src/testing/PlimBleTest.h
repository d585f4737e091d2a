#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QList>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryFile>
#include <QVariantMap>
#include <QtTest>

#include <csignal>
#include <sys/prctl.h>

#ifndef PLIM_BLUEZ_SIMULATOR
/** The simulator's program; plim_add_ble_test() sets it. */
#define PLIM_BLUEZ_SIMULATOR "plim-bluez-simulator"
#endif

/**
 * For tests of a peripheral of one's own, without Bluetooth and without privileges: a Bluetooth daemon and a
 * phone that is connected, both played by plim-bluez-simulator, which runs as long as this object lives.
 * Several one after the other, for instance one in each test function, are daemons that come and go.
 *
 * The first one of a process also starts a message bus of the program's own and makes it the system bus. So
 * nothing may have used the system bus before; the constructor ends the program where something has. Both
 * processes end with this one, even if it crashes.
 *
 * Use it on the main thread, after the application object is made and in a test function. While a call waits
 * for its answer the event loop runs, so that the peripheral under test, in the same program, can answer
 * meanwhile. What the simulator refuses, or the peripheral answers with an error, fails the current test, and
 * the call returns an empty value.
 */
class PlimBleTest
{
public:
    /** @param arguments  of the simulator's command line, for instance {"--bluez", "5.66"}; not "--address"
     */
    explicit PlimBleTest(const QStringList& arguments = {})
    {
        static const Bus bus; // ends with the program
        // Until the event loop has run once, Qt mixes up the order of what the bus delivers: the daemon's
        // first announcement could overtake the news that it is there, and be dropped.
        QDBusConnection::systemBus();
        QCoreApplication::processEvents();
        const QString ready =
            m_simulator.startAndRead(QStringLiteral(PLIM_BLUEZ_SIMULATOR),
                                     QStringList{QStringLiteral("--address"), bus.address} + arguments);
        if (!ready.contains(QLatin1String(": ready"))) {
            qFatal("PlimBleTest: the simulator does not start: %s", qPrintable(ready));
        }
        const QDBusConnection system = QDBusConnection::systemBus();
        if (!system.isConnected() || system.interface()->servicePid(service()) != m_simulator.processId()) {
            qFatal("PlimBleTest: the simulator is not on this program's system bus; was that in use before?");
        }
        awaitAnnouncements();
    }

    Q_DISABLE_COPY(PlimBleTest)

    /** The object paths of the applications that are registered, in the order of registering. */
    QStringList applications() const { return paths(QStringLiteral("Applications")); }
    /** The same of advertisements. */
    QStringList advertisements() const { return paths(QStringLiteral("Advertisements")); }

    /** What the daemon has read from a registered advertisement, by D-Bus property. */
    QVariantMap advertisement(const QString& path) const
    {
        return ask<QVariantMap>(QStringLiteral("Advertisement"), {asPath(path)});
    }

    /** The object path of the service, characteristic or descriptor with this UUID in what is registered. */
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
        fail(QStringLiteral("nothing that is registered has the UUID ") + uuid);
        return QString();
    }

    /** The phone reads, in steps of 22 bytes and at most 512. */
    QByteArray read(const QString& path) const
    {
        return ask<QByteArray>(QStringLiteral("ReadLong"), {asPath(path)});
    }

    /** The phone fetches a long value page by page, which is selected by writing to the control
     * characteristic. */
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
    /** It wants no more of them. */
    void unsubscribe(const QString& path) const { order(QStringLiteral("Unsubscribe"), {asPath(path)}); }

    /** Every value that the phone was notified of while subscribed, in order. */
    QList<QByteArray> notifications(const QString& path) const
    {
        return ask<QList<QByteArray>>(QStringLiteral("Notifications"), {asPath(path)});
    }

    /** The daemon ends as if killed. Returns, like the next two, when it is so for everybody on the bus. */
    void vanish() const { change(QStringLiteral("Vanish")); }
    /** The daemon starts. */
    void appear() const { change(QStringLiteral("Appear")); }
    /** The daemon ends and starts. */
    void restart() const { change(QStringLiteral("Restart")); }

    /**
     * From now on the daemon answers a method ("RegisterApplication", "RegisterAdvertisement", ...) with this
     * error; an empty name restores its own answers.
     */
    void refuse(const QString& method, const QString& errorName, const QString& errorText = {}) const
    {
        const QString mode = errorName.isEmpty() ? QStringLiteral("normal") : QStringLiteral("error");
        order(QStringLiteral("SetAnswer"), {method, mode, errorName, errorText, QVariant::fromValue(0U)});
    }

    /** Any method of the simulator's control interface (see its manual page); the answer may be an error. */
    static QDBusMessage control(const QString& method, const QVariantList& arguments = {})
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(service(), QStringLiteral("/org/plim/BluezSimulator"),
                                           QStringLiteral("org.plim.BluezSimulator1"), method);
        call.setArguments(arguments);
        return QDBusConnection::systemBus().call(call, QDBus::BlockWithGui);
    }

private:
    /** A process that does not survive this one. */
    class Child : public QProcess
    {
    public:
        ~Child() override
        {
            terminate();
            waitForFinished();
        }

        // Its complaints are for whoever looks at the test's output.
        Child() { setProcessChannelMode(ForwardedErrorChannel); }

        /** Starts it and returns its first line, or else what went wrong. */
        QString startAndRead(const QString& program, const QStringList& arguments)
        {
            start(program, arguments);
            while (!canReadLine()) {
                if (!waitForReadyRead()) {
                    return program + QLatin1String(": ") + errorString();
                }
            }
            return QString::fromLocal8Bit(readLine()).trimmed();
        }

    protected:
        void setupChildProcess() override { prctl(PR_SET_PDEATHSIG, SIGTERM); }
    };

    /** A message bus that knows no services and no restrictions. */
    class Bus
    {
    public:
        Bus()
        {
            QTemporaryFile configuration;
            configuration.open();
            configuration.write(
                "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth>"
                "<policy context=\"default\"><allow user=\"*\"/><allow own=\"*\"/>"
                "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                "</policy></busconfig>");
            configuration.close();
            address = m_daemon.startAndRead(QStringLiteral("dbus-daemon"),
                                            {QStringLiteral("--config-file=") + configuration.fileName(),
                                             QStringLiteral("--nofork"), QStringLiteral("--print-address")});
            if (!address.startsWith(QLatin1String("unix:"))) {
                qFatal("PlimBleTest: no message bus: %s", qPrintable(address));
            }
            qputenv("DBUS_SYSTEM_BUS_ADDRESS", address.toLocal8Bit());
        }

        QString address;

    private:
        Child m_daemon;
    };

    static QString service() { return QStringLiteral("org.plim.BluezSimulator"); }
    static QVariant asPath(const QString& path) { return QVariant::fromValue(QDBusObjectPath(path)); }
    static void fail(const QString& reason) { QTest::qFail(qPrintable(reason), "PlimBleTest.h", __LINE__); }

    static QVariant order(const QString& method, const QVariantList& arguments = {})
    {
        const QDBusMessage answer = control(method, arguments);
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

    /** Any answer of the daemon's shows that what it sent before has arrived; the program gets to know it
     * here. */
    static void awaitAnnouncements()
    {
        const QString bluez = QStringLiteral("org.bluez");
        QDBusConnection bus = QDBusConnection::systemBus();
        if (bus.interface()->isServiceRegistered(bluez)) {
            bus.call(QDBusMessage::createMethodCall(bluez, QStringLiteral("/"),
                                                    QStringLiteral("org.freedesktop.DBus.Introspectable"),
                                                    QStringLiteral("Introspect")));
        }
        QCoreApplication::processEvents();
    }

    static QStringList paths(const QString& method)
    {
        QStringList paths;
        const QVariant answer = order(method);
        if (answer.isValid()) {
            const auto references = answer.value<QDBusArgument>();
            references.beginArray();
            while (!references.atEnd()) {
                QString owner;
                QDBusObjectPath path;
                references.beginStructure();
                references >> owner >> path;
                references.endStructure();
                paths << path.path();
            }
            references.endArray();
        }
        return paths;
    }

    Child m_simulator;
};
