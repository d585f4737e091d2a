#include "ProductStage.h"

#include "Expect.h"
#include "Remote.h"
#include "SceneTree.h"

#include <QDBusObjectPath>

namespace {

QStringList distinct(QStringList lines)
{
    lines.removeDuplicates();
    lines.sort();
    return lines;
}

} // namespace

QString devicePath(const QString& adapter, const QString& address)
{
    return adapter + "/dev_" + QString(address).replace(':', '_');
}

ProductStage::ProductStage(const QStringList& commands, const QByteArray& configuration,
                           Bluetooth::Records records)
    : bluetooth(configuration, Bluetooth::LowEnergy, records),
      central(bluetooth.phoneAddress(), bluetooth.deviceAddress())
{
    peripheral.tell("application /com/example/scene com.example.Scene");
    peripheral.tell(commands);
    peripheral.tell(SceneTree::advertisement());
    peripheral.tell({QStringLiteral("add application"), QStringLiteral("add adv")});
    peripheral.awaitRegistration();
}

QString ProductStage::centralPath() const
{
    return devicePath(bluetooth.device(), bluetooth.phoneAddress());
}

void ProductStage::forgetEachOther()
{
    central.disconnectDevice();
    const QString seenFromPhone = devicePath(bluetooth.phone(), bluetooth.deviceAddress());
    // The daemon, which plays the paired phone too, may hold the link on.
    Remote::tryCall(bluetooth.device(), Remote::adapterInterface, "RemoveDevice",
                    {QVariant::fromValue(QDBusObjectPath(centralPath()))});
    Remote::tryCall(bluetooth.phone(), Remote::adapterInterface, "RemoveDevice",
                    {QVariant::fromValue(QDBusObjectPath(seenFromPhone))});
    Expect::require(
        [&] {
            return Remote::properties(centralPath(), Remote::deviceInterface).isEmpty() &&
                   Remote::properties(seenFromPhone, Remote::deviceInterface).isEmpty();
        },
        "both sides to forget");
    central.connectDevice();
}

void ProductStage::expectWitness()
{
    const QStringList got = distinct(central.errors());
    const auto seen = [this] { return distinct(bluetooth.monitoredErrors()); };
    Expect::waitFor([&] { return seen() == got; }, 30);
    Expect::equal(seen(), got, "btmon tells of the same ATT errors");
}
