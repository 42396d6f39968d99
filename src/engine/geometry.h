// Constant board geometry: every question about where a piece attacks on an
// empty board, what lies ahead of a pawn, or whether squares share a line, is
// one indexed read. All tables are built by the compiler.
#pragma once

#include <algorithm>
#include <array>

#include "engine/types.h"

namespace velkor {

namespace geometry_detail {

constexpr bool on_board(int rank, int file) { return rank >= 0 && rank < 8 && file >= 0 && file < 8; }

// The squares reached by single steps (dr, df) from each square.
template <size_t N>
constexpr std::array<bitboard, 64> step_table(const int (&steps)[N][2]) {
    std::array<bitboard, 64> t{};
    for (int s = 0; s < 64; ++s)
        for (const auto& d : steps)
            if (on_board(rank_of(s) + d[0], file_of(s) + d[1]))
                t[s] |= square_bit(8 * (rank_of(s) + d[0]) + file_of(s) + d[1]);
    return t;
}

// The squares reached by sliding (dr, df) from each square to the edge.
constexpr std::array<bitboard, 64> ray_table(const int (&dirs)[4][2]) {
    std::array<bitboard, 64> t{};
    for (int s = 0; s < 64; ++s)
        for (const auto& d : dirs)
            for (int r = rank_of(s) + d[0], f = file_of(s) + d[1]; on_board(r, f); r += d[0], f += d[1])
                t[s] |= square_bit(8 * r + f);
    return t;
}

// The squares of files file-w..file+w strictly above (up) or below the square.
constexpr std::array<bitboard, 64> front_table(int width, bool up) {
    std::array<bitboard, 64> t{};
    for (int s = 0; s < 64; ++s)
        for (int r = 0; r < 8; ++r)
            for (int f = file_of(s) - width; f <= file_of(s) + width; ++f)
                if (on_board(r, f) && (up ? r > rank_of(s) : r < rank_of(s))) t[s] |= square_bit(8 * r + f);
    return t;
}

inline constexpr int knight_steps[8][2] = {{1, 2}, {1, -2}, {-1, 2}, {-1, -2}, {2, 1}, {2, -1}, {-2, 1}, {-2, -1}};
inline constexpr int king_steps[8][2] = {{1, 1}, {1, 0}, {1, -1}, {0, 1}, {0, -1}, {-1, 1}, {-1, 0}, {-1, -1}};
inline constexpr int white_pawn_steps[2][2] = {{1, -1}, {1, 1}};
inline constexpr int black_pawn_steps[2][2] = {{-1, -1}, {-1, 1}};
inline constexpr int rook_dirs[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
inline constexpr int bishop_dirs[4][2] = {{1, 1}, {1, -1}, {-1, 1}, {-1, -1}};

}  // namespace geometry_detail

inline constexpr auto knight_attacks = geometry_detail::step_table(geometry_detail::knight_steps);
inline constexpr auto king_attacks = geometry_detail::step_table(geometry_detail::king_steps);
inline constexpr auto white_pawn_attacks = geometry_detail::step_table(geometry_detail::white_pawn_steps);
inline constexpr auto black_pawn_attacks = geometry_detail::step_table(geometry_detail::black_pawn_steps);
inline constexpr auto rook_rays = geometry_detail::ray_table(geometry_detail::rook_dirs);
inline constexpr auto bishop_rays = geometry_detail::ray_table(geometry_detail::bishop_dirs);
inline constexpr auto queen_rays = [] {
    std::array<bitboard, 64> t{};
    for (int s = 0; s < 64; ++s) t[s] = rook_rays[s] | bishop_rays[s];
    return t;
}();
inline constexpr auto file_below = geometry_detail::front_table(0, false);
inline constexpr auto file_above = geometry_detail::front_table(0, true);
inline constexpr auto span_below = geometry_detail::front_table(1, false);
inline constexpr auto span_above = geometry_detail::front_table(1, true);

inline constexpr auto file_masks = [] {
    std::array<bitboard, 8> t{};
    for (int f = 0; f < 8; ++f) t[f] = 0x0101010101010101ULL << f;
    return t;
}();

// Everything but the a file and everything but the h file: a set shifted
// one file sideways is masked with the file it must not wrap onto.
inline constexpr bitboard NOT_A_FILE = ~file_masks[0];
inline constexpr bitboard NOT_H_FILE = ~file_masks[7];

// Each square of the set spread to the end of its file, upwards or
// downwards, and to the whole file.
constexpr bitboard fill_up(bitboard b) {
    b |= b << 8;
    b |= b << 16;
    return b | b << 32;
}
constexpr bitboard fill_down(bitboard b) {
    b |= b >> 8;
    b |= b >> 16;
    return b | b >> 32;
}
constexpr bitboard fill_files(bitboard b) { return fill_up(fill_down(b)); }

// A set moved one rank back against the way the pawns of a colour go; what
// leaves the board is lost.
constexpr bitboard pawn_backward(bitboard b, bool white) { return white ? b >> 8 : b << 8; }

// The squares the pawns of a colour on the set attack.
constexpr bitboard pawn_attack_set(bitboard pawns, bool white) {
    return white ? ((pawns << 7) & NOT_H_FILE) | ((pawns << 9) & NOT_A_FILE)
                 : ((pawns >> 9) & NOT_H_FILE) | ((pawns >> 7) & NOT_A_FILE);
}

// The squares of a rank, 0 (the first) to 7.
constexpr bitboard rank_mask(int rank) { return 0xFFULL << (8 * rank); }

inline constexpr auto adjacent_files = [] {
    std::array<bitboard, 8> t{};
    for (int f = 0; f < 8; ++f) t[f] = (f > 0 ? file_masks[f - 1] : 0) | (f < 7 ? file_masks[f + 1] : 0);
    return t;
}();

// One bit for each of the four lines through a square: rank (0-7), file
// (8-15), a1-h8 diagonal (16-30), a8-h1 diagonal (32-46). Three squares stand
// on one line exactly when the AND of their entries is not 0.
inline constexpr auto line_bits = [] {
    std::array<uint64_t, 64> t{};
    for (int s = 0; s < 64; ++s) {
        int r = rank_of(s), f = file_of(s);
        t[s] = 1ULL << r | 1ULL << (8 + f) | 1ULL << (16 + 7 + r - f) | 1ULL << (32 + r + f);
    }
    return t;
}();

// The squares strictly between two squares on one rank, file or diagonal;
// empty for squares on no common line and for neighbours.
inline constexpr auto between_squares = [] {
    std::array<std::array<bitboard, 64>, 64> t{};
    constexpr int dirs[8][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}, {1, 1}, {1, -1}, {-1, 1}, {-1, -1}};
    for (int a = 0; a < 64; ++a)
        for (const auto& d : dirs) {
            bitboard path = 0;
            for (int r = rank_of(a) + d[0], f = file_of(a) + d[1]; geometry_detail::on_board(r, f);
                 r += d[0], f += d[1]) {
                t[a][8 * r + f] = path;
                path |= square_bit(8 * r + f);
            }
        }
    return t;
}();

// Grows towards the centre: 0 on the edge, 2, 5, then 6 on the four centre squares.
inline constexpr auto centre_weight = [] {
    std::array<int8_t, 64> t{};
    constexpr int8_t ring[4] = {0, 2, 5, 6};
    for (int s = 0; s < 64; ++s) {
        int r = rank_of(s), f = file_of(s);
        int d = std::min(std::min(r, 7 - r), std::min(f, 7 - f));
        t[s] = ring[d];
    }
    return t;
}();

static_assert(king_attacks[0] == 0x302);
static_assert(knight_attacks[27] == 0x142200221400ULL);
static_assert(queen_rays[27] == 0x88492a1cf71c2a49ULL);
static_assert(between_squares[0][63] == 0x0040201008040200ULL && between_squares[4][60] == 0x0010101010101000ULL &&
              between_squares[0][1] == 0 && between_squares[0][10] == 0);
static_assert(line_bits[0] == 0x100800101ULL && line_bits[63] == 0x400000808080ULL);

}  // namespace velkor
