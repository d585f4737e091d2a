#include "PairingStage.h"

#include "Expect.h"
#include "Remote.h"
#include "SceneTree.h"

namespace {

const QString secret = SceneTree::uuid(0x7201);

} // namespace

PairingStage::PairingStage(const QString& deviceCan, const QString& phoneCan, const QByteArray& configuration)
    : ProductStage({"agent " + deviceCan, "plim-service service " + SceneTree::uuid(0x7200) + " primary",
                    "plim-characteristic secret service " + secret + " read:encrypted", "value secret 0102"},
                   configuration)
{
    Expect::require([this] { return peripheral.told("agent").contains("registered"); },
                    "the agent's registration");
    // A link keeps what was valid when it began.
    central.connectDevice();
    user = std::make_unique<PhoneUser>(deviceSeenFromPhone(), phoneCan);
}

void PairingStage::openWindow()
{
    peripheral.tell("window 0");
    Expect::eventually([this] { return isPairable(); }, "with a window the adapter is pairable");
}

quint16 PairingStage::secretHandle() const
{
    return central.handle(secret);
}

int PairingStage::readError()
{
    return central.read(secretHandle()).error;
}

bool PairingStage::isPaired() const
{
    return Remote::properties(centralPath(), Remote::deviceInterface).value("Paired").toBool();
}

bool PairingStage::isPairable() const
{
    return Remote::properties(bluetooth.device(), Remote::adapterInterface).value("Pairable").toBool();
}

QStringList PairingStage::listed()
{
    const auto before = peripheral.told("bonds").size();
    peripheral.tell("bonds");
    // The phone's side of the bond belongs to the same daemon.
    return peripheral.told("bonds").at(before).split(' ').filter(bluetooth.device());
}

bool PairingStage::isLinked() const
{
    const auto isConnected = [](const QString& path) {
        return Remote::properties(path, Remote::deviceInterface).value("Connected").toBool();
    };
    return isConnected(centralPath()) || isConnected(deviceSeenFromPhone());
}

QString PairingStage::deviceSeenFromPhone() const
{
    return devicePath(bluetooth.phone(), bluetooth.deviceAddress());
}

QString PairingStage::ask(const QString& kind)
{
    const QString question = "pairing " + kind;
    const auto before = peripheral.told(question).size();
    m_endedBefore = peripheral.told("pairing-ended").size();
    user->pair();
    Expect::require([&] { return peripheral.told(question).size() > before; },
                    "the device to be asked: " + kind);
    const QString told = peripheral.told(question).last();
    Expect::equal(told.section(' ', 0, 0), centralPath(), "the device is asked by the phone: " + kind);
    return told.section(' ', 1);
}

void PairingStage::expectEnded(const QString& why)
{
    Expect::eventually([this] { return peripheral.told("pairing-ended").size() > m_endedBefore; },
                       why + ": the request ends", {}, 90);
}

void PairingStage::expectFailure(const QString& why)
{
    Expect::require([this] { return !user->result().isEmpty(); }, why + ": the end of the pairing", 90);
    const QString failure = user->result();
    Expect::that(failure.startsWith("org.bluez.Error.Authentication"), why + ": " + failure, failure);
    Expect::that(!isPaired(), "the device has not paired");
    reconnect();
    Expect::equal(readError(), 0x0f, "and the phone cannot read");
}

void PairingStage::expectSuccess(const QString& how)
{
    Expect::eventually(
        [this] {
            return Remote::properties(deviceSeenFromPhone(), Remote::deviceInterface)
                       .value("Paired")
                       .toBool() &&
                   isPaired();
        },
        how + ": both have paired", [this] { return user->result(); });
    Expect::eventually([this] { return peripheral.told("paired").contains(centralPath()); },
                       "the program hears that");
    Expect::equal(central.read(secretHandle()).value, QByteArray("\1\2"),
                  "the phone reads the encrypted value");
}

void PairingStage::forgetOnDevice()
{
    peripheral.tell("forget " + centralPath());
    Expect::eventually([this] { return peripheral.told("forgotten").size() == 1; },
                       "the device forgets the phone");
    Expect::equal(peripheral.told("forgotten"), QStringList{centralPath()}, "without an error");
    Expect::eventually([this] { return peripheral.told("bond-removed").contains(centralPath()); },
                       "the program hears that the bond is gone");
    Expect::that(listed().isEmpty() && !isPaired(), "the device has no bond any more");
}

void PairingStage::awaitKernel()
{
    Expect::waitFor([] { return false; }, 5);
}

void PairingStage::endLink()
{
    central.disconnectDevice();
    // The daemon, which plays the paired phone too, may hold the link on.
    Remote::tryCall(deviceSeenFromPhone(), Remote::deviceInterface, "Disconnect");
    Expect::require(
        [this] {
            return !Remote::properties(centralPath(), Remote::deviceInterface).value("Connected").toBool();
        },
        "the end of the link");
}

void PairingStage::reconnect()
{
    // The kernel has a fault that shows where a phone connects before the old link has ended on both sides.
    Expect::require([this] { return !central.connected() && !isLinked(); }, "the end of the link");
    central.connectDevice();
}
