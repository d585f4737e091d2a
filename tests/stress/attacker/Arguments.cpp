#include "Arguments.h"

#include "Bus.h"

#include <cstdint>
#include <limits>
#include <string>

namespace attacker {

namespace {

template <typename... Values>
Append of(const char* signature, Values... values)
{
    return [=](sd_bus_message* message) {
        check(sd_bus_message_append(message, signature, values...), "append arguments");
    };
}

template <typename Number>
void addNumbers(std::vector<Append>& all, const char* type)
{
    using Limits = std::numeric_limits<Number>;
    for (const Number number :
         {Limits::min(), Number(-1), Number(0), Number(1), Number(100), Limits::max()}) {
        all.push_back(of("v", type, number));
    }
}

/** Variants in variants, as many as a message may hold. */
void appendNested(sd_bus_message* message)
{
    constexpr int depth = 60;
    for (int i = 0; i < depth; ++i) {
        check(sd_bus_message_open_container(message, 'v', i + 1 < depth ? "v" : "s"), "open a variant");
    }
    check(sd_bus_message_append(message, "s", "innermost"), "append");
    for (int i = 0; i < depth; ++i) {
        check(sd_bus_message_close_container(message), "close a variant");
    }
}

/** Options that carry the number, or whatever it is, as offset; for a write the bytes come first. */
Append options(const Append& value, bool forWrite)
{
    return [value, forWrite](sd_bus_message* message) {
        if (forWrite) {
            check(sd_bus_message_append(message, "ay", 3, 'n', 'e', 'w'), "append bytes");
        }
        check(sd_bus_message_open_container(message, 'a', "{sv}"), "open options");
        check(sd_bus_message_open_container(message, 'e', "sv"), "open an entry");
        check(sd_bus_message_append(message, "s", "offset"), "append a key");
        value(message);
        check(sd_bus_message_close_container(message), "close an entry");
        check(sd_bus_message_close_container(message), "close options");
    };
}

} // namespace

std::vector<Append> allNumbers()
{
    std::vector<Append> all;
    addNumbers<std::uint8_t>(all, "y");
    addNumbers<std::int16_t>(all, "n");
    addNumbers<std::uint16_t>(all, "q");
    addNumbers<std::int32_t>(all, "i");
    addNumbers<std::uint32_t>(all, "u");
    addNumbers<std::int64_t>(all, "x");
    addNumbers<std::uint64_t>(all, "t");
    for (const double number : {-1e300, -0.5, 1e300, std::numeric_limits<double>::quiet_NaN()}) {
        all.push_back(of("v", "d", number));
    }
    return all;
}

std::vector<Append> allArguments()
{
    const char* const name = "org.bluez.GattCharacteristic1";
    std::vector<Append> all{
        [](sd_bus_message*) {},
        of("s", ""),
        of("s", name),
        of("ss", name, "Value"),
        of("ss", "", "Service"),
        of("ss", "org.bluez.LEAdvertisement1", "Type"),
        of("sss", name, "Value", "x"),
        of("ssv", name, "Value", "s", "x"),
        of("ssv", name, "objectName", "ay", 2, 1, 2),
        of("i", -1),
        of("t", std::numeric_limits<std::uint64_t>::max()),
        of("ay", 4, 1, 2, 3, 4),
        of("ayay", 1, 1, 1, 1),
        of("a{sv}", 0),
        of("a{sv}s", 0, "surplus"),
        of("aya{sv}", 0, 0),
        of("aya{sv}i", 0, 0, 1),
        of("a{sv}ay", 0, 0),
        of("a{ss}", 1, "offset", "1"),
        of("a(sv)", 1, "offset", "i", 1),
        of("aai", 2, 1, 1, 0),
        of("(s(iay)o)", "x", 1, 1, 255, "/"),
        of("og", "/", "a{sv}"),
        appendNested,
    };
    std::vector<Append> values = allNumbers();
    values.push_back(of("v", "s", "100"));
    values.push_back(of("v", "as", 1, "x"));
    values.push_back(of("v", "a{sv}", 1, "offset", "i", 1));
    values.push_back(appendNested);
    for (const Append& value : values) {
        all.push_back(options(value, false));
        all.push_back(options(value, true));
    }
    return all;
}

} // namespace attacker
