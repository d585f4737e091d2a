#pragma once

#include "Bus.h"

#include <string>
#include <vector>

namespace attacker {

/** What is done to a peripheral. Each leaves calls in flight; what it expects of answers it checks itself. */
struct Attack
{
    const char* name;
    void (*run)(Bus& bus);
};

const std::vector<Attack>& allAttacks();

/** Every object path of the peripheral, as its introspection data tells. */
std::vector<std::string> allPaths(Bus& bus);

/** Throws if the condition does not hold. */
void expect(bool condition, const std::string& what);

namespace Target {

/** The path of one of its characteristics. */
std::string path(const char* characteristic);
const char characteristicInterface[] = "org.bluez.GattCharacteristic1";
const char propertiesInterface[] = "org.freedesktop.DBus.Properties";

/** A read from the start. */
Call read(const std::string& path);
/** A write of this many bytes at an offset. */
Call write(const std::string& path, const std::string& bytes, int offset);

} // namespace Target

} // namespace attacker
