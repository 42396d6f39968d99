#include "engine/engine.h"
#include "evaluation/evaluation.h"

namespace velkor {

// Doubled, passed and isolated pawns. Of two pawns on a file only the rear
// one is doubled, and only the front one can be passed or isolated.
int32_t pawn_score(const side_t& side) {
    const side_t& enemy = *side.opponent;
    const auto& ahead = side.is_white ? file_above : file_below;
    const auto& front = side.is_white ? span_above : span_below;
    int32_t score = 0;
    for (bitboard pawns = side.pieces[PAWN]; pawns;) {
        const int s = pop_square(pawns);
        const bitboard bit = square_bit(s);
        if (side.pieces[PAWN] & ahead[s]) {
            score -= genes[GENE_DOUBLED];
        } else if (!(enemy.pieces[PAWN] & front[s])) {
            const int32_t bonus = passed_bonus[popcount(ahead[s])];
            if (!(enemy.attacks[0] & bit))
                score += bonus;
            else if ((side.attacks[0] & bit) && genes[GENE_PASSED_GUARDED] != 0)
                score += bonus / genes[GENE_PASSED_GUARDED];
        } else if (!(side.pieces[PAWN] & adjacent_files[file_of(s)])) {
            score -= genes[GENE_ISOLATED];
        }
    }
    return score;
}

}  // namespace velkor
