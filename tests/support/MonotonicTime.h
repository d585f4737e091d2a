#pragma once

#include <QtGlobal>

#include <chrono>

/** Nanoseconds on the clock that all processes of a machine share. */
inline qint64 monotonicTime()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}
