#include "Doctor.h"
#include "PrivateBus.h"
#include "SimulatorScenario.h"

#include <QtTest>

namespace {

const QString name = QStringLiteral("org.example.Doctored");
const QStringList ownIt{"--name", name};

} // namespace

/** What the doctor says about a bus name, and about the daemon's calls to who owns it. */
class tst_doctor_name : public QObject
{
    Q_OBJECT

private slots:
    void aNameThatCanBeOwnedIsGivenBack();
    void aNameThatIsRefusedIsAProblem();
    void aNameThatIsTakenIsAWarning();
    void aNameThatIsNoneIsAProblem();
    void withoutTheDaemonTheNameIsTriedAllTheSame();
    void theDaemonsCallsArrive();
    void callsThatTheBusKeepsBackFromTheNameAreAProblem();
    void callsThatTheBusKeepsBackFromEverybodyAreAProblem();
    void aDaemonThatMayNotBeAskedIsAProblem();
    void aDaemonThatDoesNotTryLeavesItOpen();
    void nothingIsTriedWithoutBeingAsked();
};

void tst_doctor_name::aNameThatCanBeOwnedIsGivenBack()
{
    const Simulator simulator;
    const Doctor::Result result = Doctor::examine(ownIt);
    const QString user = result.finding("name.owned").values["user"].toString();
    QCOMPARE(result.line("name.owned"), "ok User " + user + " may own org.example.Doctored.");
    QVERIFY(QDBusConnection::systemBus().registerService(name));
    QVERIFY(QDBusConnection::systemBus().unregisterService(name));
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_name::aNameThatIsRefusedIsAProblem()
{
    const PrivateBus bus("<deny own='org.example.Doctored'/>");
    const Companion simulator(Simulator::program(), {}, bus.address());
    const Doctor::Result result = Doctor::examine(ownIt, bus.address());
    const QString user = result.finding("name.refused").values["user"].toString();
    const QString line = result.line("name.refused");
    QVERIFY2(line.startsWith("problem The bus does not let user " + user + " own org.example.Doctored: "),
             qPrintable(line));
    QVERIFY2(line.endsWith("(org.freedesktop.DBus.Error.AccessDenied). The library works without the name. | "
                           "Allow it in a file in /etc/dbus-1/system.d: <policy user=\"" +
                           user + "\"><allow own=\"org.example.Doctored\"/></policy>"),
             qPrintable(line));
    QCOMPARE(result.line("calls.arrive"), "ok bluetoothd's calls reach a program of user " + user + ".");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_name::aNameThatIsTakenIsAWarning()
{
    const Simulator simulator;
    QVERIFY(QDBusConnection::systemBus().registerService(name));
    const Doctor::Result result = Doctor::examine(ownIt);
    QVERIFY(QDBusConnection::systemBus().unregisterService(name));
    const QString user = result.finding("name.taken").values["user"].toString();
    QCOMPARE(result.line("name.taken"),
             "warning User " + user +
                 " may own org.example.Doctored, but another program owns it now. | If this is the wrong "
                 "program, stop it. To see which one it is: busctl status org.example.Doctored");
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_name::aNameThatIsNoneIsAProblem()
{
    const Simulator simulator;
    const Doctor::Result result = Doctor::examine({"--name", "device"});
    const QString line = result.line("name.invalid");
    QVERIFY2(line.startsWith("problem \"device\" cannot be a bus name: "), qPrintable(line));
    QVERIFY2(line.endsWith(
                 " | Choose one like org.example.Device: at least two parts, none of which begins with a "
                 "digit."),
             qPrintable(line));
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_name::withoutTheDaemonTheNameIsTriedAllTheSame()
{
    const Simulator simulator({"--absent"});
    QCOMPARE(Doctor::examine(ownIt).names, QStringList({"bus.reached", "daemon.absent", "name.owned"}));
}

void tst_doctor_name::theDaemonsCallsArrive()
{
    const Simulator simulator;
    QCOMPARE(Doctor::examine(ownIt).line("calls.arrive"),
             "ok bluetoothd's calls reach a program that owns org.example.Doctored.");
    QCOMPARE(simulator.applications(), QStringList());
}

void tst_doctor_name::callsThatTheBusKeepsBackFromTheNameAreAProblem()
{
    const PrivateBus bus("<deny send_destination='org.example.Doctored'/>");
    const Companion simulator(Simulator::program(), {}, bus.address());
    const Doctor::Result result = Doctor::examine(ownIt, bus.address());
    const QString user = result.finding("daemon.stand-in").values["user"].toString();
    QCOMPARE(result.line("calls.blocked"),
             "problem bluetoothd's calls do not reach a program that owns org.example.Doctored: the bus "
             "blocks them. | Allow them in a file in /etc/dbus-1/system.d: <policy user=\"" +
                 user + "\"><allow send_destination=\"org.example.Doctored\"/></policy>");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_name::callsThatTheBusKeepsBackFromEverybodyAreAProblem()
{
    // As on a bus without the policy of BlueZ's own.
    const PrivateBus bus(
        "<deny own='org.example.Doctored'/><deny send_interface='org.freedesktop.DBus.ObjectManager'/>"
        "<allow send_destination='org.bluez'/>");
    const Companion simulator(Simulator::program(), {}, bus.address());
    const Doctor::Result result = Doctor::examine(ownIt, bus.address());
    const QString user = result.finding("name.refused").values["user"].toString();
    QCOMPARE(result.line("calls.blocked"),
             "problem bluetoothd's calls do not reach a program of user " + user +
                 ": the bus blocks them. | Restore the bus policy of BlueZ: bluetooth.conf, in "
                 "/etc/dbus-1/system.d or /usr/share/dbus-1/system.d.");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_name::aDaemonThatMayNotBeAskedIsAProblem()
{
    const PrivateBus bus("<deny send_interface='org.bluez.GattManager1'/>");
    const Companion simulator(Simulator::program(), {}, bus.address());
    const Doctor::Result result = Doctor::examine({"--serve"}, bus.address());
    QCOMPARE(result.finding("daemon.out-of-reach").severity, "problem");
    QCOMPARE(result.finding("trial.skipped").severity, "warning");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_name::aDaemonThatDoesNotTryLeavesItOpen()
{
    Simulator simulator;
    simulator.answerWithError("RegisterApplication", "org.bluez.Error.NotReady", "Not yet");
    const Doctor::Result result = Doctor::examine(ownIt);
    QCOMPARE(result.line("calls.untold"),
             "warning Whether bluetoothd's calls reach a program that owns org.example.Doctored is unknown: "
             "bluetoothd did not try, and answered Not yet (org.bluez.Error.NotReady). | Check its log: "
             "journalctl "
             "-u bluetooth");
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_name::nothingIsTriedWithoutBeingAsked()
{
    const Simulator simulator;
    QCOMPARE(Doctor::examine().exitCode, 0);
    QCOMPARE(simulator.calls(), QStringList());
}

QTEST_GUILESS_MAIN(tst_doctor_name)
#include "tst_doctor_name.moc"
