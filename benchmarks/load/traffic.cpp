// What a peripheral handles in a day: reads and writes of one characteristic, and a notification for each
// write.

#include "Server.h"

#include <cstdio>
#include <stdexcept>

namespace {

const char usage[] = "usage: bench-traffic BUS-NAME CHARACTERISTIC-PATH COUNT\n"
                     "  COUNT reads, as many writes of one byte, and a notification for each of them\n";

/** Calls that are sent before the first answer is awaited. */
constexpr unsigned pipelined = 16;

Message call(const Server& server, const std::string& path, const std::string& member,
             const Arguments& arguments)
{
    return server.message(path, "org.bluez.GattCharacteristic1", member, arguments);
}

void noOptions(sd_bus_message* message)
{
    check(sd_bus_message_append(message, "a{sv}", 0), "options");
}

/** A value that is another one each time, and that a thermostat accepts: 10 to 29. */
void nextValue(sd_bus_message* message)
{
    static unsigned number = 0;
    const auto value = static_cast<unsigned char>(10 + number++ % 20);
    check(sd_bus_message_append_array(message, 'y', &value, 1), "value");
    noOptions(message);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fputs(usage, stderr);
        return 2;
    }
    try {
        Server server(argv[1]);
        const std::string path = argv[2];
        const unsigned count = unsigned(std::stoul(argv[3]));
        server.countNotifications(path);
        server.call(call(server, path, "StartNotify", [](sd_bus_message*) {}));
        server.callMany([&] { return call(server, path, "ReadValue", noOptions); }, count, pipelined);
        server.callMany([&] { return call(server, path, "WriteValue", nextValue); }, count, pipelined);
        server.awaitNotifications(count);
        server.call(call(server, path, "StopNotify", [](sd_bus_message*) {}));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-traffic: %s\n", error.what());
        return 1;
    }
    return 0;
}
