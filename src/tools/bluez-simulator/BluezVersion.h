#pragma once

namespace simulator {

/** The daemon versions whose rules can be applied. */
enum class BluezVersion
{
    Bluez566,
    Bluez582
};

} // namespace simulator
