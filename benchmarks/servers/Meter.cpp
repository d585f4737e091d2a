#include "Meter.h"

#include <ctime>
#include <malloc.h>
#include <valgrind/callgrind.h>

namespace {

std::uint64_t read(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return std::uint64_t(time.tv_sec) * 1000000000U + std::uint64_t(time.tv_nsec);
}

} // namespace

std::uint64_t Meter::processorTime()
{
    return read(CLOCK_PROCESS_CPUTIME_ID);
}

std::uint64_t Meter::now()
{
    return read(CLOCK_MONOTONIC);
}

std::uint64_t Meter::heap()
{
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void Meter::mark(const char* name)
{
    CALLGRIND_DUMP_STATS_AT(name);
}
