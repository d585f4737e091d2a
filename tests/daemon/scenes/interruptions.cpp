// The daemon, the adapter and the controller go and come back.

#include "Bluetooth.h"
#include "Expect.h"
#include "Peripheral.h"
#include "Phone.h"
#include "Remote.h"
#include "SceneTree.h"
#include "scenes.h"

namespace {

const QString refusal =
    QStringLiteral("D-Bus call from 'registerAdv' failed: Failed to parse advertisement.");

int advertisements(const QString& adapter)
{
    return Remote::properties(adapter, "org.bluez.LEAdvertisingManager1").value("ActiveInstances").toInt();
}

void addSecondAdvertisement(Peripheral& peripheral)
{
    peripheral.tell({QStringLiteral("advertisement second /com/example/scene/second set"),
                     QStringLiteral("set second manufacturer ffff 0506"), QStringLiteral("add second")});
    peripheral.awaitRegistration({"registerAdv"}, 2);
}

} // namespace

void Scenes::crash()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    SceneTree::build(peripheral);
    addSecondAdvertisement(peripheral);
    const QString address = bluetooth.deviceAddress();
    Expect::equal(advertisements(bluetooth.device()), 2, "two advertisements before");

    for (int round = 1; round <= 10; ++round) {
        const QString time = "restart " + QString::number(round) + ": ";
        bluetooth.killDaemon();
        bluetooth.startDaemon();
        bluetooth.awaitAdapters();
        Expect::eventually([&] { return advertisements(bluetooth.device()) == 2; },
                           time + "both advertisements are registered again");
        if (Expect::failures() > 0) {
            return; // it will not get better
        }
        Phone phone(bluetooth.phone(), address);
        phone.forget();
        phone.meet();
        Expect::equal(phone.read(SceneTree::asked), QByteArray("answer"),
                      time + "the phone discovers, connects and reads");
    }
    Expect::equal(peripheral.count("ERROR"), 0, "the program logs no error");
}

void Scenes::power()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    SceneTree::build(peripheral);
    const auto powerCycle = [&] {
        Remote::setProperty(bluetooth.device(), Remote::adapterInterface, "Powered", false);
        Remote::setProperty(bluetooth.device(), Remote::adapterInterface, "Powered", true);
        bluetooth.awaitAdapters();
    };
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    powerCycle();
    const bool advertised = phone.discover({}, 5);
    Expect::note(advertised ? "powered off and on, it is advertised again"
                            : "powered off and on, it is not advertised again");
    Expect::equal(advertisements(bluetooth.device()), 1, "the daemon still counts the advertisement");
    if (!advertised) {
        peripheral.tell("set adv name " + SceneTree::name);
        Expect::that(phone.discover(), "after any setter it is");
    }
    phone.connectDevice();
    Expect::equal(phone.read(SceneTree::asked), QByteArray("answer"), "the phone connects and reads");

    Remote::setProperty(bluetooth.device(), Remote::adapterInterface, "Powered", false);
    Expect::eventually([&] { return !phone.connected(); }, "power-off ends the connection");
    Remote::setProperty(bluetooth.device(), Remote::adapterInterface, "Powered", true);
    bluetooth.awaitAdapters();
    phone.forget();
    peripheral.tell("set adv name " + SceneTree::name);
    phone.meet();
    Expect::equal(phone.read(SceneTree::asked), QByteArray("answer"), "after power-on it is read again");
    Expect::equal(peripheral.succeeded("registerApp"), 1, "the application was registered once for all this");
}

void Scenes::unplug()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    SceneTree::build(peripheral);
    const QString address = bluetooth.deviceAddress();
    const int before = peripheral.succeeded("registerApp");
    bluetooth.unplug();
    Expect::eventually([&] { return !Remote::objects().contains(QDBusObjectPath(bluetooth.device())); },
                       "the adapter is gone");
    bluetooth.plugIn();
    bluetooth.awaitAdapters();
    Expect::eventually([&] { return peripheral.succeeded("registerApp") > before; },
                       "the application is registered with the new adapter");
    Expect::eventually([&] { return advertisements(bluetooth.device()) == 1; }, "so is the advertisement");
    Phone phone(bluetooth.phone(), address);
    phone.meet();
    Expect::equal(phone.read(SceneTree::asked), QByteArray("answer"),
                  "the phone discovers, connects and reads");
}

void Scenes::refuse()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    peripheral.tell(SceneTree::application());
    peripheral.tell("add application");
    peripheral.awaitRegistration({"registerApp"});
    peripheral.tell({
        QStringLiteral("advertisement adv /com/example/scene/advertisement all"),
        "set adv name " + SceneTree::name,
        QStringLiteral("add adv"),
    });
    Expect::eventually([&] { return peripheral.wrote(refusal); }, "the rejection is logged");
    if (version() == "5.66") {
        Expect::eventually([&] { return !bluetooth.daemonRuns(); },
                           "this daemon then aborts, a fault of its own");
    }
    Expect::that(peripheral.running(), "the program continues to run");

    peripheral.tell("delete adv");
    peripheral.tell(SceneTree::advertisement());
    peripheral.tell("add adv");
    if (!bluetooth.daemonRuns()) {
        bluetooth.startDaemon();
        bluetooth.awaitAdapters();
        peripheral.awaitRegistration({"registerApp"}, 2);
    }
    peripheral.awaitRegistration();
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();
    Expect::equal(phone.read(SceneTree::asked), QByteArray("answer"),
                  "with an advertisement that shows what was set the phone connects and reads");
    Expect::that(version() == "5.66" || bluetooth.daemonRuns(), "the daemon is the same");
}
