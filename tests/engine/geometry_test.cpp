#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "engine/engine.h"
#include "support/support.h"

using namespace velkor;

namespace {

constexpr int sq(const char* name) { return (name[0] - 'a') + 8 * (name[1] - '1'); }

// An independent slider: walk each direction square by square.
bitboard walk(int square, bitboard occupancy, bool rook) {
    static const int dirs[2][4][2] = {{{1, 1}, {1, -1}, {-1, 1}, {-1, -1}}, {{1, 0}, {-1, 0}, {0, 1}, {0, -1}}};
    bitboard set = 0;
    for (const auto& d : dirs[rook]) {
        for (int r = square / 8 + d[0], f = square % 8 + d[1]; r >= 0 && r < 8 && f >= 0 && f < 8;
             r += d[0], f += d[1]) {
            set |= 1ULL << (8 * r + f);
            if (occupancy & (1ULL << (8 * r + f))) break;
        }
    }
    return set;
}

uint64_t xorshift(uint64_t& s) {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
}

// Every square, many occupancies of varied density, against the walk.
void expect_lookups_match_walk() {
    uint64_t seed = 0x9E3779B97F4A7C15ULL;
    for (int square = 0; square < 64; ++square)
        for (int i = 0; i < 300; ++i) {
            bitboard occ = xorshift(seed) & xorshift(seed) & (i % 3 ? xorshift(seed) : ~0ULL);
            ASSERT_EQ(rook_attacks(occ, square), walk(square, occ, true)) << square << " " << occ;
            ASSERT_EQ(bishop_attacks(occ, square), walk(square, occ, false)) << square << " " << occ;
        }
}

}  // namespace

TEST(Geometry, ReferenceEntries) {
    EXPECT_EQ(king_attacks[sq("a1")], 0x302u);
    EXPECT_EQ(knight_attacks[sq("d4")], 0x142200221400u);
    EXPECT_EQ(white_pawn_attacks[sq("a1")], 0x200u);
    EXPECT_EQ(black_pawn_attacks[sq("h8")], 0x40000000000000u);
    EXPECT_EQ(white_pawn_attacks[sq("h8")], 0u);
    EXPECT_EQ(black_pawn_attacks[sq("a1")], 0u);
    EXPECT_EQ(rook_rays[sq("d4")], 0x8080808f7080808u);
    EXPECT_EQ(bishop_rays[sq("d4")], 0x8041221400142241u);
    EXPECT_EQ(queen_rays[sq("d4")], 0x88492a1cf71c2a49u);
    EXPECT_EQ(file_above[sq("e2")], 0x1010101010100000u);
    EXPECT_EQ(file_below[sq("e7")], 0x101010101010u);
    EXPECT_EQ(span_above[sq("e5")], 0x3838380000000000u);
    EXPECT_EQ(span_below[sq("a8")], 0x3030303030303u);
    EXPECT_EQ(line_bits[sq("e4")], 0x8000401008u);
    EXPECT_EQ(adjacent_files[0], file_masks[1]);
    EXPECT_EQ(adjacent_files[4], file_masks[3] | file_masks[5]);
    const int centre_rank_4[8] = {0, 2, 5, 6, 6, 5, 2, 0}, rank_7[8] = {0, 2, 2, 2, 2, 2, 2, 0};
    for (int f = 0; f < 8; ++f) {
        EXPECT_EQ(centre_weight[24 + f], centre_rank_4[f]);
        EXPECT_EQ(centre_weight[48 + f], rank_7[f]);
        EXPECT_EQ(centre_weight[f], 0);
    }
}

// Two squares share a line bit exactly when they share a rank, file or
// diagonal, and then exactly one; three share one when all are on it.
TEST(Geometry, LineBitsMatchCoordinates) {
    for (int a = 0; a < 64; ++a)
        for (int b = 0; b < 64; ++b) {
            if (a == b) continue;
            const int dr = b / 8 - a / 8, df = b % 8 - a % 8;
            const bool aligned = dr == 0 || df == 0 || dr == df || dr == -df;
            EXPECT_EQ(popcount(line_bits[a] & line_bits[b]), aligned ? 1 : 0) << a << " " << b;
        }
    EXPECT_NE(line_bits[sq("a1")] & line_bits[sq("e5")] & line_bits[sq("h8")], 0u);
    EXPECT_EQ(line_bits[sq("a1")] & line_bits[sq("e5")] & line_bits[sq("h7")], 0u);
}

TEST(Magics, MasksAndShifts) {
    EXPECT_EQ(rook_masks[sq("a1")], 0x101010101017eu);
    EXPECT_EQ(rook_masks[sq("d4")], 0x8080876080800u);
    EXPECT_EQ(bishop_masks[sq("a1")], 0x40201008040200u);
    EXPECT_EQ(bishop_masks[sq("d4")], 0x40221400142200u);
    long rook_slots = 0, bishop_slots = 0;
    for (int s = 0; s < 64; ++s) {
        EXPECT_EQ(rook_shifts[s], 64 - popcount(rook_masks[s]));
        EXPECT_EQ(bishop_shifts[s], 64 - popcount(bishop_masks[s]));
        rook_slots += 1L << popcount(rook_masks[s]);
        bishop_slots += 1L << popcount(bishop_masks[s]);
    }
    EXPECT_EQ(rook_slots, 102400);
    EXPECT_EQ(bishop_slots, 5248);
}

TEST(Magics, Lookups) {
    for (int s = 0; s < 64; ++s) {
        EXPECT_EQ(rook_attacks(0, s), rook_rays[s]);
        EXPECT_EQ(bishop_attacks(0, s), bishop_rays[s]);
    }
    EXPECT_EQ(rook_attacks(~0ULL, sq("d4")), 0x814080000u);
    EXPECT_EQ(bishop_attacks(~0ULL, sq("d4")), 0x1400140000u);
    EXPECT_EQ(rook_attacks(square_bit(sq("c1")) | square_bit(sq("a3")), sq("a1")), 0x10106u);
    EXPECT_EQ(rook_attacks(square_bit(sq("h1")), sq("a1")), rook_attacks(0, sq("a1")));
    expect_lookups_match_walk();
}

// A fresh search prints both sets and yields tables that agree with the walk.
TEST(Magics, RegeneratedMultipliersServeEqually) {
    std::string out = test::capture_stdout([] { ASSERT_EQ(init_magics(1), 0); });
    auto lines = test::split_lines(out);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "Magic numbers for rooks :");
    EXPECT_EQ(lines[2], "Magic numbers for bishops :");
    for (int i : {1, 3}) {
        ASSERT_EQ(lines[i].size(), 64u * 20u);
        for (int k = 0; k < 64; ++k) {
            EXPECT_EQ(lines[i].substr(20 * k, 2), "0x");
            EXPECT_EQ(lines[i].substr(20 * k + 18, 2), ", ");
        }
    }
    EXPECT_EQ(strtoull(lines[1].c_str(), nullptr, 16), rook_magics[0]);
    expect_lookups_match_walk();
}
