#include "Attacks.h"

#include "Arguments.h"

#include <climits>
#include <memory>
#include <stdexcept>
#include <utility>

namespace attacker {

namespace {

struct Method
{
    const char* interface;
    const char* member;
};

const Method methods[] = {
    {Target::characteristicInterface, "ReadValue"},
    {Target::characteristicInterface, "WriteValue"},
    {Target::characteristicInterface, "StartNotify"},
    {Target::characteristicInterface, "StopNotify"},
    {Target::characteristicInterface, "Confirm"},
    {Target::characteristicInterface, "on_control_valueChanged"},
    {"org.bluez.GattDescriptor1", "ReadValue"},
    {"org.bluez.GattDescriptor1", "WriteValue"},
    {"org.bluez.LEAdvertisement1", "Release"},
    {"org.freedesktop.DBus.ObjectManager", "GetManagedObjects"},
    {"org.freedesktop.DBus.Introspectable", "Introspect"},
    {"org.freedesktop.DBus.Peer", "Ping"},
    {Target::propertiesInterface, "Get"},
    {Target::propertiesInterface, "GetAll"},
    {Target::propertiesInterface, "Set"},
    {"org.example.Unknown", "Unknown"},
    {"", "ReadValue"},
    {"", "deleteLater"},
};

void callEverythingWithEverything(Bus& bus)
{
    const std::vector<Append> arguments = allArguments();
    for (const std::string& path : allPaths(bus)) {
        for (const Method& method : methods) {
            for (const Append& append : arguments) {
                bus.send({path, method.interface, method.member, append});
            }
        }
    }
}

void askEveryProperty(Bus& bus)
{
    for (const std::string& path : allPaths(bus)) {
        for (const char* interface : {"org.bluez.GattService1", "org.bluez.GattCharacteristic1",
                                      "org.bluez.GattDescriptor1", "org.bluez.LEAdvertisement1", "", "x.y"}) {
            bus.send({path, Target::propertiesInterface, "GetAll", [interface](sd_bus_message* message) {
                          check(sd_bus_message_append(message, "s", interface), "append");
                      }});
            for (const char* name :
                 {"UUID", "Primary", "Service", "Characteristic", "Value", "Notifying", "Flags", "Type",
                  "Data", "ScanResponseData", "ManufacturerData", "ServiceData", ""}) {
                bus.send(
                    {path, Target::propertiesInterface, "Get", [interface, name](sd_bus_message* message) {
                         check(sd_bus_message_append(message, "ss", interface, name), "append");
                     }});
                for (const Append& value : allNumbers()) {
                    bus.send({path, Target::propertiesInterface, "Set",
                              [interface, name, value](sd_bus_message* message) {
                                  check(sd_bus_message_append(message, "ss", interface, name), "append");
                                  value(message);
                              }});
                }
            }
        }
    }
}

void keepTenThousandInFlight(Bus& bus)
{
    const std::size_t former = std::exchange(bus.inFlightLimit, 10000);
    for (int i = 0; i < 10000; ++i) {
        bus.send(Target::read(Target::path("counted")));
    }
    bus.drain();
    bus.inFlightLimit = former;
}

void writeEightMebibytes(Bus& bus)
{
    const std::string bytes(8 << 20, 'w');
    for (const char* name : {"plain", "paged", "control", "throwing"}) {
        for (int i = 0; i < 4; ++i) {
            bus.send(Target::write(Target::path(name), bytes, i % 2 ? INT_MAX : 0));
        }
        bus.send(Target::read(Target::path(name)));
        bus.drain();
    }
}

/** What is written behind the end is appended: a value must not grow for ever that way. */
void appendForEver(Bus& bus)
{
    const std::string bytes(8 << 20, 'w');
    for (int i = 0; i < 40; ++i) {
        for (const std::string& path : {Target::path("plain"), Target::path("plain") + "/desc0"}) {
            Call call = Target::write(path, bytes, INT_MAX);
            call.interface.clear();
            bus.send(call);
            bus.drain();
        }
    }
    for (const std::string& path : allPaths(bus)) {
        for (const char* interface : {"org.bluez.GattCharacteristic1", "org.bluez.GattDescriptor1"}) {
            bus.send({path, Target::propertiesInterface, "GetAll", [interface](sd_bus_message* message) {
                          check(sd_bus_message_append(message, "s", interface), "append");
                      }});
            bus.drain();
        }
    }
}

/** Values that may be sent each for itself, but not all in one message. */
void fillTheWholeTree(Bus& bus)
{
    const std::string bytes(12 << 20, 'w');
    for (const char* name : {"plain", "paged", "control", "throwing"}) {
        bus.send(Target::write(Target::path(name), bytes, 0));
        bus.send(Target::read(Target::path(name)));
        bus.drain();
    }
    bus.send({"/stress", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects"});
}

/** Properties that no interface declares must not fill the memory. */
void inventProperties(Bus& bus)
{
    for (int i = 0; i < 10000; ++i) {
        bus.send({Target::path("plain"), Target::propertiesInterface, "Set", [i](sd_bus_message* message) {
                      check(sd_bus_message_append(message, "ssv", Target::characteristicInterface,
                                                  ("Invented" + std::to_string(i)).c_str(), "s",
                                                  std::string(1000, 'x').c_str()),
                            "append");
                  }});
    }
}

void callWhatIsJustDeleted(Bus& bus)
{
    const std::string mortal = "/stress/mortals/mortal";
    for (int i = 0; i < 500; ++i) {
        bus.send(Target::write(mortal, "x", 0));
        for (const std::string& path : {mortal, mortal + "/desc0", std::string("/stress/mortals")}) {
            bus.send(Target::read(path));
            bus.send({path, "org.freedesktop.DBus.Introspectable", "Introspect"});
            bus.send({path, Target::propertiesInterface, "GetAll", [](sd_bus_message* message) {
                          check(sd_bus_message_append(message, "s", Target::characteristicInterface),
                                "append");
                      }});
        }
        bus.send({"/stress", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects"});
    }
}

void spinAndThrow(Bus& bus)
{
    for (int i = 0; i < 500; ++i) {
        bus.send(Target::read(Target::path("spinning")));
        bus.send(Target::read(Target::path("throwing")));
    }
}

void wantNoAnswer(Bus& bus)
{
    for (int i = 0; i < 2000; ++i) {
        bus.tell(Target::read(Target::path("counted")));
        bus.tell(Target::write(Target::path("plain"), "x", 0));
        bus.tell({"/nowhere", "", "Nothing"});
    }
}

void vanishBeforeTheAnswer(Bus& bus)
{
    for (int i = 0; i < 50; ++i) {
        Bus other(bus.destination());
        other.inFlightLimit = 1000;
        for (int call = 0; call < 200; ++call) {
            other.send(Target::read(Target::path(call % 2 ? "counted" : "spinning")));
        }
        other.flush();
        other.vanish();
    }
}

} // namespace

const std::vector<Attack>& allAttacks()
{
    static const std::vector<Attack> all{
        {"every method with every argument", callEverythingWithEverything},
        {"every property", askEveryProperty},
        {"10,000 calls in flight", keepTenThousandInFlight},
        {"writes of 8 MiB", writeEightMebibytes},
        {"writes behind the end", appendForEver},
        {"48 MiB in one tree", fillTheWholeTree},
        {"10,000 invented properties", inventProperties},
        {"paths just deleted", callWhatIsJustDeleted},
        {"callbacks that spin or throw", spinAndThrow},
        {"calls that want no answer", wantNoAnswer},
        {"clients that vanish", vanishBeforeTheAnswer},
    };
    return all;
}

std::vector<std::string> allPaths(Bus& bus)
{
    std::vector<std::string> paths{"/"};
    for (std::size_t i = 0; i < paths.size(); ++i) {
        sd_bus_message* answer = bus.ask({paths[i], "org.freedesktop.DBus.Introspectable", "Introspect"});
        const char* text = "";
        sd_bus_message_read(answer, "s", &text);
        const std::string description = text;
        sd_bus_message_unref(answer);
        const std::string mark = "<node name=\"";
        for (std::size_t at = 0; (at = description.find(mark, at)) != std::string::npos;) {
            at += mark.size();
            const std::string name = description.substr(at, description.find('"', at) - at);
            paths.push_back((paths[i] == "/" ? "" : paths[i]) + '/' + name);
        }
    }
    return paths;
}

void expect(bool condition, const std::string& what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

std::string Target::path(const char* characteristic)
{
    return std::string("/stress/values/") + characteristic;
}

Call Target::read(const std::string& path)
{
    return {path, characteristicInterface, "ReadValue", [](sd_bus_message* message) {
                check(sd_bus_message_append(message, "a{sv}", 0), "append options");
            }};
}

Call Target::write(const std::string& path, const std::string& bytes, int offset)
{
    return {path, characteristicInterface, "WriteValue", [bytes, offset](sd_bus_message* message) {
                check(sd_bus_message_append_array(message, 'y', bytes.data(), bytes.size()), "append bytes");
                check(sd_bus_message_append(message, "a{sv}", 1, "offset", "i", offset), "append options");
            }};
}

} // namespace attacker
