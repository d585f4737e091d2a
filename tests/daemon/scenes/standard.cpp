// Services that the Bluetooth SIG has defined.

#include "Expect.h"
#include "Phone.h"
#include "ProductStage.h"
#include "Remote.h"
#include "SceneTree.h"
#include "scenes.h"

#include <plim/peripheral.h>

namespace {

/** How many services of a type the central sees. */
int servicesOf(AttClient& central, const QByteArray& type)
{
    int found = 0;
    for (const quint16 service : central.handles(plim::uuid(0x2800))) {
        found += central.read(service).value == type ? 1 : 0;
    }
    return found;
}

void expectDeviceInformation(AttClient& central)
{
    Expect::equal(central.read(central.handle(plim::uuid(0x2a29))).value, QByteArray("Example"),
                  "the manufacturer's name");
    Expect::equal(central.read(central.handle(plim::uuid(0x2a26))).value, QByteArray("1.2.3"),
                  "the firmware's revision");
    Expect::equal(central.read(central.handle(plim::uuid(0x2a23))).value,
                  QByteArray::fromHex("0102030405aabbcc"), "the system ID");
    Expect::equal(servicesOf(central, QByteArray::fromHex("0a18")), 2,
                  "the daemon has a Device Information Service, too");
    QStringList pnpIds;
    for (const quint16 handle : central.handles(plim::uuid(0x2a50))) {
        pnpIds << QString::fromLatin1(central.read(handle).value.toHex());
    }
    Expect::equal(pnpIds.size(), 2, "with a PnP ID of its own");
    Expect::that(pnpIds.contains("02341256781302"), "the program's PnP ID", pnpIds.join(' '));
}

void expectBattery(AttClient& central, Peripheral& peripheral)
{
    const quint16 level = central.handle(plim::uuid(0x2a19));
    Expect::equal(central.read(level).value, QByteArray::fromHex("57"), "the battery's level");
    Expect::equal(central.read(central.next(level, plim::uuid(0x2904))).value,
                  QByteArray::fromHex("0400ad27010000"), "its format: an unsigned byte, in percent");
    Expect::equal(central.read(central.next(level, plim::uuid(0x2901))).value, QByteArray("main battery"),
                  "its description");
    central.subscribe(level, 1);
    Expect::require([&] { return !peripheral.notifying("battery").isEmpty(); }, "the subscription");
    peripheral.tell("battery-level battery 42");
    Expect::require([&] { return !central.notifications().isEmpty(); }, "the new level");
    Expect::equal(central.notifications().constLast().value, QByteArray::fromHex("2a"),
                  "a new level is notified");
}

void expectTime(AttClient& central, Peripheral& peripheral)
{
    const quint16 time = central.handle(plim::uuid(0x2a2b));
    Expect::equal(central.read(time).value, QByteArray::fromHex("ea070b15150f1e068000"), "the current time");
    Expect::equal(central.read(central.handle(plim::uuid(0x2a0f))).value, QByteArray::fromHex("0400"),
                  "the time zone, an hour east of Greenwich in winter");
    central.subscribe(time, 1);
    Expect::require([&] { return !peripheral.notifying("time").isEmpty(); }, "the subscription to the time");
    const auto before = central.notifications().size();
    peripheral.tell("time-changed time");
    Expect::require([&] { return central.notifications().size() > before; }, "the new time");
    Expect::equal(central.notifications().constLast().value, QByteArray::fromHex("ea070b15150f1e068004"),
                  "a change of the time zone is notified with its reason");
}

} // namespace

void Scenes::standard()
{
    ProductStage stage({"standard-services"});
    AttClient& central = stage.central;
    central.connectDevice();
    expectDeviceInformation(central);
    expectBattery(central, stage.peripheral);
    expectTime(central, stage.peripheral);
    stage.expectWitness();
}

void Scenes::battery()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    peripheral.tell("application /com/example/scene com.example.Scene");
    peripheral.tell("standard-services");
    peripheral.tell(SceneTree::advertisement());
    peripheral.tell({"add application", "add adv"});
    peripheral.awaitRegistration();
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();
    const QString device = devicePath(bluetooth.phone(), bluetooth.deviceAddress());
    const auto percentage = [&device] {
        return Remote::properties(device, "org.bluez.Battery1").value("Percentage").toInt();
    };
    Expect::waitFor([&] { return percentage() == 87; });
    Expect::equal(percentage(), 87, "BlueZ as the central shows the battery's level");
}
