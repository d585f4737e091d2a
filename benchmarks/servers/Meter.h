#pragma once

#include <cstddef>
#include <cstdint>

/** What a process can measure of itself. */
namespace Meter {

/** Processor time of the whole process in nanoseconds. */
std::uint64_t processorTime();

/** Time that only goes forward, in nanoseconds. */
std::uint64_t now();

/** Bytes of the heap that are in use, as far as the main thread allocated them. */
std::uint64_t heap();

/**
 * Under callgrind: writes down what was counted since the last mark, under the name, and counts from zero
 * again. Nothing otherwise.
 */
void mark(const char* name);

/** What building some objects took and gave back. */
struct Costs
{
    std::uint64_t build = 0;   ///< processor time in ns
    std::uint64_t destroy = 0; ///< processor time in ns
    std::uint64_t heap = 0;    ///< bytes
};

/** The costs of build() and of destroy(); what only waits to be handled is gone after settle(). */
template <typename Build, typename Destroy, typename Settle>
Costs costs(Build build, Destroy destroy, Settle settle)
{
    Costs costs;
    settle();
    const std::uint64_t heapBefore = heap();
    mark("");
    const std::uint64_t begin = processorTime();
    build();
    const std::uint64_t built = processorTime();
    mark("build");
    settle();
    costs.heap = heap() - heapBefore;
    const std::uint64_t destroyBegin = processorTime();
    destroy();
    costs.destroy = processorTime() - destroyBegin;
    mark("destroy");
    costs.build = built - begin;
    return costs;
}

} // namespace Meter
