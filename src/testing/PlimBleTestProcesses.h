#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QEventLoop>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariantList>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

/** What PlimBleTest.h is made of. Use that header; this one may change at any time. */
namespace PlimBleTestDetail {

/** A process that ends with this one, even if this one crashes or is killed. */
class Child : public QProcess
{
public:
    // Its errors appear in the test's output.
    Child()
    {
        setProcessChannelMode(ForwardedErrorChannel);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        setChildProcessModifier([this] { endWithParent(); });
#endif
    }
    ~Child() override
    {
        end();
    }

    /** Starts it and returns its first line, or why there is none. */
    QString startAndRead(const QString& program, const QStringList& arguments)
    {
        start(program, arguments);
        while (!canReadLine()) {
            if (!waitForReadyRead(patienceMs)) {
                return program + QLatin1String(": ") + errorString();
            }
        }
        return QString::fromLocal8Bit(readLine()).trimmed();
    }

    /** Asks it to end, and kills it after 30 s. Returns its exit code, or -1 if it crashed or was killed. */
    int end()
    {
        if (state() != NotRunning) {
            terminate();
            if (!waitForFinished(patienceMs)) {
                kill();
                waitForFinished(patienceMs);
            }
        }
        return exitStatus() == NormalExit ? exitCode() : -1;
    }

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
protected:
    void setupChildProcess() override
    {
        endWithParent();
    }
#endif

private:
    /** Runs in the child, before its program. */
    void endWithParent() const
    {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != m_parent) {
            _exit(1); // the parent has ended before it could be watched
        }
    }

    static constexpr int patienceMs = 30000;

    const pid_t m_parent = getpid();
};

/** A message bus that ends with this object. */
class Bus
{
public:
    /**
     * @param rules      what is added to a policy that allows everything: <deny .../>, <allow .../>
     * @param activated  the command with which the bus is to start org.bluez, empty for none
     */
    explicit Bus(const QString& rules = {}, const QString& activated = {})
    {
        const QString configuration = m_folder.filePath(QStringLiteral("bus.conf"));
        write(configuration,
              QStringLiteral("<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>"
                             "<auth>EXTERNAL</auth><servicedir>%1</servicedir>"
                             "<policy context='default'><allow user='*'/><allow own='*'/>"
                             "<allow send_destination='*' eavesdrop='true'/><allow eavesdrop='true'/>%2"
                             "</policy></busconfig>")
                  .arg(m_folder.path(), rules));
        if (!activated.isEmpty()) {
            write(m_folder.filePath(QStringLiteral("org.bluez.service")),
                  QStringLiteral("[D-BUS Service]\nName=org.bluez\nExec=%1\n").arg(activated));
        }
        m_address = m_daemon.startAndRead(QStringLiteral("dbus-daemon"),
                                          {QStringLiteral("--config-file=") + configuration,
                                           QStringLiteral("--nofork"), QStringLiteral("--print-address")});
        if (!m_address.startsWith(QLatin1String("unix:"))) {
            qFatal("PlimBleTest: no message bus: %s", qPrintable(m_address));
        }
    }
    Q_DISABLE_COPY(Bus)

    QString address() const { return m_address; }

private:
    static void write(const QString& path, const QString& text)
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0) {
            qFatal("PlimBleTest: cannot write %s", qPrintable(path));
        }
    }

    QTemporaryDir m_folder;
    Child m_daemon;
    QString m_address;
};

/** The simulator's own name on the bus. */
inline QString service()
{
    return QStringLiteral("org.plim.BluezSimulator");
}

inline QVariant asPath(const QString& path)
{
    return QVariant::fromValue(QDBusObjectPath(path));
}

/** Calls a method, and runs the event loop until the answer is there: it may need an object of this program.
 */
inline QDBusMessage callWithEventLoop(const QDBusConnection& bus, const QDBusMessage& call)
{
    // QDBus::BlockWithGui waits forever for an answer that comes before it has begun to wait.
    const QDBusPendingCallWatcher answer(bus.asyncCall(call));
    QEventLoop loop;
    QObject::connect(&answer, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
    if (!answer.isFinished()) {
        loop.exec();
    }
    return answer.reply();
}

/** Whether this program's objects are reached while it waits for an answer. */
enum class Waiting
{
    Blocked,  ///< nothing happens meanwhile
    EventLoop ///< the event loop runs
};

/** Calls a method of one of the simulator's objects. */
inline QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                         const QVariantList& arguments, Waiting waiting)
{
    QDBusMessage call = QDBusMessage::createMethodCall(service(), path, interface, method);
    call.setArguments(arguments);
    if (waiting == Waiting::Blocked) {
        return QDBusConnection::systemBus().call(call);
    }
    return callWithEventLoop(QDBusConnection::systemBus(), call);
}

/** Calls a method of the simulator's control interface. */
inline QDBusMessage control(const QString& method, const QVariantList& arguments, Waiting waiting)
{
    return call(QStringLiteral("/org/plim/BluezSimulator"), QStringLiteral("org.plim.BluezSimulator1"),
                method, arguments, waiting);
}

/** The object paths in an answer that lists registered objects with their owners. */
inline QStringList pathsIn(const QVariant& answer)
{
    QStringList paths;
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
    return paths;
}

/**
 * Waits for any answer of the daemon, if it is there: the bus has then delivered all that the daemon sent
 * before, so that none of it meets a later subscriber.
 */
inline void awaitDaemon()
{
    const QString bluez = QStringLiteral("org.bluez");
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.interface()->isServiceRegistered(bluez)) {
        return;
    }
    const QDBusMessage answer = bus.call(QDBusMessage::createMethodCall(
        bluez, QStringLiteral("/"), QStringLiteral("org.freedesktop.DBus.Introspectable"),
        QStringLiteral("Introspect")));
    if (answer.type() != QDBusMessage::ReplyMessage) {
        qFatal("PlimBleTest: the simulator does not answer: %s", qPrintable(answer.errorMessage()));
    }
}

} // namespace PlimBleTestDetail
