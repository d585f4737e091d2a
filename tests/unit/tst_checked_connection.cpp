#include "Literals.h"
#include "plim.h"

#include <QThread>
#include <QtTest>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>

/** Known to the compiler only. Qt 6 registers such a type by itself, Qt 5 does not. */
struct Unregistered
{
};

/** Nobody can register it. */
struct Incomplete;

class Sender : public QObject
{
    Q_OBJECT

public:
    void notASignal() {}

signals:
    void carriesUnregistered(const Unregistered& value);
    void carriesPointer(Unregistered* value);
    void carriesRegistered(const QByteArray& value);
    void carriesIncomplete(const Incomplete& value);
    void mixed(int number, const QString& text, const Incomplete& value);
};

class Receiver : public QObject
{
    Q_OBJECT

public:
    int calls = 0;

public slots:
    void takeUnregistered(const Unregistered& /*value*/) { ++calls; }
    void takePointer(Unregistered* /*value*/) { ++calls; }
    void takeRegistered(const QByteArray& /*value*/) { ++calls; }
    void takeNothing() { ++calls; }
};

namespace {

/** A receiver that lives on another thread, which need not run for that. */
struct ElsewhereReceiver
{
    QThread thread;
    Receiver receiver;
    ElsewhereReceiver() { receiver.moveToThread(&thread); }
};

Sender source;

void connectUnregisteredAcrossThreads()
{
    ElsewhereReceiver elsewhere;
    plim::connect(&source, &Sender::carriesUnregistered, &elsewhere.receiver, &Receiver::takeUnregistered);
}

void connectIncompleteAcrossThreads()
{
    ElsewhereReceiver elsewhere;
    plim::connect(&source, &Sender::carriesIncomplete, &elsewhere.receiver, &Receiver::takeNothing);
}

void connectMixedAcrossThreads()
{
    ElsewhereReceiver elsewhere;
    plim::connect(&source, &Sender::mixed, &elsewhere.receiver, &Receiver::takeNothing);
}

void connectNullReceiver()
{
    plim::connect(&source, &Sender::carriesPointer, static_cast<Receiver*>(nullptr), &Receiver::takePointer);
}

void connectNullSender()
{
    Receiver receiver;
    plim::connect(static_cast<Sender*>(nullptr), &Sender::carriesPointer, &receiver, &Receiver::takePointer);
}

void connectTwiceUniquely()
{
    Receiver receiver;
    for (int i = 0; i < 2; ++i) {
        plim::connect(&source, &Sender::carriesPointer, &receiver, &Receiver::takePointer,
                      Qt::UniqueConnection);
    }
}

void connectNoSignal()
{
    Receiver receiver;
    plim::connect(&source, &Sender::notASignal, &receiver, &Receiver::takeNothing);
}

void disconnectNothing()
{
    Receiver receiver;
    plim::disconnect(&source, &Sender::carriesPointer, &receiver, &Receiver::takePointer);
}

void disconnectTwice()
{
    Receiver receiver;
    plim::connect(&source, &Sender::carriesPointer, &receiver, &Receiver::takePointer);
    plim::disconnect(&source, &Sender::carriesPointer, &receiver, &Receiver::takePointer);
    plim::disconnect(&source, &Sender::carriesPointer, &receiver, &Receiver::takePointer);
}

struct Death
{
    void (*function)();
    QString assertion;
};

/** What aborts the process; each runs in a child process. */
const std::map<std::string, Death>& deaths()
{
    static const QString parameters = "verifyConnectionSignalParameters(sender, signal, receiver, type)"_qs;
    static const std::map<std::string, Death> all
    {
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
        {"unregistered type across threads", {connectUnregisteredAcrossThreads, parameters}},
#endif
            {"incomplete type across threads", {connectIncompleteAcrossThreads, parameters}},
            {"one unregistered type of three", {connectMixedAcrossThreads, parameters}},
            {"null receiver", {connectNullReceiver, "connection"_qs}},
            {"null sender", {connectNullSender, "connection"_qs}},
            {"second unique connection", {connectTwiceUniquely, "connection"_qs}},
            {"not a signal", {connectNoSignal, "connection"_qs}},
            {"disconnect without a connection", {disconnectNothing, "disconnectSucceeded"_qs}},
            {"second disconnect", {disconnectTwice, "disconnectSucceeded"_qs}},
    };
    return all;
}

} // namespace

