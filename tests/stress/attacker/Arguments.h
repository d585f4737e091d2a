#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <vector>

namespace attacker {

using Append = std::function<void(sd_bus_message*)>;

/** Arguments of every kind, of which hardly any fits a given method. */
std::vector<Append> allArguments();

/** Each integer type with its smallest and largest value and some between, as a variant's contents. */
std::vector<Append> allNumbers();

} // namespace attacker
