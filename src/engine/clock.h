// The one clock of the engine: monotonic, in milliseconds.
#pragma once

#include <cstdint>
#include <ctime>

namespace velkor {

inline uint64_t clock_ms() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return uint64_t(t.tv_sec) * 1000 + uint64_t(t.tv_nsec) / 1000000;
}

}  // namespace velkor
