#include "Daemon.h"

#include "Bus.h"
#include "DBusBluez.h"
#include "Report.h"
#include "RunningProgram.h"
#include "User.h"

#include <QDBusArgument>

namespace {

const QString simulatorService = QStringLiteral("org.plim.BluezSimulator");

/** The first value of an answer, invalid for an error. */
QVariant valueOf(const QDBusMessage& answer)
{
    return answer.type() == QDBusMessage::ReplyMessage ? answer.arguments().value(0) : QVariant();
}

/** Whether the daemon is there now; where it is not, the bus is asked to start it, as for any first call. */
bool isThere(const Bus& bus, Report& report)
{
    const QDBusMessage owner = bus.askBus("GetNameOwner", {DBusBluezServiceName()});
    if (owner.type() == QDBusMessage::ReplyMessage) {
        return true;
    }
    if (owner.errorName() != "org.freedesktop.DBus.Error.NameHasNoOwner") {
        report.problem(
            "bus.refuses", "The bus does not tell who is on it: " + Bus::errorText(owner),
            QString("Let user %1 call org.freedesktop.DBus, in the bus's configuration.").arg(userName()));
        return false;
    }
    const QStringList startable = valueOf(bus.askBus("ListActivatableNames", {})).toStringList();
    if (!startable.contains(DBusBluezServiceName())) {
        report.problem(
            "daemon.absent",
            "bluetoothd is not running, and nothing on this machine tells the bus how to start it.",
            "Install BlueZ (on Debian: apt install bluez) and start it: systemctl start bluetooth");
        return false;
    }
    const QDBusMessage started = bus.askBus("StartServiceByName", {DBusBluezServiceName(), 0U});
    if (started.type() != QDBusMessage::ReplyMessage) {
        report.problem("daemon.does-not-start",
                       "bluetoothd is not running, and the bus cannot start it: " + Bus::errorText(started),
                       "See why: systemctl status bluetooth");
        return false;
    }
    report.warning("daemon.started",
                   "bluetoothd was not running; the bus has started it just now, as for any call.",
                   "Have it start with the machine: systemctl enable bluetooth");
    return true;
}

/** Says who plays the daemon, and which version. */
void identify(const Bus& bus, Report& report, const QString& user)
{
    const uint pid = valueOf(bus.askBus("GetConnectionUnixProcessID", {DBusBluezServiceName()})).toUInt();
    const QVariant simulator = valueOf(bus.askBus("GetConnectionUnixProcessID", {simulatorService}));
    const QString where = QString("process %1 of user %2").arg(pid ? QString::number(pid) : "unknown", user);
    QVariantMap values{{"process", pid}, {"user", user}};
    if (simulator.isValid() && simulator.toUInt() == pid) {
        report.warning(
            "daemon.stand-in",
            QString("org.bluez is played by plim-bluez-simulator (%1): nothing below tells about this "
                    "machine's own Bluetooth.")
                .arg(where),
            QString("To examine the real daemon, end it: kill %1").arg(pid), values);
        return;
    }
    const RunningProgram program(pid);
    values["program"] = program.name();
    if (program.name().isEmpty()) {
        report.warning(
            "daemon.unseen",
            QString("This user may not see which program org.bluez is (%1), nor its version.").arg(where),
            "Run this as root.", values);
        return;
    }
    if (program.name() != "bluetoothd") {
        report.warning(
            "daemon.unknown",
            QString("org.bluez is %1 (%2), which is not bluetoothd; what it accepts is not known.")
                .arg(program.name(), where),
            "If it is not meant to be there, end it and start bluetoothd: systemctl restart bluetooth",
            values);
        return;
    }
    const RunningProgram::Version version = program.version();
    if (version.text.isEmpty()) {
        report.warning("daemon.version-unknown",
                       QString("bluetoothd is running (%1); which version cannot be told: %2.")
                           .arg(where, version.reason),
                       "Ask its package: bluetoothctl --version", values);
        return;
    }
    values["version"] = version.text;
    report.ok("daemon.running", QString("bluetoothd %1 is running (%2).").arg(version.text, where), values);
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
    identify(bus, report, daemon.user);

    registerDBusTypes();
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
            QString("bluetoothd did not answer within %1 s, or ended over it.").arg(bus.timeoutMs() / 1000),
            "Start it again: systemctl restart bluetooth");
    } else {
        report.problem("daemon.strange", "bluetoothd does not tell what it has: " + Bus::errorText(answer),
                       "See what it says itself: journalctl -u bluetooth");
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
