#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "search/search.h"
#include "support/support.h"

using namespace velkor;

// The operations of table.txt, one a line, on a 1 MB table; see the head of the file.
TEST(Table, ReferenceData) {
    auto key = [](int n) { return uint64_t(n + 1) << 40 | 0x40; };  // all in bucket 0x40
    auto bound = [](const std::string& b) { return b == "upper" ? TT_UPPER : b == "lower" ? TT_LOWER : TT_EXACT; };
    int checked = 0;
    for (const auto& r : test::records("table.txt")) {
        std::istringstream in(r[0]);
        std::string op, b, expected;
        int k = 0, depth = 0;
        int32_t alpha = 0, beta = 0;
        in >> op;
        if (op == "age" || op == "slot" || op == "used") tt_flush();  // raw state, past the store queue
        if (op == "new") test::capture_stdout([] { tt_resize(1); });
        if (op == "age") in >> tt_age;
        if (op == "older")
            for (int n = in >> n ? n : 1; n > 0; --n) tt_new_search();
        if (op == "clear") tt_clear();
        if (op == "store" && in >> k >> alpha >> depth >> b >> beta) tt_store(key(k), alpha, depth, bound(b), beta);
        if (op == "fill")
            for (uint32_t bucket = 0; bucket < 264; ++bucket)
                tt_store(uint64_t(bucket % 4 + 1) << 40 | bucket / 4 * 4, 0, 1, TT_EXACT, 1);
        std::string got;
        if (op == "probe" && in >> k >> depth >> alpha >> beta) {
            const int32_t score = tt_probe(key(k), depth, alpha, beta);
            got = score == TT_MISS ? "miss" : std::to_string(score);
        }
        if (op == "best" && in >> k) got = std::to_string(tt_best_move(key(k)));
        if (op == "pv" && in >> k) got = std::to_string(tt_pv_move(key(k)));
        if (op == "slot" && in >> k) got = std::to_string((tt_table[0x40 + k].tt_key >> 40) - 1);
        if (op == "used") got = std::to_string(tt_used);
        if (op == "hashfull") got = std::to_string(tt_hashfull());
        if (op == "mask") got = std::to_string(tt_mask);
        if (op == "current") got = std::to_string(tt_age);
        if (in >> b >> expected) {
            EXPECT_EQ(got, expected) << r[0];
            ++checked;
        }
    }
    EXPECT_GT(checked, 25);
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
