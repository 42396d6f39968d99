// Basic types of the engine: squares, bitboards, piece codes and the move word.
#pragma once

#include <bit>
#include <cstdint>

namespace velkor {

// A set of squares: bit n is square n (a1 = 0, h1 = 7, a8 = 56, h8 = 63).
using bitboard = uint64_t;

// The 32-bit move word; its integer value is also its ordering key.
using move_t = uint32_t;

enum : int { NO_PIECE = 0, PAWN = 1, KNIGHT = 2, BISHOP = 3, ROOK = 4, QUEEN = 5, KING = 6 };

inline constexpr int piece_value[7] = {0, 100, 300, 300, 500, 900, 0};

// The letters of the piece codes, black's then white's, as FEN writes them;
// NO_PIECE has '.'. The row is chosen by a side's is_white.
inline constexpr char PIECE_LETTERS[2][8] = {".pnbrqk", ".PNBRQK"};

static_assert(PIECE_LETTERS[0][KNIGHT] == 'n' && PIECE_LETTERS[1][KING] == 'K');

inline constexpr int MAX_DEPTH = 64;
inline constexpr int MAX_MOVES = 512;
inline constexpr int STATE_STACK_SIZE = 1024;

enum : uint32_t { GENERATE_ALL = 0, GENERATE_CAPTURES = 1 };

// Move word layout, from bit 0 up:
//   0-5 to, 6-11 from, 12-14 moved (7 - piece code), 15 second killer,
//   16 first killer, 17-19 captured, 20-22 promotion, 28 direct check,
//   29 discovered check, 30 hash move. Bits 23-27 and 31 are always 0.
// Comparing two words as integers ranks them as move ordering wants.
inline constexpr move_t MOVE_KILLER_2 = 1u << 15;
inline constexpr move_t MOVE_KILLER_1 = 1u << 16;
inline constexpr move_t MOVE_CHECK = 1u << 28;
inline constexpr move_t MOVE_DISCOVERED = 1u << 29;
inline constexpr move_t MOVE_HASH = 1u << 30;
inline constexpr move_t MOVE_STRIP = 0x3FFE7FFF;  // clears the three search-only order bits

static_assert(MOVE_STRIP == ~(MOVE_HASH | MOVE_KILLER_1 | MOVE_KILLER_2 | (1u << 31)));
static_assert((MOVE_CHECK | MOVE_DISCOVERED | MOVE_HASH) >> 28 == 7, "order bits sit at the top");

constexpr int move_to(move_t m) { return int(m & 63); }
constexpr int move_from(move_t m) { return int((m >> 6) & 63); }
constexpr int move_moved(move_t m) { return int(~(m >> 12) & 7); }
constexpr int move_captured(move_t m) { return int((m >> 17) & 7); }
constexpr int move_promotion(move_t m) { return int((m >> 20) & 7); }

constexpr move_t make_word(int from, int to, int piece, int captured = 0, int promotion = 0) {
    return move_t(to) | move_t(from) << 6 | move_t(7 - piece) << 12 | move_t(captured) << 17 | move_t(promotion) << 20;
}

static_assert(move_moved(make_word(12, 28, PAWN)) == PAWN && move_moved(make_word(4, 6, KING)) == KING);
static_assert(make_word(0, 0, PAWN) > make_word(0, 0, KNIGHT), "the cheaper attacker sorts first");

constexpr bitboard square_bit(int square) { return bitboard(1) << square; }
constexpr int rank_of(int square) { return square >> 3; }
constexpr int file_of(int square) { return square & 7; }

inline int popcount(bitboard b) { return std::popcount(b); }
inline int lowest_square(bitboard b) { return std::countr_zero(b); }
// Takes the lowest square out of the set and returns it.
inline int pop_square(bitboard& b) {
    int s = std::countr_zero(b);
    b &= b - 1;
    return s;
}

}  // namespace velkor
