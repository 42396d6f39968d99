#include "engine/engine.h"
#include "evaluation/evaluation.h"

namespace velkor {

namespace {

constexpr bitboard beside(bitboard b) { return (b << 1 & NOT_A_FILE) | (b >> 1 & NOT_H_FILE); }

// Both sides' pawns spread to the ends of their files, downwards and
// upwards: every set below is made from these four fills.
struct pawn_fills_t {
    bitboard white_down, white_up, black_down, black_up;
};

pawn_fills_t pawn_fills() {
    const bitboard w = white.pieces[PAWN], b = black.pieces[PAWN];
    return {fill_down(w), fill_up(w), fill_down(b), fill_up(b)};
}

// Doubled, passed and isolated pawns. Of two pawns on a file only the rear
// one is doubled, and only the front one can be passed or isolated. The
// three kinds are found for all pawns at once as sets: a pawn is doubled
// when an own pawn stands on its file ahead of it, passed when no enemy pawn
// stands ahead of it on its file or the files beside it, isolated when no
// own pawn stands on the files beside it. (A fill shifted one rank on is
// the fill of the pawns shifted one rank on, and it commutes with
// `beside`.)
int32_t side_pawn_score(const side_t& side, const pawn_fills_t& f) {
    const bitboard pawns = side.pieces[PAWN];
    if (!pawns) return 0;
    const bool up = side.is_white;
    const bitboard behind_own = pawn_backward(up ? f.white_down : f.black_up, up);
    const bitboard enemy_towards = up ? f.black_down : f.white_up;  // enemy pawns spread towards this side
    const bitboard enemy_spans = enemy_towards | beside(enemy_towards);
    const bitboard behind_enemy = pawn_backward(enemy_spans, up);
    const bitboard files = up ? f.white_down | f.white_up : f.black_down | f.black_up;
    const bitboard doubled = pawns & behind_own;
    const bitboard passed = pawns & ~doubled & ~behind_enemy;
    const bitboard isolated = pawns & ~doubled & ~passed & ~beside(files);
    int32_t score = -genes[GENE_DOUBLED] * popcount(doubled) - genes[GENE_ISOLATED] * popcount(isolated);
    for (bitboard b = passed; b;) {
        const int s = pop_square(b);
        const int32_t bonus = passed_bonus[up ? 7 - rank_of(s) : rank_of(s)];
        if (!(side.opponent->attacks[0] & square_bit(s)))
            score += bonus;
        else if ((side.attacks[0] & square_bit(s)) && genes[GENE_PASSED_GUARDED] != 0)
            score += bonus / genes[GENE_PASSED_GUARDED];
    }
    return score;
}

}  // namespace

int32_t pawn_score(const side_t& side) { return side_pawn_score(side, pawn_fills()); }

int32_t pawn_balance(const side_t& side) {
    const pawn_fills_t f = pawn_fills();
    return side_pawn_score(side, f) - side_pawn_score(*side.opponent, f);
}

}  // namespace velkor
