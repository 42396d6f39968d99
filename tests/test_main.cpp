#include <gtest/gtest.h>

#include "engine/engine.h"

// The attack tables are built once for the whole test program, as at start-up.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (velkor::init_magics(0) != 0) return 1;
    velkor::set_startpos();
    return RUN_ALL_TESTS();
}
