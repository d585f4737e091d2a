// The example that products begin with.

#include "Bluetooth.h"
#include "Expect.h"
#include "Phone.h"
#include "scenes.h"

#include <QCoreApplication>

namespace {

const QString manufacturerName = QStringLiteral("00002a29-0000-1000-8000-00805f9b34fb");
const QString batteryLevel = QStringLiteral("00002a19-0000-1000-8000-00805f9b34fb");
const QString thermostat = QStringLiteral("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0005");
const QString target = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0005");

} // namespace

void Scenes::device()
{
    Bluetooth bluetooth;
    Child example("example", "stdbuf",
                  {"-oL", QCoreApplication::applicationDirPath() + "/example-05-whole-device"});
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    Expect::that(phone.discover(), "the phone sees the device");
    const QVariantMap seen = phone.device();
    Expect::equal(seen.value("Name").toString(), "Thermostat", "its name");
    Expect::that(seen.value("UUIDs").toStringList().contains(thermostat), "and its service");
    phone.connectDevice();
    for (const QString& line : phone.tree()) {
        Expect::note(line);
    }
    Expect::equal(phone.read(manufacturerName), QByteArray("Example Devices"), "it reads the manufacturer");
    phone.subscribe(batteryLevel);
    Expect::eventually([&] { return phone.notified(batteryLevel).size() >= 2; }, "the battery drains");
    phone.write(target, QByteArray(1, 25));
    Expect::equal(phone.read(target), QByteArray(1, 25), "25 degrees are set");
    phone.write(target, QByteArray(1, 31));
    Expect::equal(phone.read(target), QByteArray(1, 25), "31 are not");

    bluetooth.killDaemon();
    bluetooth.startDaemon();
    bluetooth.awaitAdapters();
    phone.forget();
    phone.meet();
    Expect::equal(phone.read(target), QByteArray(1, 25), "it is back after the daemon's restart");
    Expect::that(!example.wrote("ERROR"), "the log has no error", example.text());
}
