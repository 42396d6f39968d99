#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "engine/engine.h"
#include "support/support.h"

using namespace velkor;

// Every position of perft.epd at every depth whose total is within the leaf
// budget: 6 million, or VELKOR_PERFT_LEAVES (make perft-long counts them all).
TEST(Perft, TotalsFromDataFile) {
    const char* budget_text = getenv("VELKOR_PERFT_LEAVES");
    const uint64_t budget = budget_text ? std::stoull(budget_text) : 6000000;
    int counted = 0;
    for (const auto& r : test::records("perft.epd")) {
        test::load(r[0].c_str());
        for (size_t i = 1; i < r.size(); ++i) {
            std::istringstream field(r[i].substr(1));
            int depth = 0;
            uint64_t expected = 0;
            field >> depth >> expected;
            if (expected > budget) continue;
            EXPECT_EQ(perft_count(0, depth - 1), expected) << r[0] << " depth " << depth;
            EXPECT_EQ(board.ply, 0);
            ++counted;
        }
    }
    EXPECT_GT(counted, 100);
}

namespace {

// An independent slider: walk each direction square by square.
bitboard walk(int square, bitboard occupancy, bool rook) {
    static const int dirs[2][4][2] = {{{1, 1}, {1, -1}, {-1, 1}, {-1, -1}}, {{1, 0}, {-1, 0}, {0, 1}, {0, -1}}};
    bitboard set = 0;
    for (const auto& d : dirs[rook])
        for (int r = square / 8 + d[0], f = square % 8 + d[1]; r >= 0 && r < 8 && f >= 0 && f < 8;
             r += d[0], f += d[1]) {
            set |= 1ULL << (8 * r + f);
            if (occupancy & (1ULL << (8 * r + f))) break;
        }
    return set;
}

// Every square, many occupancies of varied density, against the walk.
void expect_lookups_match_walk() {
    uint64_t seed = 0x9E3779B97F4A7C15ULL;
    auto next = [&] { return seed ^= seed << 13, seed ^= seed >> 7, seed ^= seed << 17; };
    for (int square = 0; square < 64; ++square)
        for (int i = 0; i < 300; ++i) {
            const bitboard occ = next() & next() & (i % 3 ? next() : ~0ULL);
            ASSERT_EQ(rook_attacks(occ, square), walk(square, occ, true)) << square << " " << occ;
            ASSERT_EQ(bishop_attacks(occ, square), walk(square, occ, false)) << square << " " << occ;
        }
}

}  // namespace

TEST(Magics, LookupsMatchAWalk) {
    expect_lookups_match_walk();
    long slots[2] = {};  // table entries the masks ask for
    for (int s = 0; s < 64; ++s) slots[0] += 1L << (64 - rook_shifts[s]), slots[1] += 1L << (64 - bishop_shifts[s]);
    EXPECT_EQ(slots[0], 102400);
    EXPECT_EQ(slots[1], 5248);
}

// A fresh search (seeded by the calendar time) prints both sets and yields
// tables that agree with the walk; the stored multipliers are put back after.
TEST(Magics, RegeneratedMultipliersServeEqually) {
    uint64_t stored[2][64];
    memcpy(stored[0], rook_magics, sizeof rook_magics);
    memcpy(stored[1], bishop_magics, sizeof bishop_magics);
    const auto lines = test::split_lines(test::capture_stdout([] { ASSERT_EQ(init_magics(1), 0); }));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "Magic numbers for rooks :");
    EXPECT_EQ(lines[2], "Magic numbers for bishops :");
    for (int i : {1, 3})
        for (int k = 0; k < 64; ++k) EXPECT_EQ(lines[i].substr(20 * k + 18, 2), ", ");
    EXPECT_EQ(strtoull(lines[1].c_str(), nullptr, 16), rook_magics[0]);
    expect_lookups_match_walk();
    if (HasFailure()) ADD_FAILURE() << "with these multipliers:\n" << lines[1] << "\n" << lines[3];
    memcpy(rook_magics, stored[0], sizeof rook_magics);
    memcpy(bishop_magics, stored[1], sizeof bishop_magics);
    ASSERT_EQ(init_magics(0), 0);
}