class tst_checked_connection : public QObject
{
    Q_OBJECT

private slots:
    void connectedSignalsArrive();
    void disconnectedSignalsDoNotArrive();
    void functionObjectsCanBeConnected();
    void unregisteredTypesAreFineOnOneThread();
    void pointersCrossThreadsUnregistered();
    void registeredTypesCrossThreads();
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    void typesThatTheCompilerKnowsCrossThreads()
    {
        connectUnregisteredAcrossThreads();
    }
#endif
    void failuresAbortWithTheAssertion_data();
    void failuresAbortWithTheAssertion();
};

void tst_checked_connection::connectedSignalsArrive()
{
    Receiver receiver;
    QVERIFY(plim::connect(&source, &Sender::carriesRegistered, &receiver, &Receiver::takeRegistered));
    emit source.carriesRegistered("x");
    QCOMPARE(receiver.calls, 1);
}

void tst_checked_connection::disconnectedSignalsDoNotArrive()
{
    Receiver receiver;
    plim::connect(&source, &Sender::carriesRegistered, &receiver, &Receiver::takeRegistered);
    plim::disconnect(&source, &Sender::carriesRegistered, &receiver, &Receiver::takeRegistered);
    emit source.carriesRegistered("x");
    QCOMPARE(receiver.calls, 0);
}

void tst_checked_connection::functionObjectsCanBeConnected()
{
    Receiver receiver;
    QByteArray seen;
    plim::connect(&source, &Sender::carriesRegistered, &receiver,
                  [&seen](const QByteArray& value) { seen = value; });
    emit source.carriesRegistered("x");
    QCOMPARE(seen, QByteArray("x"));
}

void tst_checked_connection::unregisteredTypesAreFineOnOneThread()
{
    Receiver receiver;
    plim::connect(&source, &Sender::carriesUnregistered, &receiver, &Receiver::takeUnregistered);
    emit source.carriesUnregistered({});
    QCOMPARE(receiver.calls, 1);
}

void tst_checked_connection::pointersCrossThreadsUnregistered()
{
    ElsewhereReceiver elsewhere;
    QVERIFY(plim::connect(&source, &Sender::carriesPointer, &elsewhere.receiver, &Receiver::takePointer));
}

void tst_checked_connection::registeredTypesCrossThreads()
{
    ElsewhereReceiver elsewhere;
    QVERIFY(
        plim::connect(&source, &Sender::carriesRegistered, &elsewhere.receiver, &Receiver::takeRegistered));
}

void tst_checked_connection::failuresAbortWithTheAssertion_data()
{
    QTest::addColumn<QString>("assertion");
    for (const auto& [name, death] : deaths()) {
        QTest::newRow(name.c_str()) << death.assertion;
    }
}

namespace {

/** Runs the function in a copy of this process, and returns what that printed on standard error and how it
 * ended. */
QByteArray outputOfDying(void (*function)(), int* status)
{
    int ends[2];
    if (pipe(ends) != 0) {
        qFatal("no pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        std::signal(SIGABRT, SIG_DFL); // not QTest's, which tells a story of its own
        function();
        _exit(0);
    }
    close(ends[1]);
    QByteArray output;
    char piece[256];
    for (ssize_t length = 0; (length = read(ends[0], piece, sizeof piece)) > 0;) {
        output.append(piece, int(length));
    }
    close(ends[0]);
    waitpid(child, status, 0);
    return output;
}

} // namespace

void tst_checked_connection::failuresAbortWithTheAssertion()
{
    QFETCH(QString, assertion);
    int status = 0;
    const QByteArray output = outputOfDying(deaths().at(QTest::currentDataTag()).function, &status);
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), SIGABRT);
    const QList<QByteArray> lines = output.split('\n');
    QVERIFY2(lines.contains("plim: assertion failed: " + assertion.toLocal8Bit()), output);
}

QTEST_GUILESS_MAIN(tst_checked_connection)

#include "tst_checked_connection.moc"
