// Who is connected, and through which adapter.

#include "Expect.h"
#include "ProductStage.h"
#include "Remote.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QDBusObjectPath>
#include <QVersionNumber>

namespace {

const QString value = SceneTree::uuid(0xa001);

QStringList application()
{
    return {"plim-service service " + SceneTree::uuid(0xa000) + " primary",
            "plim-characteristic value service " + value + " read", "reads value accept 01"};
}

bool exists(const QString& path)
{
    return Remote::objects().contains(QDBusObjectPath(path));
}

} // namespace

void Scenes::centrals()
{
    ProductStage stage(application() + QStringList{"centrals all"});
    Peripheral& peripheral = stage.peripheral;
    AttClient& phone = stage.central;
    const QString path = stage.centralPath();
    const auto told = [&](const char* what) { return peripheral.told(what + (' ' + path)).size(); };

    Expect::that(!exists(path), "the daemon does not know the phone");
    phone.connectDevice();
    Expect::eventually([&] { return told("connected") == 1; }, "a phone never seen before connects");
    Expect::equal(phone.read(phone.handle(value)).value, QByteArray(1, 1), "it reads");
    Expect::eventually([&] { return peripheral.told("changed " + path) == QStringList{"517"}; },
                       "which shows its MTU");
    Remote::setProperty(path, Remote::deviceInterface, "Trusted", true); // so that the daemon keeps it
    phone.disconnectDevice();
    Expect::eventually([&] { return told("disconnected") == 1; }, "it goes");

    Expect::that(exists(path), "the daemon still knows it");
    phone.connectDevice();
    Expect::eventually([&] { return told("connected") == 2; }, "it connects again, as a known device");
    stage.bluetooth.killDaemon();
    Expect::eventually([&] { return told("disconnected") == 2; }, "the daemon's end disconnects it");
    phone.disconnectDevice();
    Expect::waitFor([] { return false; }, 5); // the kernel keeps an unused link for a while
    stage.bluetooth.startDaemon();
    stage.bluetooth.awaitAdapters();
    peripheral.awaitRegistration({"registerApp", "registerAdv"}, 2);
    phone.connectDevice();
    Expect::eventually([&] { return told("connected") == 3; }, "with the next daemon it connects again");

    Peripheral late("late");
    late.tell("centrals " + stage.bluetooth.deviceAddress());
    Expect::eventually([&] { return late.told("connected " + path).size() == 1; },
                       "a program that starts later finds it");
    peripheral.tell("disconnect " + path);
    Expect::eventually([&] { return told("disconnected") == 3; }, "the device ends the link");
    Expect::eventually([&] { return peripheral.told("ended disconnect").size() == 1; },
                       "and is told that it has");
    Expect::equal(peripheral.told("ended disconnect"), QStringList{""}, "without an error");
    Expect::eventually([&] { return late.told("disconnected " + path).size() == 1; },
                       "the other program hears of it, too");
    const bool givesReasons = QVersionNumber::fromString(version()) >= QVersionNumber(5, 83);
    Expect::equal(peripheral.told("disconnected " + path),
                  givesReasons ? QStringList{"Remote", "Unknown", "Local"}
                               : QStringList{"Unknown", "Unknown", "Unknown"},
                  givesReasons ? "with the reasons" : "this daemon gives no reasons");
}

void Scenes::adapters()
{
    ProductStage stage(application());
    Peripheral& peripheral = stage.peripheral;
    Bluetooth& bluetooth = stage.bluetooth;
    const QString first = bluetooth.device();
    const QString second = bluetooth.secondPhone();
    const QString last = "/org/bluez/hci3";
    const QString address = bluetooth.secondPhoneAddress();
    const auto powered = [](const QString& path) {
        return Remote::properties(path, Remote::adapterInterface).value("Powered").toBool();
    };
    const auto instances = [](const QString& path) {
        return Remote::properties(path, "org.bluez.LEAdvertisingManager1").value("ActiveInstances").toInt();
    };
    Expect::equal(instances(first), 1, "without a choice the first adapter advertises");
    peripheral.tell({"adapter " + address, "choose " + address.toLower()});
    Expect::eventually([&] { return instances(first) == 0 && instances(second) == 1; },
                       "the chosen one takes over");
    Expect::eventually([&] { return peripheral.told("adapter") == QStringList{second}; },
                       "the library's adapter is there");
    peripheral.tell("switch off");
    Expect::eventually([&] { return peripheral.told("powered").value(1) == "0"; }, "it is switched off");
    peripheral.tell("switch on");
    Expect::eventually([&] { return peripheral.told("powered").value(2) == "1"; }, "and on");
    // The daemon tells of the change before it answers.
    Expect::eventually(
        [&] {
            return peripheral.told("ended switch") == QStringList({"", ""});
        },
        "without an error", [&] { return Expect::text(peripheral.told("ended switch")); });

    bluetooth.unplug();
    Expect::eventually([&] { return peripheral.told("adapter").value(1) == "-"; }, "it is unplugged");
    // The address of a virtual controller contains its number, so that this is another one.
    bluetooth.plugInAfterAnother();
    Expect::eventually([&] { return powered("/org/bluez/hci1") && powered(second) && powered(last); },
                       "others come, one of them under its number");
    peripheral.settle();
    Expect::equal(instances("/org/bluez/hci1") + instances(second) + instances(last), 0,
                  "nothing is registered with any of them");
    Expect::equal(peripheral.told("adapter").size(), 2, "the library's adapter is not there");
    peripheral.tell("choose hci3");
    Expect::eventually([&] { return instances(last) == 1; }, "chosen by its name, one of them advertises");

    bluetooth.unplug();
    Expect::eventually([&] { return !exists(last); }, "all are unplugged");
    peripheral.tell("choose " + address);
    bluetooth.plugIn();
    Expect::eventually([&] { return peripheral.told("adapter").value(2) == second; }, "it comes back");
    Expect::eventually([&] { return instances(second) == 1; }, "and advertises");
    bluetooth.awaitAdapters();
    AttClient phone(bluetooth.phoneAddress(), address);
    phone.connectDevice();
    Expect::equal(phone.read(phone.handle(value)).value, QByteArray(1, 1),
                  "a phone connects to it and reads");
    phone.disconnectDevice();
    bluetooth.killDaemon();
    Expect::waitFor([] { return false; }, 5); // the kernel keeps an unused link for a while
    bluetooth.startDaemon();
    bluetooth.awaitAdapters();
    Expect::eventually([&] { return peripheral.told("adapter").value(4) == second; },
                       "the daemon is restarted");
    Expect::eventually([&] { return instances(second) == 1; }, "it advertises there again");
    Expect::equal(instances(first), 0, "and not with the first adapter");
}
