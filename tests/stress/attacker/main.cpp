// Starts stress-peripheral and has it attacked, or counts what it sends.
//
//   stress-attacker hostile SECONDS PERIPHERAL         SECONDS: the longest that an answer may take
//   stress-attacker volume COUNT BYTES PERIPHERAL      BYTES: what resident memory may grow by after warm-up

#include "Attacks.h"
#include "Peripheral.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

using namespace attacker;

namespace {

constexpr long heapSlack = 256 << 10; // caches of Qt and of the C library
// Caches grow with the most that was ever going on at once, and stop; a leak grows in each round.
constexpr int maximumRounds = 4;
constexpr long heapDuringAttacks = 160L << 20; // four values of 16 MiB, and the same as read last

std::string text(const Peripheral::Figures& figures)
{
    std::string line;
    for (const auto& [name, value] : figures) {
        line += name + ' ' + std::to_string(value) + ' ';
    }
    return line;
}

/** Once it has handled what clients that are gone had asked for, everything is built anew. */
Peripheral::Figures idleFigures(Peripheral& peripheral)
{
    Peripheral::Figures figures = peripheral.rebuild();
    for (long objects = -1; objects != figures.at("objects");) {
        objects = figures.at("objects");
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // calls that nobody waits for
        figures = peripheral.rebuild();
    }
    return figures;
}

bool hasGrown(const Peripheral::Figures& before, const Peripheral::Figures& after)
{
    return after.at("heap") > before.at("heap") + heapSlack;
}

/** Throws if memory, objects, descriptors or watchers have become more. */
void expectSame(const Peripheral::Figures& before, const Peripheral::Figures& after)
{
    std::printf("before: %s\nafter:  %s\n", text(before).c_str(), text(after).c_str());
    expect(!hasGrown(before, after), "the heap has grown");
    for (const char* name : {"objects", "descriptors", "watchers"}) {
        expect(after.at(name) == before.at(name), std::string(name) + " have become more");
    }
}

void attackOnce(Bus& bus, Peripheral& peripheral, double seconds)
{
    std::printf("%-34s %8s %8s %8s %10s %10s\n", "attack", "answers", "errors", "none", "slowest ms",
                "heap kB");
    for (const Attack& attack : allAttacks()) {
        peripheral.rebuild();
        bus.answers = bus.errors = bus.unanswered = 0;
        bus.slowest = 0;
        attack.run(bus);
        bus.drain();
        const long heap = peripheral.figures().at("heap");
        std::printf("%-34s %8ld %8ld %8ld %10.1f %10ld\n", attack.name, bus.answers, bus.errors,
                    bus.unanswered, bus.slowest * 1000, heap / 1024);
        std::fflush(stdout);
        expect(bus.unanswered == 0, "calls without an answer");
        expect(bus.slowest <= seconds, "an answer took too long");
        expect(heap <= heapDuringAttacks, "memory without bounds");
    }
}

int hostile(double seconds, const std::string& program)
{
    Peripheral peripheral(program);
    {
        Bus bus(peripheral.name());
        Peripheral::Figures before;
        Peripheral::Figures after;
        for (int round = 0; round < maximumRounds && (round < 2 || hasGrown(before, after)); ++round) {
            attackOnce(bus, peripheral, seconds);
            before = after;
            after = idleFigures(peripheral);
        }
        expectSame(before, after);
    }
    expect(peripheral.end(), "the peripheral did not end well");
    return 0;
}

/** Each carries its number, and the last one is known: nothing can be lost, doubled or swapped unseen. */
class Volume
{
public:
    Volume(Bus& bus, Peripheral& peripheral) : m_bus(bus), m_peripheral(peripheral)
    {
        bus.match("type='signal',interface='org.freedesktop.DBus.Properties',path='" +
                      Target::path("notified") + "'",
                  [this](sd_bus_message* message) { onNotified(message); });
        sd_bus_message_unref(
            bus.ask({Target::path("notified"), Target::characteristicInterface, "StartNotify"}));
    }

    /** @return the process's figures afterwards */
    Peripheral::Figures run(long count)
    {
        constexpr long batch = 500;
        for (const long end = m_reads + count; m_reads < end;) {
            const long size = std::min(batch, end - m_reads);
            const long last = m_notifications + size;
            m_bus.send(Target::write(Target::path("more"), std::to_string(size), 0));
            for (long i = 0; i < size; ++i) {
                m_bus.send(Target::read(Target::path("counted")), [this](sd_bus_message* message) {
                    const void* bytes = nullptr;
                    std::size_t length = 0;
                    check(sd_bus_message_read_array(message, 'y', &bytes, &length), "read a value");
                    expectNumber(bytes, length, ++m_reads);
                });
            }
            m_bus.drain();
            m_bus.until([this, last] { return m_notifications == last; });
        }
        return m_peripheral.figures();
    }

private:
    void onNotified(sd_bus_message* message)
    {
        const char* interface = nullptr;
        const char* name = nullptr;
        const void* bytes = nullptr;
        std::size_t length = 0;
        check(sd_bus_message_read(message, "s", &interface), "read an interface");
        check(sd_bus_message_enter_container(message, 'a', "{sv}"), "enter the properties");
        check(sd_bus_message_enter_container(message, 'e', "sv"), "enter a property");
        check(sd_bus_message_read(message, "s", &name), "read a name");
        check(sd_bus_message_enter_container(message, 'v', "ay"), "enter a value");
        check(sd_bus_message_read_array(message, 'y', &bytes, &length), "read a value");
        expectNumber(bytes, length, ++m_notifications);
    }

    static void expectNumber(const void* bytes, std::size_t length, long number)
    {
        const std::string text(static_cast<const char*>(bytes), length);
        expect(text == std::to_string(number), "expected number " + std::to_string(number) + ", got " + text);
    }

    Bus& m_bus;
    Peripheral& m_peripheral;
    long m_reads = 0;
    long m_notifications = 0;
};

int volume(long count, long bytes, const std::string& program)
{
    Peripheral peripheral(program);
    {
        Bus bus(peripheral.name());
        Volume numbers(bus, peripheral);
        const Peripheral::Figures before = numbers.run(std::max(count / 10, 5000L)); // warm-up
        const Peripheral::Figures after = numbers.run(count);
        std::printf("%ld reads and %ld notifications, none lost, repeated or out of order\n", count, count);
        expect(after.at("resident") <= before.at("resident") + bytes, "resident memory has grown");
        expectSame(before, after);
    }
    expect(peripheral.end(), "the peripheral did not end well");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    std::signal(SIGPIPE, SIG_IGN); // a peripheral that is gone is told of, not died of
    try {
        if (arguments.size() == 3 && arguments[0] == "hostile") {
            return hostile(std::stod(arguments[1]), arguments[2]);
        }
        if (arguments.size() == 4 && arguments[0] == "volume") {
            return volume(std::stol(arguments[1]), std::stol(arguments[2]), arguments[3]);
        }
        std::fprintf(stderr,
                     "usage: stress-attacker hostile SECONDS PERIPHERAL | volume COUNT BYTES PERIPHERAL\n");
        return 2;
    } catch (const std::exception& error) {
        std::printf("FAILED: %s\n", error.what());
        return 1;
    }
}
