// The one clock of the engine: monotonic. Durations are taken in
// microseconds and only then cut to whole milliseconds, so that a run of a
// few microseconds never shows as 1 ms.
#pragma once

#include <cstdint>
#include <ctime>

namespace velkor {

#if defined(_WIN32)
// Windows: the performance counter, read in input.cpp so that <windows.h>
// stays out of the rest of the engine.
uint64_t clock_us();
#else
inline uint64_t clock_us() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return uint64_t(t.tv_sec) * 1000000 + uint64_t(t.tv_nsec) / 1000;
}
#endif

// Whole milliseconds since a reading of clock_us.
inline uint64_t ms_since(uint64_t start_us) { return (clock_us() - start_us) / 1000; }

// Nodes per second as the engine prints it: whole nodes per millisecond,
// times 1000, so always a multiple of 1000; 0 when no millisecond has passed.
constexpr uint64_t speed_nps(uint64_t nodes, uint64_t ms) { return ms == 0 ? 0 : nodes / ms * 1000; }

static_assert(speed_nps(1234567, 1000) == 1234000 && speed_nps(999, 1000) == 0 && speed_nps(5, 0) == 0);

}  // namespace velkor
