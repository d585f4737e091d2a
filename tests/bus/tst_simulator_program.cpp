#include "SimulatorScenario.h"

#include <QDBusConnectionInterface>

namespace {

struct Ended
{
    int exitCode;
    QString output;
    QString errors;
};

/** Runs the program until it ends by itself. */
Ended run(const QStringList& arguments,
          const QString& address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"))
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", address);
    process.setProcessEnvironment(environment);
    process.start(Simulator::program(), arguments);
    const bool hasEnded = process.waitForFinished();
    const int exitCode = hasEnded && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    if (!hasEnded) {
        process.kill();
        process.waitForFinished();
    }
    return {exitCode, process.readAllStandardOutput(), process.readAllStandardError()};
}

bool isOnBus(const QString& name)
{
    return QDBusConnection::systemBus().interface()->isServiceRegistered(name);
}

} // namespace

/** The stand-in daemon as a program: its command line, its end and its exit codes. */
class tst_simulator_program : public QObject
{
    Q_OBJECT

private slots:
    void helpExplainsEveryOption();
    void wrongArgumentsAreExplained_data();
    void wrongArgumentsAreExplained();
    void anUnreachableBusIsReported();
    void aTakenNameIsReported();
    void aTakenControlNameIsReported();
    void itEndsWhenAskedTo();
    void itEndsOnASignal();
    void absentMeansNotOnTheBusUntilItAppears();
    void verboseOnesPrintEveryCall();
};

void tst_simulator_program::helpExplainsEveryOption()
{
    const Ended ended = run({"--help"});
    QCOMPARE(ended.exitCode, 0);
    for (const char* option : {"--address", "--adapter", "--absent", "--bluez", "--accept-everything",
                               "--verbose", "org.plim.BluezSimulator1", "Exit codes"}) {
        QVERIFY2(ended.output.contains(option), option);
    }
    QCOMPARE(ended.errors, QString());
}

void tst_simulator_program::wrongArgumentsAreExplained_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("explanation");
    QTest::newRow("unknown option") << QStringList("--nothing") << "Unknown option 'nothing'.";
    QTest::newRow("stray word") << QStringList("word") << "unexpected argument 'word', see --help";
    QTest::newRow("unknown version") << QStringList({"--bluez", "4"})
                                     << "--bluez accepts 5.66 and 5.82, not '4'";
    QTest::newRow("adapter name") << QStringList({"--adapter", "a/b"})
                                  << "\"a/b\" cannot be an adapter's name: letters, digits and _ only";
    QTest::newRow("adapter twice") << QStringList({"--adapter", "hci0", "--adapter", "hci0"})
                                   << "There is an adapter hci0 already";
    QTest::newRow("empty address") << QStringList({"--address", ""})
                                   << "no bus: use --address or set DBUS_SYSTEM_BUS_ADDRESS";
}

void tst_simulator_program::wrongArgumentsAreExplained()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, explanation);
    const Ended ended = run(arguments);
    QCOMPARE(ended.exitCode, 1);
    QCOMPARE(ended.errors, "plim-bluez-simulator: " + explanation + "\n");
    QCOMPARE(ended.output, QString());
}

void tst_simulator_program::anUnreachableBusIsReported()
{
    const Ended ended = run({"--address", "unix:path=/nonexistent/bus"});
    QCOMPARE(ended.exitCode, 2);
    QVERIFY2(
        ended.errors.startsWith("plim-bluez-simulator: cannot reach the bus unix:path=/nonexistent/bus: "),
        qPrintable(ended.errors));
    QCOMPARE(run({}, "unix:path=/nonexistent/bus").exitCode, 2);
}

void tst_simulator_program::aTakenNameIsReported()
{
    QVERIFY(QDBusConnection::systemBus().registerService("org.bluez"));
    const Ended ended = run({});
    QVERIFY(QDBusConnection::systemBus().unregisterService("org.bluez"));
    QCOMPARE(ended.exitCode, 3);
    QCOMPARE(ended.errors,
             QString("plim-bluez-simulator: the name org.bluez is already taken on this bus\n"));
}

void tst_simulator_program::aTakenControlNameIsReported()
{
    const Simulator first;
    const Ended ended = run({});
    QCOMPARE(ended.exitCode, 3);
    QCOMPARE(
        ended.errors,
        QString("plim-bluez-simulator: the name org.plim.BluezSimulator is already taken on this bus\n"));
    QVERIFY(isOnBus("org.bluez"));
}

void tst_simulator_program::itEndsWhenAskedTo()
{
    QProcess process;
    process.start(Simulator::program(), QStringList());
    QVERIFY(process.waitForReadyRead());
    const QString ready = process.readAllStandardOutput();
    QVERIFY2(ready.startsWith("plim-bluez-simulator: ready on unix:"), qPrintable(ready));
    QVERIFY2(ready.endsWith(" as org.bluez, control org.plim.BluezSimulator\n"), qPrintable(ready));
    QCOMPARE(Simulator::control("Quit").type(), QDBusMessage::ReplyMessage);
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
}

void tst_simulator_program::itEndsOnASignal()
{
    Simulator daemon;
    QVERIFY(isOnBus("org.bluez"));
    QCOMPARE(daemon.end(), 0);
    EVENTUALLY_VERIFY(!isOnBus("org.bluez"));
}

void tst_simulator_program::absentMeansNotOnTheBusUntilItAppears()
{
    Simulator daemon({"--absent"});
    QVERIFY(!isOnBus("org.bluez"));
    daemon.appear();
    QVERIFY(isOnBus("org.bluez"));
    daemon.vanish();
    QVERIFY(!isOnBus("org.bluez"));
}

void tst_simulator_program::verboseOnesPrintEveryCall()
{
    QProcess process;
    process.start(Simulator::program(), {"--verbose"});
    QVERIFY(process.waitForReadyRead());
    QDBusMessage call = QDBusMessage::createMethodCall("org.bluez", "/org/bluez/hci0",
                                                       "org.bluez.GattManager1", "UnregisterApplication");
    call << QVariant::fromValue(QDBusObjectPath("/app"));
    QDBusConnection::systemBus().call(call);
    QString output;
    const auto isPrinted = [&process, &output] {
        output += process.readAllStandardOutput();
        return output.contains("\n/org/bluez/hci0 org.bluez.GattManager1.UnregisterApplication(/app)\n");
    };
    EVENTUALLY_VERIFY(isPrinted());
    process.terminate();
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), 0);
}

QTEST_GUILESS_MAIN(tst_simulator_program)
#include "tst_simulator_program.moc"
