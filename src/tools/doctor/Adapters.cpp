#include "Adapters.h"

#include "BluezInterfaces.h"
#include "DBusHelper.h"
#include "Daemon.h"
#include "Report.h"

#include <QDBusArgument>

namespace doctor {

namespace {

QString nameOf(const QString& path)
{
    return path.section('/', -1);
}

/** "none", or the items. */
QString listed(const QStringList& items)
{
    return items.isEmpty() ? QString("none") : items.join(", ");
}

/** Whether the adapter can be a peripheral now. */
bool examineAdapter(const QString& path, const QVariantMap& properties, Report& report)
{
    const QString name = nameOf(path);
    const QString address = properties.value("Address").toString();
    const QString which = QString("%1 (%2)").arg(name, address);
    const bool isPowered = properties.value("Powered").toBool();
    const bool isDiscoverable = properties.value("Discoverable").toBool();
    const QVariant roles = properties.value("Roles"); // older daemons do not have it
    const QVariantMap values{
        {"adapter", path}, {"address", address}, {"powered", isPowered}, {"discoverable", isDiscoverable}};
    if (roles.isValid() && !roles.toStringList().contains("peripheral")) {
        report.problem("adapter.no-peripheral", which + " cannot be a peripheral.",
                       "Use another Bluetooth adapter that supports the peripheral role.", values);
    } else if (isPowered) {
        report.ok("adapter.on",
                  QString("%1 is switched on. It is %2discoverable without an advertisement.")
                      .arg(which, isDiscoverable ? "" : "not "),
                  values);
        return true;
    } else if (properties.value("PowerState") == "off-blocked") {
        report.problem("adapter.blocked",
                       which + " is switched off, and blocked by the kernel's radio switch.",
                       "Remove the block: rfkill unblock bluetooth", values);
    } else {
        report.problem("adapter.off", which + " is switched off.",
                       QString("Switch it on: busctl set-property org.bluez %1 %2 Powered b true")
                           .arg(path, BluezInterfaces::Adapter),
                       values);
    }
    return false;
}

/** Compares the name that a phone shows before and after it has connected. */
void examineAlias(const QString& path, const QVariantMap& properties, const QString& localName,
                  Report& report)
{
    const QString alias = properties.value("Alias").toString();
    const QVariantMap values{{"adapter", path}, {"alias", alias}, {"localName", localName}};
    if (localName.isEmpty() || localName == alias) {
        report.ok("adapter.alias",
                  QString("A phone that has connected to %1 shows \"%2\".").arg(nameOf(path), alias), values);
    } else {
        report.warning(
            "adapter.alias-differs",
            QString("A phone shows \"%1\" at first, and \"%2\" after it has connected to %3.")
                .arg(localName, alias, nameOf(path)),
            QString("Give the adapter the same name: bluetoothctl system-alias \"%1\"").arg(localName),
            values);
    }
}

void examinePairing(const QString& path, const QVariantMap& properties, Report& report)
{
    const QVariantMap values{{"adapter", path}};
    if (properties.value("Pairable").toBool()) {
        report.ok("pairing.on", nameOf(path) + " lets phones pair.", values);
    } else {
        report.warning(
            "pairing.off",
            nameOf(path) + " lets nobody pair: no agent is registered, or it has closed its pairing "
                           "window. Only bonded phones can use protected attributes.",
            "Use a plim::PairingAgent in the program and open its pairing window, or start another "
            "agent.",
            values);
    }
}

void examineInstances(const QString& path, const QVariantMap& properties, Report& report)
{
    const int active = properties.value("ActiveInstances").toInt();
    const int left = properties.value("SupportedInstances").toInt();
    const QVariantMap values{{"manager", path}, {"active", active}, {"left", left}};
    if (left == 0) {
        report.problem(
            "advertising.exhausted",
            QString("%1 accepts no more advertisements: %2 are active.").arg(nameOf(path)).arg(active),
            "Stop another program that advertises. Only bluetoothd knows which programs do: stop them one by "
            "one.",
            values);
    } else {
        report.ok("advertising.instances",
                  QString("%1 accepts %2 more advertisements; %3 are active.")
                      .arg(nameOf(path))
                      .arg(left)
                      .arg(active),
                  values);
    }
}

void examineCapabilities(const QString& path, const QVariantMap& properties, Report& report)
{
    const QStringList includes = properties.value("SupportedIncludes").toStringList();
    const QStringList channels = properties.value("SupportedSecondaryChannels").toStringList();
    const QStringList features = properties.value("SupportedFeatures").toStringList();
    auto limits = qdbus_cast<QVariantMap>(properties.value("SupportedCapabilities"));
    for (QVariant& limit : limits) {
        limit = limit.toInt(); // a byte on the bus, a character in JSON
    }
    QString text = QString("%1 can include %2; secondary channels: %3; features: %4.")
                       .arg(nameOf(path), listed(includes), listed(channels), listed(features));
    if (limits.contains("MaxAdvLen")) {
        text += QString(" It accepts up to %1 bytes of advertising data and %2 bytes of scan response.")
                    .arg(limits.value("MaxAdvLen").toInt())
                    .arg(limits.value("MaxScnRspLen").toInt());
    }
    if (limits.contains("MinTxPower")) {
        text += QString(" Its transmit power can be set from %1 to %2 dBm.")
                    .arg(limits.value("MinTxPower").toInt())
                    .arg(limits.value("MaxTxPower").toInt());
    }
    report.ok("advertising.capabilities", text,
              {{"manager", path},
               {"includes", includes},
               {"secondaryChannels", channels},
               {"features", features},
               {"limits", limits}});
}

/** The manager that the library uses: the first by path. */
Adapters::Manager firstManager(const Daemon& daemon, const QString& interface, const QStringList& usable)
{
    Adapters::Manager manager;
    manager.path = DBusHelper::findFirstObjectPath(daemon.objects, interface);
    const DBusInterfaceList adapter = daemon.objects.value(QDBusObjectPath(manager.path));
    manager.address = adapter.value(BluezInterfaces::Adapter).value("Address").toString();
    manager.isUsable = usable.contains(manager.path);
    return manager;
}

void examineManagers(const Daemon& daemon, const Adapters& adapters, Report& report)
{
    if (adapters.gatt.path.isEmpty()) {
        report.problem("gatt.missing",
                       "No adapter accepts GATT applications: there is no org.bluez.GattManager1.",
                       "Restart the daemon: systemctl restart bluetooth");
    } else {
        report.ok("gatt.present", nameOf(adapters.gatt.path) + " accepts GATT applications.",
                  {{"manager", adapters.gatt.path}});
    }
    const QString advertising = adapters.advertising.path;
    if (advertising.isEmpty()) {
        report.problem("advertising.missing",
                       "No adapter accepts advertisements: there is no org.bluez.LEAdvertisingManager1.",
                       "Use an adapter with Bluetooth Low Energy, and do not set ControllerMode = bredr in "
                       "/etc/bluetooth/main.conf.");
    } else {
        const QVariantMap properties =
            daemon.objects.value(QDBusObjectPath(advertising)).value(BluezInterfaces::AdvertisingManager);
        examineInstances(advertising, properties, report);
        examineCapabilities(advertising, properties, report);
    }
}

} // namespace

Adapters Adapters::examine(const Daemon& daemon, const QString& localName, Report& report)
{
    QStringList all;
    QStringList usable;
    for (auto object = daemon.objects.begin(); object != daemon.objects.end(); ++object) {
        if (object->contains(BluezInterfaces::Adapter)) {
            all += object.key().path();
            if (examineAdapter(all.constLast(), object->value(BluezInterfaces::Adapter), report)) {
                usable += all.constLast();
                examineAlias(all.constLast(), object->value(BluezInterfaces::Adapter), localName, report);
                examinePairing(all.constLast(), object->value(BluezInterfaces::Adapter), report);
            }
        }
    }
    if (all.isEmpty()) {
        report.problem("adapter.none", "bluetoothd has no Bluetooth adapter.",
                       "Connect one, or load its kernel driver. To list the adapters that the kernel knows: "
                       "ls /sys/class/bluetooth");
        return {};
    }
    if (all.size() > 1) {
        report.warning(
            "adapter.several",
            QString("There are %1 adapters. A program that starts now uses the first one, %2. After a "
                    "restart of bluetoothd it uses the one that bluetoothd announces last.")
                .arg(all.size())
                .arg(nameOf(all.constFirst())),
            "Disconnect the adapters that the program should not use.");
    }
    Adapters adapters{firstManager(daemon, BluezInterfaces::GattManager, usable),
                      firstManager(daemon, BluezInterfaces::AdvertisingManager, usable)};
    examineManagers(daemon, adapters, report);
    return adapters;
}

} // namespace doctor
