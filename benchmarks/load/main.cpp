// The load generator: makes one server do one operation many times, and prints what that took as JSON.

#include "../servers/Layout.h"
#include "Bluez.h"
#include "Server.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace {

const char usage[] = "usage: bench-load BUS-NAME OPERATION COUNT [--mark]\n"
                     "  read:CHARACTERISTIC, write:CHARACTERISTIC:BYTES, getall:CHARACTERISTIC\n"
                     "  notify:BYTES              a count of notifications\n"
                     "  socket:BYTES              the same through a socket\n"
                     "  managed:CHARACTERISTICS   GetManagedObjects of a tree that has been asked before\n"
                     "  first:CHARACTERISTICS     the same of a new tree; the count is 1\n"
                     "  build:WHAT:OBJECTS        that many are built, and destroyed\n"
                     "  register:CHARACTERISTICS  an application, with the daemon\n"
                     "  burst:CHANGES             of an advertisement that is registered\n"
                     "  --mark   for callgrind: the server writes down what each operation took\n";

/** Calls that are sent before the first answer is awaited, where the rate is measured. */
constexpr unsigned pipelined = 32;

using Result = std::map<std::string, double>;

struct Task
{
    std::vector<std::string> words; ///< the operation and its arguments
    unsigned count = 0;
    bool marked = false;

    const std::string& name() const { return words.at(0); }
    unsigned number(std::size_t index) const { return unsigned(std::stoul(words.at(index))); }
};

/** Processor times and latencies between construction and result(). */
class Measurement
{
public:
    Measurement(const Server& server, const Task& task) : m_server(server), m_task(task)
    {
        mark("");
        m_server0 = server.serverTime();
        m_bus0 = server.busTime();
    }

    template <typename Operation>
    void time(Operation operation)
    {
        const double begin = now();
        operation();
        m_latencies.push_back(now() - begin);
    }

    Result result(double operations)
    {
        Result result{{"operations", operations},
                      {"server", (m_server.serverTime() - m_server0) / operations},
                      {"bus", (m_server.busTime() - m_bus0) / operations}};
        mark(m_task.name());
        if (!m_latencies.empty()) {
            std::sort(m_latencies.begin(), m_latencies.end());
            result["median"] = m_latencies[m_latencies.size() / 2];
            result["p99"] = m_latencies[m_latencies.size() * 99 / 100];
        }
        return result;
    }

private:
    void mark(const std::string& name) const
    {
        if (m_task.marked) {
            m_server.control("Mark", [&](sd_bus_message* call) {
                check(sd_bus_message_append(call, "s", name.c_str()), "Mark");
            });
        }
    }

    const Server& m_server;
    const Task& m_task;
    double m_server0;
    double m_bus0;
    std::vector<double> m_latencies;
};

/** What the daemon sends with a first read or write. */
void appendOptions(sd_bus_message* call)
{
    check(sd_bus_message_append(call, "a{sv}", 3, "device", "o", "/org/bluez/hci0/dev_00_AA_01_00_00_42",
                                "link", "s", "LE", "mtu", "q", 517),
          "options");
}

/** What an operation calls, one after the other and then many at a time. */
std::function<Message()> callOf(const Server& server, const Task& task)
{
    const std::string characteristic = "org.bluez.GattCharacteristic1";
    if (task.name() == "managed" || task.name() == "first") {
        return [&] {
            return server.message("/com/example/managed", "org.freedesktop.DBus.ObjectManager",
                                  "GetManagedObjects", [](sd_bus_message*) {});
        };
    }
    const std::string path = Layout::characteristicPath(Layout::root, task.number(1));
    if (task.name() == "read") {
        return [=, &server] { return server.message(path, characteristic, "ReadValue", appendOptions); };
    }
    if (task.name() == "write") {
        const std::string value(task.number(2), 'w');
        return [=, &server] {
            return server.message(path, characteristic, "WriteValue", [&](sd_bus_message* call) {
                check(sd_bus_message_append_array(call, 'y', value.data(), value.size()), "value");
                appendOptions(call);
            });
        };
    }
    return [=, &server] {
        return server.message(path, "org.freedesktop.DBus.Properties", "GetAll", [&](sd_bus_message* call) {
            check(sd_bus_message_append(call, "s", characteristic.c_str()), "interface");
        });
    };
}

Result calls(const Server& server, const Task& task)
{
    const auto make = callOf(server, task);
    Measurement measurement(server, task);
    for (unsigned i = 0; i < task.count; ++i) {
        const Message call = make();
        measurement.time([&] { server.call(call); });
    }
    Result result = measurement.result(task.count);
    if (!task.marked && task.name() != "first") {
        const double serverTime = server.serverTime();
        const double begin = now();
        server.callMany(make, task.count, pipelined);
        result["rate"] = task.count / (now() - begin);
        result["serverPipelined"] = (server.serverTime() - serverTime) / task.count;
    }
    return result;
}

void selectPage(const Server& server, const char* page)
{
    server.call(server.message(Layout::characteristicPath(Layout::root, Layout::Control),
                               "org.bluez.GattCharacteristic1", "WriteValue", [&](sd_bus_message* call) {
                                   check(sd_bus_message_append_array(call, 'y', page, std::strlen(page)),
                                         "page");
                                   check(sd_bus_message_append(call, "a{sv}", 0), "options");
                               }));
}

Result reads(const Server& server, const Task& task)
{
    if (task.number(1) == Layout::Paged) {
        selectPage(server, "1");
    }
    return calls(server, task);
}

