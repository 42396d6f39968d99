#include "engine/engine.h"
#include "evaluation/evaluation.h"

namespace velkor {

namespace {

// The value of the men of `owner` that stand in the set; kings count 0, and
// knights and bishops are counted together.
int32_t value_of(const side_t& owner, bitboard set) {
    static_assert(piece_value[KNIGHT] == piece_value[BISHOP]);
    if (!set) return 0;
    return piece_value[PAWN] * popcount(set & owner.pieces[PAWN]) +
           piece_value[KNIGHT] * popcount(set & (owner.pieces[KNIGHT] | owner.pieces[BISHOP])) +
           piece_value[ROOK] * popcount(set & owner.pieces[ROOK]) +
           piece_value[QUEEN] * popcount(set & owner.pieces[QUEEN]);
}

}  // namespace

// Safe mobility, pawn chains, hanging enemy men, sliders guarding each
// other, the bishop pair, the king's shelter and danger, and pinned men.
int32_t activity_score(const side_t& side) {
    const side_t& enemy = *side.opponent;
    const bitboard safe = ~enemy.attacks[0];
    const int k = lowest_square(side.pieces[KING]);
    const bitboard ring = king_attacks[k];
    int32_t score = 0;
    if (white.piece_material == 0 || black.piece_material == 0) score += centre_weight[k];
    int mobility = 0;
    for (int piece = PAWN; piece <= KING; ++piece) mobility += popcount(side.attacks[piece] & safe);
    score += genes[GENE_MOBILITY] * mobility;
    score += genes[GENE_PAWN_CHAIN] * popcount(side.attacks[PAWN] & side.pieces[PAWN]);
    // Both divisions are skipped when nothing is summed, as they mostly are.
    const int32_t hanging = value_of(enemy, side.attacks[0] & enemy.pieces[0] & safe);
    if (hanging != 0 && genes[GENE_HANGING] != 0) score += hanging / genes[GENE_HANGING];
    score += genes[GENE_DIAGONAL_GUARD] *
             popcount((side.pieces[BISHOP] | side.pieces[QUEEN]) & (side.attacks[BISHOP] | side.attacks[QUEEN]));
    score += genes[GENE_STRAIGHT_GUARD] *
             popcount((side.pieces[ROOK] | side.pieces[QUEEN]) & (side.attacks[ROOK] | side.attacks[QUEEN]));
    if (popcount(side.pieces[BISHOP]) > 1) score += genes[GENE_BISHOP_PAIR];
    score += genes[GENE_KING_SHELTER] * popcount(side.pieces[PAWN] & ring);
    score -= genes[GENE_KING_DANGER] * popcount(enemy.attacks[0] & ring);
    const int32_t pinned = value_of(side, side.pinned);
    if (pinned != 0 && genes[GENE_PINNED] != 0) score -= pinned / genes[GENE_PINNED];
    return score;
}

}  // namespace velkor
