#include "engine/engine.h"
#include "evaluation/evaluation.h"

namespace velkor {

namespace {

int king_square(const side_t& side) { return lowest_square(side.pieces[KING]); }

// Four men, no pawns: queens decide two against two, any two pieces but a
// pair of knights with their owner to move beat the bare king.
int32_t four_men(const side_t& turn, const side_t& opponent) {
    const int turn_men = popcount(turn.pieces[0]), opponent_men = popcount(opponent.pieces[0]);
    if (turn_men == 2 && opponent_men == 2) {
        const int turn_queens = popcount(turn.pieces[QUEEN]), opponent_queens = popcount(opponent.pieces[QUEEN]);
        if (turn_queens == opponent_queens)
            return centre_weight[king_square(turn)] - centre_weight[king_square(opponent)];
        return turn_queens > opponent_queens ? win_score(turn, opponent) : -win_score(opponent, turn);
    }
    if (popcount(turn.pieces[KNIGHT]) == 2) return 0;
    return turn_men == 3 ? win_score(turn, opponent) : -win_score(opponent, turn);
}

}  // namespace

int32_t win_score(const side_t& a, const side_t& b) {
    return a.material + WIN_BONUS - b.material + centre_weight[king_square(a)] - centre_weight[king_square(b)];
}

int32_t material_balance() { return board.turn->material - board.turn->opponent->material; }

// Rooks on the two far ranks while the enemy has pawns, and on files where
// no man but this side's rooks stands; both counted for all rooks at once.
int32_t rook_score(const side_t& side) {
    const bitboard rooks = side.pieces[ROOK];
    if (!rooks) return 0;
    const bitboard others = board.occupied & ~rooks;
    int32_t score = genes[GENE_ROOK_OPEN_FILE] * popcount(rooks & ~fill_files(others));
    if (side.opponent->pieces[PAWN]) {
        const bitboard far_ranks = side.is_white ? rank_mask(6) | rank_mask(7) : rank_mask(0) | rank_mask(1);
        score += genes[GENE_ROOK_FAR_RANKS] * popcount(rooks & far_ranks);
    }
    return score;
}

// Every term is built into this one function (flatten): it runs at most
// nodes, and separate calls cost it about 4 % of its instructions in
// saving and restoring registers.
[[gnu::flatten]] int32_t evaluate() {
    const side_t& turn = *board.turn;
    const side_t& opponent = *turn.opponent;
    const int men = popcount(board.occupied);
    if (men == 3)
        return turn.material != 0 ? endgame_score(turn, turn.is_white) : -endgame_score(opponent, turn.is_white);
    if (men == 4 && !(white.pieces[PAWN] | black.pieces[PAWN])) return four_men(turn, opponent);
    return turn.material - opponent.material + pawn_balance(turn) + rook_score(turn) - rook_score(opponent) +
           activity_score(turn) - activity_score(opponent);
}

}  // namespace velkor
