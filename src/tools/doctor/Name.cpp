#include "Name.h"

#include "Adapters.h"
#include "BluezInterfaces.h"
#include "Bus.h"
#include "Daemon.h"
#include "Report.h"
#include "User.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>

namespace doctor {

namespace {

// The answers of the bus to RequestName.
constexpr uint DoNotQueue = 4;
constexpr uint PrimaryOwner = 1;

const QString probePath = QStringLiteral("/org/plim/doctor/probe");

/** An application without a service; it records whether the daemon asked for its objects. */
class Probe : public QDBusVirtualObject
{
public:
    bool wasCalled() const { return m_wasCalled; }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& connection) override
    {
        if (call.member() != "GetManagedObjects") {
            return false;
        }
        m_wasCalled = true;
        connection.send(call.createReply(QVariant::fromValue(DBusManagedObjectList())));
        return true;
    }

private:
    bool m_wasCalled = false;
};

} // namespace

bool Name::acquire(const Bus& bus, const QString& name, Report& report)
{
    const QDBusMessage answer = bus.askBus("RequestName", {name, DoNotQueue});
    const QVariantMap values{{"name", name}, {"user", userName()}};
    if (answer.errorName() == "org.freedesktop.DBus.Error.InvalidArgs") {
        report.problem(
            "name.invalid", QString("\"%1\" cannot be a bus name: %2").arg(name, Bus::errorText(answer)),
            "Choose one like org.example.Device: at least two parts, none of which begins with a digit.",
            values);
    } else if (answer.type() != QDBusMessage::ReplyMessage) {
        report.problem("name.refused",
                       QString("The bus does not let user %1 own %2: %3. The library works without the name.")
                           .arg(userName(), name, Bus::errorText(answer)),
                       QString("Allow it in a file in /etc/dbus-1/system.d: <policy user=\"%1\"><allow "
                               "own=\"%2\"/></policy>")
                           .arg(userName(), name),
                       values);
    } else if (answer.arguments().value(0).toUInt() != PrimaryOwner) {
        report.warning("name.taken",
                       QString("User %1 may own %2, but another program owns it now.").arg(userName(), name),
                       "If this is the wrong program, stop it. To see which one it is: busctl status " + name,
                       values);
    } else {
        report.ok("name.owned", QString("User %1 may own %2.").arg(userName(), name), values);
        return true;
    }
    return false;
}

void Name::release(const Bus& bus, const QString& name)
{
    bus.askBus("ReleaseName", {name});
}

bool Name::examineCalls(const Bus& bus, const Daemon& daemon, const Adapters& adapters, const QString& name,
                        Report& report)
{
    Probe probe;
    QDBusConnection connection = QDBusConnection::systemBus();
    connection.registerVirtualObject(probePath, &probe);
    const QDBusMessage answer =
        bus.askBluez(adapters.gatt.path, BluezInterfaces::GattManager, "RegisterApplication",
                     {QVariant::fromValue(QDBusObjectPath(probePath)), QVariantMap()});
    connection.unregisterObject(probePath);
    const QString program =
        name.isEmpty() ? QString("a program of user %1").arg(userName()) : "a program that owns " + name;
    const QVariantMap values{{"name", name}, {"daemonUser", daemon.user}};
    if (probe.wasCalled()) {
        report.ok("calls.arrive", QString("bluetoothd's calls reach %1.").arg(program), values);
    } else if (Bus::isDenied(answer)) {
        Daemon::reportOutOfReach(answer, report);
        return false;
    } else if (answer.errorName() == "org.bluez.Error.Failed") {
        // The daemon has tried: this is its answer if it could not read the application.
        report.problem(
            "calls.blocked", QString("bluetoothd's calls do not reach %1: the bus blocks them.").arg(program),
            name.isEmpty()
                ? QString("Restore the bus policy of BlueZ: bluetooth.conf, in /etc/dbus-1/system.d or "
                          "/usr/share/dbus-1/system.d.")
                : QString("Allow them in a file in /etc/dbus-1/system.d: <policy user=\"%1\"><allow "
                          "send_destination=\"%2\"/></policy>")
                      .arg(daemon.user, name),
            values);
        return false;
    } else {
        report.warning(
            "calls.untold",
            QString(
                "Whether bluetoothd's calls reach %1 is unknown: bluetoothd did not try, and answered %2.")
                .arg(program, Bus::errorText(answer)),
            "Check its log: journalctl -u bluetooth", values);
    }
    return true;
}

} // namespace doctor
