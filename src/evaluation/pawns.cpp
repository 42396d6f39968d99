#include "engine/engine.h"
#include "evaluation/evaluation.h"

namespace velkor {

namespace {

constexpr bitboard beside(bitboard b) { return (b << 1 & NOT_A_FILE) | (b >> 1 & NOT_H_FILE); }

}  // namespace

// Doubled, passed and isolated pawns. Of two pawns on a file only the rear
// one is doubled, and only the front one can be passed or isolated. The
// three kinds are found for all pawns at once as sets: a pawn is doubled
// when an own pawn stands on its file ahead of it, passed when no enemy pawn
// stands ahead of it on its file or the files beside it, isolated when no
// own pawn stands on the files beside it.
int32_t pawn_score(const side_t& side) {
    const bitboard pawns = side.pieces[PAWN];
    if (!pawns) return 0;
    const bitboard enemy_pawns = side.opponent->pieces[PAWN];
    const bool up = side.is_white;
    const bitboard behind_own = up ? fill_down(pawns >> 8) : fill_up(pawns << 8);
    const bitboard enemy_spans = enemy_pawns | beside(enemy_pawns);
    const bitboard behind_enemy = up ? fill_down(enemy_spans >> 8) : fill_up(enemy_spans << 8);
    const bitboard doubled = pawns & behind_own;
    const bitboard passed = pawns & ~doubled & ~behind_enemy;
    const bitboard isolated = pawns & ~doubled & ~passed & ~beside(fill_files(pawns));
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

}  // namespace velkor
