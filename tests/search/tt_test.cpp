#include <gtest/gtest.h>

#include "search/search.h"
#include "support/support.h"

#include <sys/resource.h>

#include <cstdlib>

using namespace velkor;

namespace {

// A fresh 1 MB table for each test; keys that share a bucket differ above bit 31.
class Table : public testing::Test {
   protected:
    void SetUp() override { test::capture_stdout([] { tt_resize(1); }); }
    static uint64_t key(int n, uint32_t bucket = 0x40) { return uint64_t(n + 1) << 40 | bucket; }
};

}  // namespace

TEST_F(Table, Sizes) {
    EXPECT_EQ(tt_entries, 65536u);
    EXPECT_EQ(tt_mask, 65532u);
    EXPECT_EQ(tt_hashfull(), 0);
    for (int bad : {65537, 0, -1, 3})
        EXPECT_EQ(test::capture_stdout([&] { tt_resize(bad); }),
                  "info debug Creation of Transposition Table (" + std::to_string(bad) +
                      " MB) : size reset to default\n"
                      "info debug Creation of Transposition Table (128 MB) : success\n");
    EXPECT_EQ(tt_entries, 128u * 65536u);
    EXPECT_EQ(tt_mask, 0x7FFFFCu);
}

TEST_F(Table, ScoreEncoding) {
    for (int32_t score : {0, 1, 30000, -1, -30000, -5}) {
        tt_store(key(0), score, 5, TT_EXACT, 0);
        EXPECT_EQ(tt_probe(key(0), 5, -SCORE_INF, SCORE_INF), score);
    }
    EXPECT_EQ(tt_table[0x40].tt_data >> 32 & 0xFFFF, 0x8005u) << "-5: sign bit and magnitude";
}

TEST_F(Table, ProbesAskForAgeAndDepth) {
    tt_store(key(0), 50, 6, TT_LOWER, 1234);
    EXPECT_EQ(tt_probe(key(0), 6, 0, 50), 50) << "beta at the lower bound";
    EXPECT_EQ(tt_probe(key(0), 6, 0, 51), TT_MISS);
    EXPECT_EQ(tt_probe(key(0), 7, 0, 50), TT_MISS) << "stored depth below the asked one";
    tt_store(key(1), -20, 6, TT_UPPER, 0);
    EXPECT_EQ(tt_probe(key(1), 3, -20, 0), -20);
    EXPECT_EQ(tt_probe(key(1), 3, -21, 0), TT_MISS);
    EXPECT_EQ(tt_pv_move(key(0)), 1234u);
    tt_new_search();
    EXPECT_EQ(tt_probe(key(0), 1, 0, 50), TT_MISS) << "an older age gives no score";
    EXPECT_EQ(tt_best_move(key(0)), 1234u) << "but its move still orders";
    EXPECT_EQ(tt_pv_move(key(0)), 0u);
    EXPECT_EQ(tt_best_move(key(5)), 0u);
}

TEST_F(Table, SameKeyStores) {
    tt_store(key(0), 10, 10, TT_EXACT, 111);
    tt_store(key(0), 20, 9, TT_LOWER, 222);
    EXPECT_EQ(tt_best_move(key(0)), 111u) << "lower bound and lower depth: refused";
    tt_store(key(0), 30, 10, TT_LOWER, 333);
    EXPECT_EQ(tt_best_move(key(0)), 333u) << "equal depth goes through";
    tt_store(key(0), 40, 3, TT_EXACT, 0);
    EXPECT_EQ(tt_best_move(key(0)), 0u) << "equal bound goes through, and a move of 0 wipes the old one";
    tt_store(key(0), 50, 64, TT_EXACT, 555);
    EXPECT_EQ(tt_best_move(key(0)), 0u) << "depth 64 is not stored";
    tt_new_search();
    tt_store(key(0), 60, 1, TT_UPPER, 666);
    EXPECT_EQ(tt_best_move(key(0)), 666u) << "a newer age always goes through";
    EXPECT_EQ(tt_used, 1u);
}

TEST_F(Table, Replacement) {
    // Fill a bucket at age 10: values (256 - distance) x 256 + bound x 64 + depth.
    for (int i = 0; i < 10; ++i) tt_new_search();
    tt_store(key(0), 0, 5, TT_EXACT, 1);   // 65536 + 192 + 5 = 65733
    tt_store(key(1), 0, 7, TT_EXACT, 2);   // 65735
    tt_store(key(2), 0, 9, TT_EXACT, 3);   // 65737
    tt_age = 9;
    tt_store(key(3), 0, 20, TT_UPPER, 4);  // at age 10: 65280 + 64 + 20 = 65364
    tt_age = 10;
    EXPECT_EQ(tt_used, 4u);
    tt_store(key(4), 0, 1, TT_UPPER, 5);
    EXPECT_EQ(tt_best_move(key(3)), 0u) << "the older entry goes first despite its depth";
    EXPECT_EQ(tt_table[0x43].tt_key, key(4));
    EXPECT_EQ(tt_used, 4u) << "replacing a full entry adds nothing";
    // Now key(4) has the least value (bound 1, depth 1); then key(0).
    tt_store(key(5), 0, 5, TT_EXACT, 6);
    EXPECT_EQ(tt_table[0x43].tt_key, key(5));
    tt_store(key(6), 0, 5, TT_EXACT, 7);
    EXPECT_EQ(tt_table[0x40].tt_key, key(6)) << "of equal values the first in the bucket";
    // Distance across the wrap: age 250 seen from age 2 is 8 old, and goes before age 1.
    tt_clear();
    tt_age = 250;
    tt_store(key(0), 0, 30, TT_EXACT, 1);
    tt_age = 1;
    for (int i = 1; i < 4; ++i) tt_store(key(i), 0, 1, TT_UPPER, 1);
    tt_age = 2;
    tt_store(key(9), 0, 1, TT_UPPER, 1);
    EXPECT_EQ(tt_table[0x40].tt_key, key(9));
}

TEST_F(Table, HashfullAndClear) {
    tt_store(key(0), 0, 1, TT_EXACT, 1);
    EXPECT_EQ(tt_hashfull(), 0) << "1 of 65536";
    for (uint32_t b = 0; b < 66; ++b)
        for (int i = 0; i < 4; ++i) tt_store(key(i, b * 4), 0, 1, TT_EXACT, 1);
    EXPECT_EQ(tt_used, 264u);
    EXPECT_EQ(tt_hashfull(), 4);
    tt_new_search();
    tt_clear();
    EXPECT_EQ(tt_used, 0u);
    EXPECT_EQ(tt_age, 0u);
    EXPECT_EQ(tt_best_move(key(0)), 0u);
}

#if !defined(__SANITIZE_ADDRESS__)
// With no memory at all even 1 MB fails: the failure line, then the halt.
// The dying child first takes up whatever the heap still has free.
TEST(TableDeathTest, HaltsWhenNotEvenOneMegabyteCanBeHad) {
    EXPECT_EXIT(
        {
            tt_free();
            rlimit none = {};
            setrlimit(RLIMIT_AS, &none);
            for (void* volatile taken = malloc(1 << 16); taken != nullptr;) taken = malloc(1 << 16);
            tt_resize(1);
        },
        testing::ExitedWithCode(1), "");
}
#endif
