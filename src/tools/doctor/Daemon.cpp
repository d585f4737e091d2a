#include "Daemon.h"

#include "Bus.h"
#include "DBusBluez.h"
#include "Report.h"
#include "RunningProgram.h"
#include "User.h"

#include <QDBusArgument>

namespace doctor {

namespace {

const QString simulatorService = QStringLiteral("org.plim.BluezSimulator");

/** The first value of an answer, invalid for an error. */
QVariant valueOf(const QDBusMessage& answer)
{
    return answer.type() == QDBusMessage::ReplyMessage ? answer.arguments().value(0) : QVariant();
}

/** Whether the daemon runs now. If it does not, asks the bus to start it. */
bool isThere(const Bus& bus, Report& report)
{
    const QDBusMessage owner = bus.askBus("GetNameOwner", {DBusBluezServiceName()});
    if (owner.type() == QDBusMessage::ReplyMessage) {
        return true;
    }
    if (owner.errorName() != "org.freedesktop.DBus.Error.NameHasNoOwner") {
        report.problem("bus.refuses", "The bus does not say who owns org.bluez: " + Bus::errorText(owner),
                       QString("Allow user %1 to call org.freedesktop.DBus in the configuration of the bus.")
                           .arg(userName()));
        return false;
    }
    const QStringList startable = valueOf(bus.askBus("ListActivatableNames", {})).toStringList();
    if (!startable.contains(DBusBluezServiceName())) {
        report.problem(
            "daemon.absent", "bluetoothd is not running, and the bus does not know how to start it.",
            "Install BlueZ (on Debian: apt install bluez) and start it: systemctl start bluetooth");
        return false;
    }
    const QDBusMessage started = bus.askBus("StartServiceByName", {DBusBluezServiceName(), 0U});
    if (started.type() != QDBusMessage::ReplyMessage) {
        report.problem("daemon.does-not-start",
                       "bluetoothd is not running, and the bus cannot start it: " + Bus::errorText(started),
                       "Check its status: systemctl status bluetooth");
        return false;
    }
    report.warning("daemon.started", "bluetoothd was not running; the bus has just started it.",
                   "Start it with the machine: systemctl enable bluetooth");
    return true;
}

/** Reports what a version of the daemon cannot do at all. */
void examineVersion(const QString& version, Report& report)
{
    if (version == "5.74" || version == "5.75") {
        report.problem("daemon.no-characteristics",
                       QString("bluetoothd %1 rejects every application whose characteristics do not have a "
                               "fixed handle each.")
                           .arg(version),
                       "Install another version of BlueZ.", {{"version", version}});
    }
}

/** Reports which program is the daemon, and its version. Returns whether it is bluetoothd. */
bool identify(const Bus& bus, Report& report, const QString& user)
{
    const uint pid = valueOf(bus.askBus("GetConnectionUnixProcessID", {DBusBluezServiceName()})).toUInt();
    const QVariant simulator = valueOf(bus.askBus("GetConnectionUnixProcessID", {simulatorService}));
    const QString where = QString("process %1 of user %2").arg(pid ? QString::number(pid) : "unknown", user);
    QVariantMap values{{"process", pid}, {"user", user}};
    if (simulator.isValid() && simulator.toUInt() == pid) {
        report.warning("daemon.stand-in",
                       QString("org.bluez is plim-bluez-simulator (%1): the findings below say nothing about "
                               "this machine's Bluetooth.")
                           .arg(where),
                       QString("To check the real daemon, stop the simulator: kill %1").arg(pid), values);
        return false;
    }
    const RunningProgram program(pid);
    values["program"] = program.name();
    if (program.name().isEmpty()) {
        report.warning(
            "daemon.unseen",
            QString("This user may not see which program org.bluez is (%1), nor its version.").arg(where),
            "Run this as root.", values);
        return false;
    }
    if (program.name() != "bluetoothd") {
        report.warning("daemon.unknown",
                       QString("org.bluez is %1 (%2), which is not bluetoothd. What it accepts is unknown.")
                           .arg(program.name(), where),
                       "If it should not run, stop it and start bluetoothd: systemctl restart bluetooth",
                       values);
        return false;
    }
    const RunningProgram::Version version = program.version();
    if (version.text.isEmpty()) {
        report.warning(
            "daemon.version-unknown",
            QString("bluetoothd is running (%1). Its version is unknown: %2.").arg(where, version.reason),
            "See the version of its package: bluetoothctl --version", values);
        return true;
    }
    values["version"] = version.text;
    report.ok("daemon.running", QString("bluetoothd %1 is running (%2).").arg(version.text, where), values);
    examineVersion(version.text, report);
    return true;
}

} // namespace

Daemon Daemon::find(const Bus& bus, Report& report)
{
    Daemon daemon;
    if (!isThere(bus, report)) {
        return daemon;
    }
    const QVariant userId = valueOf(bus.askBus("GetConnectionUnixUser", {DBusBluezServiceName()}));
    daemon.user = userId.isValid() ? userName(userId.toUInt()) : QString("unknown");
    daemon.isBluetoothd = identify(bus, report, daemon.user);

    const QDBusMessage answer =
        bus.askBluez(DBusBluezObjectManagerPath(), "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
    if (answer.type() == QDBusMessage::ReplyMessage) {
        daemon.isUsable = true;
        daemon.objects = qdbus_cast<DBusManagedObjectList>(valueOf(answer));
    } else if (Bus::isDenied(answer)) {
        reportOutOfReach(answer, report);
    } else if (answer.errorName() == "org.freedesktop.DBus.Error.NoReply") {
        report.problem(
            "daemon.silent",
            QString("bluetoothd did not answer within %1 s, or it ended.").arg(bus.timeoutMs() / 1000),
            "Restart it: systemctl restart bluetooth");
    } else {
        report.problem("daemon.strange", "bluetoothd does not list its objects: " + Bus::errorText(answer),
                       "Check its log: journalctl -u bluetooth");
    }
    return daemon;
}

void Daemon::reportOutOfReach(const QDBusMessage& answer, Report& report)
{
    report.problem(
        "daemon.out-of-reach",
        QString("The bus does not let user %1 call bluetoothd: %2").arg(userName(), Bus::errorText(answer)),
        QString("Allow it in a file in /etc/dbus-1/system.d: <policy user=\"%1\"><allow "
                "send_destination=\"org.bluez\"/></policy>")
            .arg(userName()));
}

} // namespace doctor
