// Sliding attacks by magic multiplication: one AND, one multiply, one shift
// and one table read per lookup. init_magics(0) fills the tables at start-up
// from the stored multipliers; init_magics(1) searches for new ones first and
// prints them. A build for processors with BMI2 (x86-64-v3) finds the index
// by pext instead, the occupancy's bits under the mask gathered in order:
// the same tables, filled by that index, and the same answers.
#pragma once

#if defined(__BMI2__)
#include <immintrin.h>
#endif

#include "engine/types.h"

namespace velkor {

extern uint64_t rook_magics[64];
extern uint64_t bishop_magics[64];
extern bitboard rook_masks[64];
extern bitboard bishop_masks[64];
extern int32_t rook_shifts[64];
extern int32_t bishop_shifts[64];
extern bitboard rook_table[64][4096];
extern bitboard bishop_table[64][512];

// Returns 0 on success, -1 when scratch memory could not be had.
int init_magics(int regenerate);
int init_rook_magics();
int init_bishop_magics();

// The slot of an occupancy in a square's block of the table.
inline uint64_t slider_index(bitboard occupancy, bitboard mask, [[maybe_unused]] uint64_t magic,
                             [[maybe_unused]] int shift) {
#if defined(__BMI2__)
    return _pext_u64(occupancy, mask);
#else
    return ((occupancy & mask) * magic) >> shift;
#endif
}

// Every square up to and including the first occupied one in each direction.
inline bitboard rook_attacks(bitboard occupancy, int square) {
    return rook_table[square][slider_index(occupancy, rook_masks[square], rook_magics[square], rook_shifts[square])];
}

inline bitboard bishop_attacks(bitboard occupancy, int square) {
    return bishop_table[square]
                       [slider_index(occupancy, bishop_masks[square], bishop_magics[square], bishop_shifts[square])];
}

inline bitboard queen_attacks(bitboard occupancy, int square) {
    return rook_attacks(occupancy, square) | bishop_attacks(occupancy, square);
}

}  // namespace velkor
