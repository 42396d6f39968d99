// Attack maps, checks and pins; the strictly legal move generator; perft.
#pragma once

#include "engine/position.h"

namespace velkor {

// One list per search ply; the caller keeps the count that generate_moves returns.
extern move_t move_lists[MAX_DEPTH][MAX_MOVES];

// The attack set of the knight, bishop, rook or queen on each square, as the
// last update_attacks found it; other squares hold what they held. The
// generator takes its piece targets from here instead of looking them up
// again.
extern bitboard piece_attacks[64];

// Recompute the derived fields of both sides. Whoever generates moves or
// evaluates calls update_checks and then update_attacks first.
void update_attacks();
void update_checks();

// The parts of update_checks that the search needs, for its many nodes that
// end at their static score need only the first: pinned and discoverers of
// both sides. A generator for the side to move needs the others: our
// checkers and evasions, which take no lookup when the caller knows that we
// are not in check, and for the check marks of its words the opponent's
// check_squares (where our men give check). The other side's checkers and
// evasions, and out of check our own check_squares, are left as they were.
void update_pins();
void update_checkers(bool in_check);
void update_check_lines(bool in_check);  // update_checkers and the opponent's check_squares

// Whether a piece of `by` other than its king attacks the square, on the
// given occupancy; `target_white` is the colour of the side standing there.
bool attacked_by(const side_t& by, bitboard occupied, int square, bool target_white);

// 1 if the side's king is attacked on the present board, else 0. Valid right
// after make_move, unlike the derived fields.
int is_king_attacked(const side_t* side);

// Fills move_lists[ply] with complete, strictly legal words in the fixed
// order and returns how many there are.
int generate_moves(int ply, uint32_t mode);

// How many moves generate_moves(ply, GENERATE_ALL) would list, without
// writing them: perft counts its last level this way.
int count_moves();

// Whether generate_moves(ply, GENERATE_ALL) would list any move: mostly a
// free square for the king, else a count. It needs update_pins and
// update_attacks, and runs update_checkers itself when it has to count.
bool has_legal_move(bool in_check);

// Leaf count of the legal move tree below the current position, with a line
// per root move and a closing line with time and speed.
uint64_t perft(int depth);
uint64_t perft_count(int ply, int last);

}  // namespace velkor
