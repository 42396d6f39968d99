#include <gtest/gtest.h>
#include "engine/engine.h"
TEST(Smoke, Start) { velkor::set_startpos(); EXPECT_EQ(velkor::board.states[0].key, 0x463B96181691FC9CULL); }
