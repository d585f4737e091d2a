// Pairing as plim::PairingAgent lets it happen, refuses it, or sees it end.

#include "Expect.h"
#include "PairingStage.h"
#include "Remote.h"
#include "scenes.h"

#include <QDBusObjectPath>

namespace {

/** Rejected by the device, given up by the phone, never answered. */
void failInEachWay(PairingStage& stage, const QString& question)
{
    stage.ask(question);
    stage.peripheral.tell("decide reject");
    stage.expectFailure("rejected");
    stage.ask(question);
    stage.user->cancel();
    stage.expectEnded("cancelled by the phone");
    stage.expectFailure("cancelled by the phone");
    stage.ask(question);
    stage.expectEnded("never answered");
    stage.expectFailure("never answered");
}

/** Nobody is asked where no window is open. */
void refuseWithoutWindow(PairingStage& stage)
{
    Expect::eventually([&] { return !stage.isPairable(); }, "without a window the adapter is not pairable");
    Expect::equal(stage.readError(), 0x0f, "not paired the phone gets 0x0f");
    // The agent has set it for all adapters, and the phone's belongs to the same daemon.
    Remote::setProperty(stage.bluetooth.phone(), Remote::adapterInterface, "Pairable", true);
    stage.user->pair();
    stage.expectFailure("without a window, a phone that wants a bond");
    Expect::that(stage.peripheral.told("pairing-refused").isEmpty(), "the agent is not even asked");
    Remote::setProperty(stage.bluetooth.phone(), Remote::adapterInterface, "Pairable", false);
    stage.user->pair();
    stage.expectFailure("without a window, a phone that wants none");
    Expect::equal(stage.peripheral.told("pairing-refused"), QStringList{stage.centralPath()},
                  "the agent is asked and refuses");
    Expect::that(stage.peripheral.told("pairing authorize").isEmpty(), "the program is not asked");
}

void pairJustWorks(PairingStage& stage, const QString& when)
{
    stage.ask("authorize");
    stage.peripheral.tell("decide accept");
    stage.expectSuccess(when);
}

/** The daemon is killed and started: the bond is still there, and the phone reads without pairing. */
void surviveRestart(PairingStage& stage)
{
    Expect::eventually([&] { return stage.listed() == QStringList{stage.centralPath()}; },
                       "the bond is listed");
    const auto registered = stage.peripheral.told("agent").count("registered");
    stage.endLink();
    stage.bluetooth.killDaemon();
    stage.bluetooth.startDaemon();
    stage.bluetooth.awaitAdapters();
    Expect::require([&] { return stage.peripheral.told("agent").count("registered") > registered; },
                    "the agent to be registered again");
    stage.peripheral.awaitRegistration({"registerApp", "registerAdv"}, 2);
    Expect::eventually([&] { return stage.listed() == QStringList{stage.centralPath()}; },
                       "after the daemon's restart it still is");
    Expect::that(stage.peripheral.told("bond-removed").isEmpty(), "and was not told as removed",
                 stage.peripheral.told("bond-removed").join(", "));
    stage.user = std::make_unique<PhoneUser>(stage.deviceSeenFromPhone(), "KeyboardDisplay");
    stage.central.connectDevice();
    // The device asks for encryption as soon as a bonded phone is there.
    Expect::eventually([&] { return stage.readError() == 0; }, "the phone reads without pairing again");
    Expect::equal(stage.peripheral.told("pairing authorize").size(), 1, "the agent is not asked again");
}

/** The device forgets the phone, which keeps its side of the bond until its user removes it, too. */
void forgetOneSide(PairingStage& stage)
{
    const auto phoneKnowsBond = [&] {
        return Remote::properties(stage.deviceSeenFromPhone(), Remote::deviceInterface)
            .value("Bonded")
            .toBool();
    };
    stage.forgetOnDevice();
    Expect::eventually([&] { return !stage.central.connected() && !stage.isLinked(); }, "the link ends");
    Expect::that(phoneKnowsBond(), "the phone still has its bond");
    PairingStage::awaitKernel();
    stage.central.connectDevice();
    Expect::equal(stage.readError(), 0x0f, "the phone cannot read any more");
    stage.endLink();
    Remote::call(stage.bluetooth.phone(), Remote::adapterInterface, "RemoveDevice",
                 {QVariant::fromValue(QDBusObjectPath(stage.deviceSeenFromPhone()))});
    Expect::that(!phoneKnowsBond(), "its user removes the device");
    PairingStage::awaitKernel();
    stage.central.connectDevice();
    Expect::equal(stage.readError(), 0x0f, "it gets 0x0f");
    pairJustWorks(stage, "paired again");
}

} // namespace

void Scenes::justWorks()
{
    PairingStage stage("NoInputNoOutput", "KeyboardDisplay");
    refuseWithoutWindow(stage);
    stage.openWindow();
    failInEachWay(stage, "authorize");
    stage.ask("authorize");
    stage.peripheral.tell("decide accept");
    stage.expectSuccess("accepted");
}

void Scenes::bonds()
{
    PairingStage stage("NoInputNoOutput", "KeyboardDisplay");
    stage.openWindow();
    pairJustWorks(stage, "accepted");
    surviveRestart(stage);
    forgetOneSide(stage);
}

void Scenes::comparison()
{
    PairingStage stage("DisplayYesNo", "KeyboardDisplay");
    stage.openWindow();
    failInEachWay(stage, "compare");
    const QString number = stage.ask("compare");
    Expect::eventually([&] { return stage.user->shown() == number; }, "both show " + number,
                       [&] { return stage.user->shown(); });
    stage.peripheral.tell("decide accept");
    stage.expectSuccess("accepted");
}

void Scenes::passkey()
{
    PairingStage stage("DisplayOnly", "KeyboardDisplay");
    stage.openWindow();
    failInEachWay(stage, "show");
    const QString passkey = stage.ask("show");
    Expect::require([&] { return stage.user->isAskedForPasskey(); }, "the phone to ask for the passkey");
    stage.user->type(passkey);
    stage.expectSuccess("the passkey typed on the phone");
    stage.expectEnded("paired");
}

void Scenes::typing()
{
    PairingStage stage("KeyboardOnly", "DisplayOnly");
    stage.openWindow();
    failInEachWay(stage, "enter");
    stage.ask("enter");
    Expect::require([&] { return !stage.user->shown().isEmpty(); }, "the phone to show a passkey");
    const uint shown = stage.user->shown().toUInt();
    stage.peripheral.tell(QString("decide %1").arg((shown + 1) % 1000000));
    stage.expectFailure("another number typed on the device");
    stage.ask("enter");
    Expect::require([&] { return !stage.user->shown().isEmpty(); }, "the phone to show a passkey");
    stage.peripheral.tell("decide " + stage.user->shown());
    stage.expectSuccess("the number typed on the device");
}
