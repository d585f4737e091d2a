#pragma once

#include <QStringList>

namespace simulator {

/** What the simulated controller can broadcast. */
namespace AdvertisingLimits {

constexpr int MaximumLength = 31;
constexpr int MaximumInstances = 5;
constexpr uint MinimumIntervalMs = 20;
constexpr uint MaximumIntervalMs = 10485759; // 0xFFFFFF units of 0.625 ms
constexpr int MinimumTxPower = -127;
constexpr int MaximumTxPower = 20;

inline QStringList secondaryChannels()
{
    return {QStringLiteral("1M"), QStringLiteral("2M"), QStringLiteral("Coded")};
}

} // namespace AdvertisingLimits

} // namespace simulator
