// Shared set-up of the fuzz targets: the tables once, a small hash table,
// and the engine's own output sent nowhere.
#pragma once

#include <cstdio>

#include "engine/engine.h"
#include "protocol/protocol.h"
#include "search/search.h"

namespace velkor::fuzz {

inline void start_once() {
    static bool started = false;
    if (started) return;
    started = true;
    if (!freopen("/dev/null", "w", stdout)) return;
    if (init_magics(0) != 0) __builtin_trap();
    tt_resize(1);
}

}  // namespace velkor::fuzz
