#include <algorithm>
#include <cassert>

#include "engine/engine.h"
#include "evaluation/evaluation.h"
#include "search/search.h"

namespace velkor {

namespace {

// The piece values, with a king worth more than any exchange can win.
constexpr int32_t see_values[7] = {
    0, piece_value[PAWN], piece_value[KNIGHT], piece_value[BISHOP], piece_value[ROOK], piece_value[QUEEN], 20000};

// The side's men that could reach the square on an empty board; sliders are
// tested against the real occupancy when their turn comes.
void candidate_attackers(const side_t& side, int to, bitboard (&set)[7]) {
    set[PAWN] = side.pieces[PAWN] & (side.is_white ? black_pawn_attacks[to] : white_pawn_attacks[to]);
    set[KNIGHT] = side.pieces[KNIGHT] & knight_attacks[to];
    set[BISHOP] = side.pieces[BISHOP] & bishop_rays[to];
    set[ROOK] = side.pieces[ROOK] & rook_rays[to];
    set[QUEEN] = side.pieces[QUEEN] & queen_rays[to];
    set[KING] = side.pieces[KING] & king_attacks[to];
}

// The least valuable man of the set that sees the square now, taken out of
// its set with its square left in `taken`; 0 if none.
int next_attacker(bitboard (&set)[7], bitboard occupied, int to, bitboard& taken) {
    for (int piece = PAWN; piece <= KING; ++piece) {
        bitboard reach = set[piece];
        if (piece == BISHOP) reach &= bishop_attacks(occupied, to);
        if (piece == ROOK) reach &= rook_attacks(occupied, to);
        if (piece == QUEEN) reach &= bishop_attacks(occupied, to) | rook_attacks(occupied, to);
        if (reach) {
            taken = reach & -reach;
            set[piece] ^= taken;
            return piece;
        }
    }
    return 0;
}

}  // namespace

// The whole exchange is summed: neither side may stop early.
int32_t see_score(move_t word) {
    static bitboard see_attackers[2][7];
    const int to = move_to(word), from = move_from(word);
    candidate_attackers(*board.turn, to, see_attackers[0]);
    candidate_attackers(*board.turn->opponent, to, see_attackers[1]);
    int see_sequence[32];
    int n = 0;
    see_sequence[n++] = move_captured(word);
    see_sequence[n++] = move_moved(word);
    see_attackers[0][move_moved(word)] &= ~square_bit(from);
    bitboard occupied = board.occupied & ~square_bit(from);
    for (int side = 1; n < 32; side ^= 1) {
        bitboard taken = 0;
        const int piece = next_attacker(see_attackers[side], occupied, to, taken);
        if (piece == 0) break;
        occupied &= ~taken;
        see_sequence[n++] = piece;
    }
    int32_t sum = 0;
    for (int k = 0; k < n - 1; ++k) sum += k % 2 == 0 ? see_values[see_sequence[k]] : -see_values[see_sequence[k]];
    return sum;
}

// Captures and promotions until the position is quiet; every evasion in
// check. Losing captures are pruned only in one-point windows.
int32_t quiesce(int ply, int32_t alpha, int32_t beta, int check_flags) {
    ++search_info.nodes;
    if (ply > MAX_DEPTH - 1) return alpha;
    if (ply > search_info.seldepth) search_info.seldepth = ply;
    if ((search_info.nodes & LIMIT_CHECK_MASK) == LIMIT_CHECK_MASK) check_limits();
    if (search_info.stop) return 0;
    if (is_draw()) return 0;
    assert((check_flags != 0) == (is_king_attacked(board.turn) != 0));
    // The check lines serve only the generator: a node that stands pat never needs them.
    update_pins();
    update_attacks();
    int32_t best = alpha, base = 0;
    int count;
    if (check_flags) {
        update_check_lines(true);
        count = generate_moves(ply, GENERATE_ALL);
        if (count == 0) return ply - MATE;
    } else {
        const int32_t static_score = evaluate();
        best = std::max(alpha, static_score);
        if (best >= beta) return best;
        update_check_lines(false);
        count = generate_moves(ply, GENERATE_CAPTURES);
        if (count == 0) return best;
        base = static_score + 200;
    }
    const bool prunable = beta - alpha <= 1 && check_flags == 0;
    move_t* list = move_lists[ply];
    for (int i = 0; i < count; ++i) {
        // The best word so far in a register, updated by conditional moves.
        int top = i;
        int32_t best_word = int32_t(list[i]);
        for (int j = i + 1; j < count; ++j) {
            const int32_t w = int32_t(list[j]);
            top = w > best_word ? j : top;
            best_word = w > best_word ? w : best_word;
        }
        const move_t word = move_t(best_word);
        list[top] = list[i];
        list[i] = word;
        const int child_flags = int((word >> 28) & 3);
        if (child_flags == 0 && prunable) {
            const int32_t victim = piece_value[move_captured(word)];
            if (const int promotion = move_promotion(word)) {
                if (base + piece_value[promotion] + victim - piece_value[PAWN] < best) continue;
            } else {
                if (base + victim < best) continue;
                if (piece_value[move_moved(word)] > victim && see_score(word) < 0) continue;
            }
        }
        make_move(word);
        const int32_t score = -quiesce(ply + 1, -beta, -best, child_flags);
        unmake_move(word);
        if (search_info.stop) return 0;
        best = std::max(best, score);
        if (best >= beta) return best;
    }
    return best;
}

}  // namespace velkor
