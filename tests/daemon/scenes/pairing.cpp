// Pairing as plim::PairingAgent lets it happen, refuses it, or sees it end.

#include "Expect.h"
#include "PhoneUser.h"
#include "ProductStage.h"
#include "Remote.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QDBusObjectPath>

namespace {

const QString secret = SceneTree::uuid(0x7201);

/** A device with an agent and one encrypted value, and a phone whose user pairs. */
class PairingStage : public ProductStage
{
public:
    PairingStage(const QString& deviceCan, const QString& phoneCan)
        : ProductStage({"agent " + deviceCan, "plim-service service " + SceneTree::uuid(0x7200) + " primary",
                        "plim-characteristic secret service " + secret + " read:encrypted",
                        "value secret 0102"})
    {
        Expect::require([this] { return peripheral.told("agent").contains("registered"); },
                        "the agent's registration");
        central.connectDevice();
        user = std::make_unique<PhoneUser>(devicePath(bluetooth.phone(), bluetooth.deviceAddress()), phoneCan);
    }

    /** The error of reading the protected value. */
    int readError() { return central.read(central.handle(secret)).error; }

    bool isPaired() const
    {
        return Remote::properties(centralPath(), Remote::deviceInterface).value("Paired").toBool();
    }
    bool isPairable() const
    {
        return Remote::properties(bluetooth.device(), Remote::adapterInterface).value("Pairable").toBool();
    }

    /** The phone starts to pair, and the device is asked a question. */
    QString ask(const QString& kind)
    {
        const int before = peripheral.told("pairing " + kind).size();
        user->pair();
        Expect::require([&] { return peripheral.told("pairing " + kind).size() > before; },
                        "the question " + kind);
        const QString told = peripheral.told("pairing " + kind).last();
        Expect::equal(told.section(' ', 0, 0), centralPath(), "the device is asked: " + kind);
        return told.section(' ', 1);
    }

    QString awaitResult(int seconds = 90)
    {
        Expect::require([&] { return !user->result().isEmpty(); }, "the end of the pairing", seconds);
        return user->result();
    }

    void awaitEnd(const QString& kind, const QString& when, int before)
    {
        Expect::eventually([&] { return peripheral.told("pairing-ended " + kind).size() > before; },
                           when + ": requestEnded()", {}, 90);
    }

    std::unique_ptr<PhoneUser> user;
};

} // namespace

void Scenes::justWorks()
{
    PairingStage stage("NoInputNoOutput", "NoInputNoOutput");
    Expect::eventually([&] { return !stage.isPairable(); }, "no window: the adapter is not pairable");
    Expect::equal(stage.readError(), 0x0f, "not paired the phone gets 0x0f");
    stage.user->pair();
    Expect::note("without a window: " + stage.awaitResult());
    Expect::note("connected after it: " + QString::number(stage.central.connected()));
    stage.peripheral.settle();
    Expect::note("refused: " + stage.peripheral.told("pairing-refused").join(','));
    stage.peripheral.tell("window 600");
    Expect::eventually([&] { return stage.isPairable(); }, "a window: it is pairable");
    stage.ask("authorize");
    stage.peripheral.tell("decide reject");
    Expect::note("rejected: " + stage.awaitResult());
    stage.ask("authorize");
    int ended = stage.peripheral.told("pairing-ended").size();
    stage.user->cancel();
    stage.awaitEnd("authorize", "cancelled by the phone", ended);
    Expect::note("cancelled: " + stage.awaitResult());
    stage.ask("authorize");
    ended = stage.peripheral.told("pairing-ended").size();
    stage.awaitEnd("authorize", "never answered", ended);
    Expect::note("timed out: " + stage.awaitResult());
    stage.ask("authorize");
    stage.peripheral.tell("decide accept");
    Expect::note("accepted: " + stage.awaitResult());
    Expect::note("read error: " + QString::number(stage.readError()));
}

void Scenes::comparison()
{
    PairingStage stage("DisplayYesNo", "KeyboardDisplay");
    stage.peripheral.tell("window 600");
    Expect::eventually([&] { return stage.isPairable(); }, "a window: it is pairable");
    const QString number = stage.ask("compare");
    Expect::note(number + " phone " + stage.user->shown());
    stage.peripheral.tell("decide reject");
    Expect::note("rejected: " + stage.awaitResult());
    Expect::note(QString::number(stage.central.connected()));
    stage.ask("compare");
    int ended = stage.peripheral.told("pairing-ended").size();
    stage.user->cancel();
    stage.awaitEnd("compare", "cancelled by the phone", ended);
    Expect::note("cancelled: " + stage.awaitResult());
    stage.ask("compare");
    ended = stage.peripheral.told("pairing-ended").size();
    stage.awaitEnd("compare", "never answered", ended);
    Expect::note("timed out: " + stage.awaitResult());
    stage.ask("compare");
    stage.peripheral.tell("decide accept");
    Expect::note("accepted: " + stage.awaitResult());
    Expect::note("read error: " + QString::number(stage.readError()));
}

void Scenes::passkey()
{
    PairingStage stage("DisplayOnly", "KeyboardDisplay");
    stage.peripheral.tell("window 600");
    Expect::eventually([&] { return stage.isPairable(); }, "a window: it is pairable");
    stage.ask("show");
    Expect::require([&] { return stage.user->isAskedForPasskey(); }, "the phone to ask");
    stage.peripheral.tell("decide reject");
    Expect::note("rejected: " + stage.awaitResult());
    Expect::note(QString::number(stage.central.connected()));
}
