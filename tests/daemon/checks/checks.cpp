// The same questions for the real daemon and for the stand-in.

#include "CheckEnvironment.h"
#include "Expect.h"
#include "Peripheral.h"
#include "Remote.h"
#include "SceneTree.h"

#include <QDBusObjectPath>
#include <QRegularExpression>

namespace {

void checkUnknownPaths(const CheckEnvironment& environment)
{
    const QVariantList nowhere{QVariant::fromValue(QDBusObjectPath("/nowhere"))};
    const QString refusal = "org.bluez.Error.DoesNotExist: Does Not Exist";
    Expect::equal(Remote::errorOf(Remote::tryCall(environment.adapter(), "org.bluez.LEAdvertisingManager1",
                                                  "UnregisterAdvertisement", nowhere)),
                  refusal, "unregistering an advertisement that is not registered");
    Expect::equal(Remote::errorOf(Remote::tryCall(environment.adapter(), "org.bluez.GattManager1",
                                                  "UnregisterApplication", nowhere)),
                  refusal, "unregistering an application that is not registered");
}

/** The keys of the options with which the daemon first called this method of the object with the UUID. */
QStringList firstOptions(const Peripheral& peripheral, const QString& method, const QString& uuid)
{
    const QString line =
        peripheral.text().split('\n').filter(method).filter("uuid: " + uuid).filter("ptions: QMap(").value(0);
    QStringList keys;
    auto key = QRegularExpression("\\(([a-z-]+), ").globalMatch(line);
    while (key.hasNext()) {
        keys << key.next().captured(1);
    }
    return keys;
}

void checkOptions(CheckEnvironment& environment, Peripheral& peripheral)
{
    environment.read(SceneTree::fixed, 0);
    Expect::equal(firstOptions(peripheral, "ReadValue", SceneTree::fixed),
                  QStringList{"device", "link", "mtu"}, "the options of a read");
    Expect::equal(environment.read(SceneTree::longest, 500).size(), 12, "a read at offset 500 of 512");
    Expect::equal(firstOptions(peripheral, "ReadValue", SceneTree::longest),
                  QStringList{"device", "link", "mtu", "offset"}, "the options of a read at an offset");
    environment.read(SceneTree::description, 0);
    Expect::equal(firstOptions(peripheral, "ReadValue", SceneTree::description),
                  QStringList{"device", "link", "mtu"}, "the options of a descriptor's read");
    environment.write(SceneTree::writable, "bytes", 0);
    Expect::equal(firstOptions(peripheral, "WriteValue", SceneTree::writable),
                  QStringList{"device", "link", "mtu"}, "the options of a write");
    environment.write(SceneTree::note, "bytes", 0);
    Expect::equal(firstOptions(peripheral, "WriteValue", SceneTree::note),
                  QStringList{"device", "link", "mtu"}, "the options of a descriptor's write");
}

void checkNotifications(CheckEnvironment& environment, Peripheral& peripheral)
{
    peripheral.tell("value counter 01");
    environment.subscribe(SceneTree::counter);
    Expect::eventually([&] { return peripheral.notifying("counter") == QStringList{"1"}; },
                       "subscribing: StartNotify once");
    Expect::that(environment.notified(SceneTree::counter).isEmpty(), "a value set before is not notified");
    for (const char* value : {"02", "03"}) {
        peripheral.tell(QString("value counter ") + value);
        Expect::eventually(
            [&] {
                const QList<QByteArray> values = environment.notified(SceneTree::counter);
                return !values.isEmpty() && values.last() == QByteArray::fromHex(value);
            },
            QString("value ") + value + " is notified");
    }
    environment.unsubscribe(SceneTree::counter);
    Expect::eventually(
        [&] {
            return peripheral.notifying("counter") == QStringList{"1", "0"};
        },
        "unsubscribing: StopNotify once");
    peripheral.tell("value counter 04");
    environment.read(SceneTree::fixed, 0); // what was on its way has arrived
    Expect::equal(environment.notified(SceneTree::counter).size(), 2, "afterwards nothing is notified");
}

} // namespace

void runChecks(CheckEnvironment& environment)
{
    checkUnknownPaths(environment);
    {
        Peripheral peripheral("check-values");
        SceneTree::build(peripheral);
        const QStringList answers = peripheral.text().split('\n').filter("success: register");
        Expect::that(answers.value(0).contains("registerApp") && answers.value(1).contains("registerAdv"),
                     "what is registered first is answered first", Expect::text(answers));
        peripheral.tell("log TRACE");
        environment.meet(peripheral);
        checkOptions(environment, peripheral);
        checkNotifications(environment, peripheral);
    }
}
