#include <algorithm>
#include <cstdlib>

#include "engine/engine.h"
#include "evaluation/evaluation.h"

namespace velkor {

namespace {

int king_distance(int a, int b) {
    return std::max(std::abs(rank_of(a) - rank_of(b)), std::abs(file_of(a) - file_of(b)));
}

// King and pawn against king: the rule of the square, with the double step
// from the home rank not counted.
int32_t pawn_ending(const side_t& strong, const side_t& weak, bool weak_to_move) {
    const int ks = lowest_square(strong.pieces[KING]), kw = lowest_square(weak.pieces[KING]);
    const bitboard pawn = strong.pieces[PAWN];
    if (weak_to_move && (pawn & king_attacks[kw]) && !(pawn & king_attacks[ks])) return 0;  // the pawn falls
    const int s = lowest_square(pawn);
    const bitboard path = strong.is_white ? file_above[s] : file_below[s];
    const int n = popcount(path);
    const int32_t bonus = passed_bonus[n];
    if (path & strong.pieces[KING]) return bonus + 100;  // the king stands in its own pawn's way
    if (path & ~king_attacks[ks]) {
        const int promotion = strong.is_white ? 63 - std::countl_zero(path) : lowest_square(path);
        const int reach = n + (weak_to_move ? 1 : 0);
        if (reach >= king_distance(kw, promotion)) return bonus + 100;  // inside the square
    }
    return bonus + win_score(strong, weak);
}

}  // namespace

int32_t endgame_score(const side_t& strong, uint32_t white_to_move) {
    const side_t& weak = *strong.opponent;
    const bool weak_to_move = white_to_move != strong.is_white;
    if (strong.pieces[PAWN]) return pawn_ending(strong, weak, weak_to_move);
    bitboard piece = 0;
    int type = KNIGHT;
    for (; type <= QUEEN && !piece; ++type) piece = strong.pieces[type];
    --type;
    if (!piece) return 0;  // no third man we know: only a broken board gets here
    const int ks = lowest_square(strong.pieces[KING]), kw = lowest_square(weak.pieces[KING]);
    if (weak_to_move && (piece & king_attacks[kw]) && !(piece & king_attacks[ks])) return 0;  // it falls
    if (type == KNIGHT || type == BISHOP) return 0;  // one minor piece cannot mate
    return win_score(strong, weak);
}

}  // namespace velkor
