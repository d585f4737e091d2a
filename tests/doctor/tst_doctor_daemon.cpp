#include "Doctor.h"
#include "PrivateBus.h"
#include "Simulator.h"

#include <QDBusConnection>
#include <QtTest>

#include <unistd.h>

namespace {

/** A folder with a program called bluetoothd, and what it is to answer to --version. */
class FakeDaemon
{
public:
    explicit FakeDaemon(const QByteArray& version)
    {
        QVERIFY(QFile::copy(qEnvironmentVariable("PLIM_DOCTOR_BLUETOOTHD"), program()));
        QFile file(m_folder.filePath("version"));
        if (!version.isEmpty()) {
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(version);
        }
    }

    QString program() const { return m_folder.filePath("bluetoothd"); }
    QString folder() const { return m_folder.path(); }

private:
    QTemporaryDir m_folder;
};

} // namespace

/** What the doctor says about bluetoothd. */
class tst_doctor_daemon : public QObject
{
    Q_OBJECT

private slots:
    void absentItIsAProblem();
    void startedByTheBusItIsAWarning();
    void notStartingItIsAProblem();
    void theStandInIsAWarning();
    void anotherProgramIsAWarning();
    void aProgramOfWhichNothingIsSeenIsAWarning();
    void itsVersionIsWhatItsProgramSays();
    void versionsWithoutCharacteristicsAreAProblem();
    void aVersionThatCannotBeToldIsAWarning_data();
    void aVersionThatCannotBeToldIsAWarning();
    void aProgramThatAnotherUserMayWriteIsNotRun();
    void aProgramThatCannotBeSeenIsNotRun();
    void whoMayNotCallItIsTold();
    void aDaemonThatNeverAnswersIsAProblemInTheEnd();
    void aDaemonThatAnswersLateIsWaitedFor();
    void aDaemonWithoutObjectsIsAProblem();
};

