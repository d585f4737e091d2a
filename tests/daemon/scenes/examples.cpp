// The examples that products begin with.

#include "Agent.h"
#include "AttClient.h"
#include "Bluetooth.h"
#include "Expect.h"
#include "Phone.h"
#include "PhoneUser.h"
#include "ProductStage.h"
#include "Remote.h"
#include "scenes.h"

#include <QCoreApplication>

namespace {

const QString manufacturerName = QStringLiteral("00002a29-0000-1000-8000-00805f9b34fb");
const QString batteryLevel = QStringLiteral("00002a19-0000-1000-8000-00805f9b34fb");
const QString thermostat = QStringLiteral("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0005");
const QString target = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0005");
const QString lockCode = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0009");
const QString lockState = QStringLiteral("c0de0003-5f2a-4d6b-9a57-1f6d0a3b0009");

const QString diaryEntry = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b000a");

} // namespace

void Scenes::device()
{
    Bluetooth bluetooth;
    Child example("example", "stdbuf",
                  {"-oL", QCoreApplication::applicationDirPath() + "/example-05-whole-device"});
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    Expect::that(phone.discover(Phone::hasName), "the phone sees the device");
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

void Scenes::lock()
{
    Bluetooth bluetooth(QByteArray(), Bluetooth::LowEnergy);
    const QString phonePath = devicePath(bluetooth.device(), bluetooth.phoneAddress());
    const Child example("example", "stdbuf",
                        {"-oL", QCoreApplication::applicationDirPath() + "/example-09-lock"});
    const Agent agent("NoInputNoOutput");
    AttClient phone(bluetooth.phoneAddress(), bluetooth.deviceAddress());
    phone.connectDevice();
    const quint16 code = phone.handle(lockCode);
    const quint16 state = phone.handle(lockState);
    const auto states = [&] {
        QStringList values;
        for (const AttClient::Notification& indication : phone.notifications()) {
            values << QString::fromLatin1(indication.value);
        }
        return values;
    };

    Expect::equal(phone.read(state).value, QByteArray("locked"), "the phone reads that it is locked");
    Expect::equal(phone.subscribe(state, 2).error, 0, "it subscribes to the state");
    Expect::equal(phone.write(code, "2580").error, 0x0f, "not paired it gets 0x0f for the right code");
    phone.protect(AttClient::Encrypted);
    Expect::require(
        [&] { return Remote::properties(phonePath, Remote::deviceInterface).value("Paired").toBool(); },
        "the pairing");
    Expect::equal(phone.write(code, "1234").error, 0x80, "paired it gets 0x80 for a wrong code");
    Expect::eventually([&] { return example.wrote("wrong code from " + phonePath); },
                       "the example says who wrote it");
    Expect::equal(phone.read(state).value, QByteArray("locked"), "it stays locked");
    Expect::equal(phone.write(code, "2580").error, 0, "the right code is taken");
    Expect::eventually([&] { return states().value(0) == "open"; }, "an indication says that it is open",
                       [&] { return states().join(','); });
    Expect::eventually([&] { return example.wrote("a phone knows the state"); },
                       "the example hears that the phone knows");
    Expect::eventually(
        [&] {
            return states() == QStringList{"open", "locked"};
        },
        "5 s later it is locked again");
    for (int failure = 0; failure < 3; ++failure) {
        Expect::equal(phone.write(code, "1234").error, 0x80, "a wrong code");
    }
    Expect::equal(phone.write(code, "2580").error, 0x08, "after three of them the right one gets 0x08");
    Expect::that(!example.wrote("ERROR"), "no error is logged", example.text());
}

void Scenes::diary()
{
    Bluetooth bluetooth(QByteArray(), Bluetooth::LowEnergy);
    Child example("example", "stdbuf",
                  {"-oL", QCoreApplication::applicationDirPath() + "/example-10-pairing"});
    const auto isPairable = [&] {
        return Remote::properties(bluetooth.device(), Remote::adapterInterface).value("Pairable").toBool();
    };
    AttClient phone(bluetooth.phoneAddress(), bluetooth.deviceAddress());
    example.write("p");
    Expect::require(isPairable, "the example's agent and its window");
    phone.connectDevice();
    PhoneUser user(devicePath(bluetooth.phone(), bluetooth.deviceAddress()), "KeyboardDisplay");
    const quint16 entry = phone.handle(diaryEntry);
    const auto pair = [&](const QString& key) {
        user.pair();
        Expect::require(
            [&] {
                return !user.shown().isEmpty() &&
                       example.wrote("does the phone show " + user.shown() + "? (y or n)");
            },
            "the same number on both displays");
        example.write(key);
    };
    // The kernel has a fault that shows where a phone connects before the old link has ended on both sides.
    const auto awaitEnd = [&](const QString& when) {
        Expect::require(
            [&] {
                const auto device = Remote::properties(
                    devicePath(bluetooth.phone(), bluetooth.deviceAddress()), Remote::deviceInterface);
                return !phone.connected() && !device.value("Connected").toBool();
            },
            "the end of the link, " + when);
    };
    Expect::equal(phone.read(entry).error, 0x05, "not paired the phone gets 0x05");
    pair("n");
    Expect::require([&] { return !user.result().isEmpty(); }, "the end of the pairing");
    awaitEnd("after a no");
    phone.connectDevice();
    Expect::equal(phone.read(entry).error, 0x05, "it still gets 0x05");
    pair("y");
    Expect::eventually([&] { return example.wrote("paired: " + bluetooth.phoneAddress()); },
                       "the example tells who has paired", [&] { return example.text(); });
    Expect::equal(phone.read(entry).value, QByteArray("dear diary"), "the phone reads");
    example.write("r");
    Expect::eventually([&] { return example.wrote("all phones forgotten"); }, "the factory reset",
                       [&] { return example.text(); });
    awaitEnd("after the reset");
    phone.connectDevice();
    Expect::equal(phone.read(entry).error, 0x05, "the phone gets 0x05 again");
    Expect::that(!example.wrote("ERROR"), "no error is logged", example.text());
}
