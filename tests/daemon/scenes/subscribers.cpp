// Indications, and who has subscribed.

#include "Expect.h"
#include "ProductStage.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QRegularExpression>

namespace {

const QString alarm = SceneTree::uuid(0x8001);
const QString quiet = SceneTree::uuid(0x8002);

} // namespace

void Scenes::subscribers()
{
    ProductStage stage({
        "plim-service service " + SceneTree::uuid(0x8000) + " primary",
        "plim-characteristic alarm service " + alarm + " read,indicate",
        "track alarm",
        "reads alarm accept 01",
        "plim-characteristic quiet service " + quiet + " read",
    });
    Peripheral& peripheral = stage.peripheral;
    AttClient& first = stage.central;
    first.connectDevice();
    const auto confirmations = [&] { return peripheral.told("confirmed alarm").size(); };

    Expect::equal(first.subscribe(first.handle(alarm), 2).error, 0, "the central subscribes");
    Expect::eventually([&] { return peripheral.told("notifying alarm") == QStringList{"1"}; },
                       "which reaches notifyStateChanged");
    Expect::equal(peripheral.told("subscribed alarm"), QStringList{stage.centralPath()},
                  "and subscribed(), with its name");
    static const QRegularExpression declined(
        "mc\t[^\t]*\t(\\d+)\t[^\n]*\tAcquireNotify\n(?:[^\n]*\n)*?err\t[^\n]*\t\\1\n"
        "(?:[^\n]*\n)*?mc\t[^\n]*\tStartNotify\n");
    Expect::eventually([&] { return stage.bluetooth.traffic().contains(declined); },
                       "the daemon's offer of a socket was declined, and StartNotify followed");
    peripheral.tell("value alarm 01");
    Expect::eventually([&] { return first.notifications().size() == 1; }, "a value is indicated");
    Expect::that(first.notifications().value(0).isIndication, "and not notified");
    Expect::eventually([&] { return confirmations() == 1; }, "the confirmation reaches confirmed()");

    first.setConfirming(false);
    peripheral.tell("value alarm 02");
    Expect::eventually([&] { return first.notifications().size() == 2; }, "another value is indicated");
    const auto calls = stage.bluetooth.traffic().count("Confirm");
    first.disconnectDevice();
    Expect::eventually([&] { return stage.bluetooth.traffic().count("Confirm") > calls; },
                       "the link is lost, and the daemon calls Confirm without a confirmation");
    Expect::eventually([&] { return peripheral.told("unsubscribed alarm").size() == 1; },
                       "the central is unsubscribed");
    peripheral.settle();
    Expect::equal(confirmations(), 1, "confirmed() is not told");

    AttClient second(stage.bluetooth.secondPhoneAddress(), stage.bluetooth.deviceAddress());
    const QString secondPath = devicePath(stage.bluetooth.device(), stage.bluetooth.secondPhoneAddress());
    second.connectDevice();
    Expect::equal(second.read(second.handle(alarm)).value, QByteArray(1, 1), "another central reads");
    Expect::equal(second.subscribe(second.handle(alarm), 2).error, 0, "and subscribes");
    Expect::eventually(
        [&] {
            return peripheral.told("subscribed alarm") == QStringList{stage.centralPath(), secondPath};
        },
        "subscribed() tells it apart");
    Expect::equal(peripheral.told("request alarm"), QStringList{"read " + secondPath + " 0"},
                  "so does the read request");
    peripheral.tell("subscribers alarm");
    Expect::equal(peripheral.told("subscribers alarm"), QStringList{secondPath},
                  "subscribers() lists the second only");
    peripheral.tell("value alarm 03");
    Expect::eventually([&] { return confirmations() == 2; }, "its confirmation reaches confirmed()");
    second.disconnectDevice();
    Expect::eventually([&] { return peripheral.told("unsubscribed alarm").size() == 2; },
                       "it leaves and is unsubscribed");
}
