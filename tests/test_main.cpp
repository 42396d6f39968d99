#include <cstdio>

#include <gtest/gtest.h>

#include "engine/engine.h"
#include "search/search.h"

// The attack tables and a small hash table are made once for the whole test
// program, as at start-up. The engine reads standard input during searches:
// here it gets none.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!freopen("/dev/null", "r", stdin) || velkor::init_magics(0) != 0) return 1;
    velkor::tt_resize(1);
    velkor::set_startpos();
    return RUN_ALL_TESTS();
}