void grow(const Server& server, const char* root, unsigned characteristics)
{
    server.control("Grow", [&](sd_bus_message* call) {
        check(sd_bus_message_append(call, "su", root, characteristics), "Grow");
    });
}

Result managed(const Server& server, const Task& task)
{
    grow(server, "/com/example/managed", task.number(1));
    if (task.name() != "first") {
        server.call(callOf(server, task)());
    }
    Result result = calls(server, task);
    server.control("Shrink");
    return result;
}

/** Notifications for which the server gets one call; as many fit into a socket. */
constexpr unsigned batch = 100;

void orderNotifications(const Server& server, const Task& task)
{
    server.control("Notify", [&](sd_bus_message* call) {
        check(sd_bus_message_append(call, "uu", task.number(1), batch), "Notify");
    });
}

/** The figures of so many notifications, ordered in batches: one of them has its share. */
Result resultOf(Measurement& measurement, unsigned sent, double seconds)
{
    Result result = measurement.result(sent);
    result["rate"] = sent / seconds;
    result["median"] /= batch;
    result["p99"] /= batch;
    return result;
}

Result socketNotifications(const Server& server, const Task& task)
{
    Bluez bluez(server.bus());
    bluez.subscribe(server.name(), Layout::characteristicPath(Layout::root, Layout::Notifying));
    Measurement measurement(server, task);
    const double begin = now();
    unsigned sent = 0;
    for (; sent < task.count; sent += batch) {
        measurement.time([&] {
            orderNotifications(server, task);
            bluez.read(batch);
        });
    }
    return resultOf(measurement, sent, now() - begin);
}

Result notifications(Server& server, const Task& task)
{
    const std::string path = Layout::characteristicPath(Layout::root, Layout::Notifying);
    server.call(server.message(path, "org.bluez.GattCharacteristic1", "StartNotify", [](sd_bus_message*) {}));
    server.countNotifications(path);
    Measurement measurement(server, task);
    const double begin = now();
    unsigned sent = 0;
    while (sent < task.count) {
        measurement.time([&] {
            orderNotifications(server, task);
            sent += batch;
            server.awaitNotifications(sent);
        });
    }
    const Result result = resultOf(measurement, sent, now() - begin);
    server.call(server.message(path, "org.bluez.GattCharacteristic1", "StopNotify", [](sd_bus_message*) {}));
    return result;
}

Result builds(const Server& server, const Task& task)
{
    const unsigned objects = task.number(2);
    Result result{{"operations", double(task.count) * objects}};
    for (unsigned i = 0; i < task.count; ++i) {
        const Message reply = server.control("Build", [&](sd_bus_message* call) {
            check(sd_bus_message_append(call, "su", task.words.at(1).c_str(), objects), "Build");
        });
        std::uint64_t build = 0;
        std::uint64_t destroy = 0;
        std::uint64_t heap = 0;
        check(sd_bus_message_read(reply.get(), "ttt", &build, &destroy, &heap), "Build");
        result["server"] += double(build) * 1e-9 / result["operations"];
        result["destroy"] += double(destroy) * 1e-9 / result["operations"];
        result["heap"] += double(heap) / result["operations"];
    }
    return result;
}

Result registrations(const Server& server, const Task& task)
{
    grow(server, "/com/example/registered", task.number(1));
    Measurement measurement(server, task);
    for (unsigned i = 0; i < task.count; ++i) {
        measurement.time([&] { server.control("Register"); });
        server.control("Unregister");
    }
    Result result = measurement.result(task.count);
    server.control("Shrink");
    return result;
}

Result bursts(const Server& server, const Task& task)
{
    const unsigned changes = task.number(1);
    server.control("Advertise");
    Measurement measurement(server, task);
    for (unsigned i = 0; i < task.count; ++i) {
        measurement.time([&] {
            server.control("Burst", [&](sd_bus_message* call) {
                check(sd_bus_message_append(call, "u", changes), "Burst");
            });
        });
    }
    Result result = measurement.result(double(task.count) * changes);
    result["median"] /= changes;
    result["p99"] /= changes;
    return result;
}

Result run(Server& server, const Task& task)
{
    if (task.name() == "read") {
        return reads(server, task);
    }
    if (task.name() == "write" || task.name() == "getall") {
        return calls(server, task);
    }
    if (task.name() == "managed" || task.name() == "first") {
        return managed(server, task);
    }
    if (task.name() == "notify") {
        return notifications(server, task);
    }
    if (task.name() == "socket") {
        return socketNotifications(server, task);
    }
    if (task.name() == "build") {
        return builds(server, task);
    }
    if (task.name() == "register") {
        return registrations(server, task);
    }
    if (task.name() == "burst") {
        return bursts(server, task);
    }
    throw std::invalid_argument("no such operation: " + task.name());
}

Task parse(int argc, char** argv)
{
    Task task;
    std::istringstream words(argv[2]);
    for (std::string word; std::getline(words, word, ':');) {
        task.words.push_back(word);
    }
    task.count = unsigned(std::stoul(argv[3]));
    task.marked = argc > 4 && std::strcmp(argv[4], "--mark") == 0;
    return task;
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc < 4) {
        std::cerr << usage;
        return 2;
    }
    Server server(argv[1]);
    const char* separator = "{";
    for (const auto& [name, value] : run(server, parse(argc, argv))) {
        std::cout << separator << '"' << name << "\": " << value;
        separator = ", ";
    }
    std::cout << "}\n";
    return 0;
} catch (const std::exception& error) {
    std::cerr << "bench-load: " << argv[2] << ": " << error.what() << '\n';
    return 1;
}