void tst_doctor_daemon::absentItIsAProblem()
{
    const Simulator simulator({"--absent"});
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.names, QStringList({"bus.reached", "daemon.absent"}));
    QCOMPARE(result.line("daemon.absent"),
             "problem bluetoothd is not running, and the bus does not know how to start it. | "
             "Install BlueZ (on Debian: apt install bluez) and start it: systemctl start bluetooth");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_daemon::startedByTheBusItIsAWarning()
{
    const PrivateBus bus({}, "/bin/sh -c 'exec " + Simulator::program() +
                                 " --address \"$DBUS_STARTER_ADDRESS\"'");
    const Doctor::Result result = Doctor::examine({}, bus.address());
    QCOMPARE(result.line("daemon.started"),
             "warning bluetoothd was not running; the bus has just started it. | "
             "Start it with the machine: systemctl enable bluetooth");
    QCOMPARE(result.finding("adapter.on").severity, "ok");
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_daemon::notStartingItIsAProblem()
{
    const PrivateBus bus({}, "/bin/false");
    const Doctor::Result result = Doctor::examine({}, bus.address());
    QCOMPARE(result.names, QStringList({"bus.reached", "daemon.does-not-start"}));
    const QString line = result.line("daemon.does-not-start");
    QVERIFY2(
        line.startsWith("problem bluetoothd is not running, and the bus cannot start it: Process org.bluez "
                        "exited with status 1"),
        qPrintable(line));
    QVERIFY2(line.endsWith(" | Check its status: systemctl status bluetooth"), qPrintable(line));
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_daemon::theStandInIsAWarning()
{
    const PrivateBus bus;
    const Companion simulator(Simulator::program(), {}, bus.address());
    const Doctor::Result result = Doctor::examine({}, bus.address());
    const Doctor::Finding found = result.finding("daemon.stand-in");
    QCOMPARE(found.severity, "warning");
    QCOMPARE(found.values["process"].toInt(), int(simulator.pid()));
    QCOMPARE(found.text, QString("org.bluez is plim-bluez-simulator (process %1 of user %2): the findings "
                                 "below say nothing about this machine's Bluetooth.")
                             .arg(simulator.pid())
                             .arg(found.values["user"].toString()));
    QCOMPARE(found.remedy,
             QString("To check the real daemon, stop the simulator: kill %1").arg(simulator.pid()));
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_daemon::anotherProgramIsAWarning()
{
    QVERIFY(QDBusConnection::systemBus().registerService("org.bluez"));
    const Doctor::Result result = Doctor::examine();
    QVERIFY(QDBusConnection::systemBus().unregisterService("org.bluez"));
    const QString line = result.line("daemon.unknown");
    QVERIFY2(line.startsWith(
                 QString("warning org.bluez is tst_doctor_daemon (process %1 of user ").arg(::getpid())),
             qPrintable(line));
    QVERIFY2(line.endsWith("), which is not bluetoothd. What it accepts is unknown. | If it should not run, "
                           "stop it and start bluetoothd: systemctl restart bluetooth"),
             qPrintable(line));
}

void tst_doctor_daemon::aProgramOfWhichNothingIsSeenIsAWarning()
{
    const FakeDaemon fake("5.99");
    const PrivateBus bus(
        "<deny send_interface='org.freedesktop.DBus' send_member='GetConnectionUnixProcessID'/>");
    const Companion daemon(fake.program(), {}, bus.address());
    const QString line = Doctor::examine({}, bus.address()).line("daemon.unseen");
    QVERIFY2(
        line.startsWith("warning This user may not see which program org.bluez is (process unknown of user "),
        qPrintable(line));
    QVERIFY2(line.endsWith("), nor its version. | Run this as root."), qPrintable(line));
}

void tst_doctor_daemon::itsVersionIsWhatItsProgramSays()
{
    const FakeDaemon fake("5.99");
    const PrivateBus bus;
    const Companion daemon(fake.program(), {}, bus.address());
    const Doctor::Finding found = Doctor::examine({}, bus.address()).finding("daemon.running");
    QCOMPARE(found.severity, "ok");
    QCOMPARE(found.values["version"].toString(), "5.99");
    QCOMPARE(found.text, QString("bluetoothd 5.99 is running (process %1 of user %2).")
                             .arg(daemon.pid())
                             .arg(found.values["user"].toString()));
}

void tst_doctor_daemon::versionsWithoutCharacteristicsAreAProblem()
{
    const auto lineFor = [](const QByteArray& version) {
        const FakeDaemon fake(version);
        const PrivateBus bus;
        const Companion daemon(fake.program(), {}, bus.address());
        return Doctor::examine({}, bus.address()).line("daemon.no-characteristics");
    };
    for (const QByteArray& version : {QByteArray("5.74"), QByteArray("5.75")}) {
        QCOMPARE(lineFor(version),
                 QString("problem bluetoothd %1 rejects every application whose "
                         "characteristics do not have a fixed handle each. | Install another "
                         "version of BlueZ.")
                     .arg(QString::fromLatin1(version)));
    }
    for (const QByteArray& version : {QByteArray("5.73"), QByteArray("5.76")}) {
        QVERIFY(lineFor(version).startsWith("only "));
    }
}

void tst_doctor_daemon::aVersionThatCannotBeToldIsAWarning_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::newRow("it says something else") << QByteArray("hello");
    QTest::newRow("it never answers") << QByteArray();
}

void tst_doctor_daemon::aVersionThatCannotBeToldIsAWarning()
{
    QFETCH(const QByteArray, version);
    const FakeDaemon fake(version);
    const PrivateBus bus;
    const Companion daemon(fake.program(), {}, bus.address());
    const QString line = Doctor::examine({}, bus.address()).line("daemon.version-unknown");
    QVERIFY2(line.startsWith(QString("warning bluetoothd is running (process %1 of user ").arg(daemon.pid())),
             qPrintable(line));
    QVERIFY2(line.endsWith("). Its version is unknown: its program does not support --version. | See the "
                           "version of its package: bluetoothctl --version"),
             qPrintable(line));
}

void tst_doctor_daemon::aProgramThatAnotherUserMayWriteIsNotRun()
{
    const FakeDaemon fake("5.99");
    QFile file(fake.program());
    QVERIFY(file.setPermissions(file.permissions() | QFileDevice::WriteGroup));
    const PrivateBus bus;
    const Companion daemon(fake.program(), {}, bus.address());
    const QString line = Doctor::examine({}, bus.address()).line("daemon.version-unknown");
    QVERIFY2(line.contains("Its version is unknown: users other than root can change its program, so "
                           "the doctor does not run it."),
             qPrintable(line));
}

void tst_doctor_daemon::aProgramThatCannotBeSeenIsNotRun()
{
    const FakeDaemon fake("5.99");
    const PrivateBus bus;
    // What is hidden is hidden from root, too, once it has given away the right to look into processes.
    QStringList asAnyUser;
    if (::geteuid() == 0) {
        asAnyUser = QStringList{"setpriv", "--bounding-set", "-sys_ptrace"};
    }
    const Companion byItsPath(fake.program(), {"--hidden"}, bus.address());
    QCOMPARE(Doctor({"--json"}, bus.address(), asAnyUser).result().finding("daemon.running").severity, "ok");

    const PrivateBus otherBus;
    const Companion byNoPath("./bluetoothd", {"--hidden"}, otherBus.address(), fake.folder());
    const QString line =
        Doctor({"--json"}, otherBus.address(), asAnyUser).result().line("daemon.version-unknown");
    QVERIFY2(line.contains("Its version is unknown: this user may not see its program."), qPrintable(line));
}

void tst_doctor_daemon::whoMayNotCallItIsTold()
{
    const PrivateBus bus("<deny send_destination='org.bluez'/>");
    const Companion simulator(Simulator::program(), {}, bus.address());
    const Doctor::Result result = Doctor::examine({}, bus.address());
    QCOMPARE(result.names, QStringList({"bus.reached", "daemon.stand-in", "daemon.out-of-reach"}));
    const QString user = result.finding("daemon.stand-in").values["user"].toString();
    const QString line = result.line("daemon.out-of-reach");
    QVERIFY2(line.startsWith("problem The bus does not let user " + user + " call bluetoothd: "),
             qPrintable(line));
    QVERIFY2(line.endsWith(" | Allow it in a file in /etc/dbus-1/system.d: <policy user=\"" + user +
                           "\"><allow send_destination=\"org.bluez\"/></policy>"),
             qPrintable(line));
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_daemon::aDaemonThatNeverAnswersIsAProblemInTheEnd()
{
    Simulator simulator;
    simulator.neverAnswer("GetManagedObjects");
    const Doctor::Result result = Doctor::examine({"--timeout", "8"});
    QCOMPARE(result.names, QStringList({"bus.reached", "daemon.stand-in", "daemon.silent"}));
    QCOMPARE(result.line("daemon.silent"), "problem bluetoothd did not answer within 8 s, or it ended. | "
                                           "Restart it: systemctl restart bluetooth");
    QVERIFY2(result.errors.contains("... waiting for the answer to GetManagedObjects\n"),
             qPrintable(result.errors));
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_daemon::aDaemonThatAnswersLateIsWaitedFor()
{
    Simulator simulator;
    simulator.answerLate("GetManagedObjects", 3000);
    const Doctor::Result result = Doctor::examine({"--timeout", "40"});
    QCOMPARE(result.finding("adapter.on").severity, "ok");
    QVERIFY2(result.errors.contains("... waiting for the answer to GetManagedObjects\n"),
             qPrintable(result.errors));
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_daemon::aDaemonWithoutObjectsIsAProblem()
{
    const FakeDaemon fake("5.99");
    const PrivateBus bus;
    const Companion daemon(fake.program(), {}, bus.address());
    const Doctor::Result result = Doctor::examine({}, bus.address());
    QCOMPARE(result.names, QStringList({"bus.reached", "daemon.running", "daemon.strange"}));
    const QString line = result.line("daemon.strange");
    QVERIFY2(line.startsWith("problem bluetoothd does not list its objects: "), qPrintable(line));
    QVERIFY2(line.endsWith(" (org.freedesktop.DBus.Error.UnknownObject) | Check its log: journalctl -u "
                           "bluetooth"),
             qPrintable(line));
    QCOMPARE(result.exitCode, 1);
}

QTEST_GUILESS_MAIN(tst_doctor_daemon)
#include "tst_doctor_daemon.moc"
