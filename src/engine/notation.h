// Moves and positions as text: the coordinate form of the protocol, the
// engine's long display form, the board diagram, FEN writing, and the moves
// list of a position command.
#pragma once

#include "engine/position.h"

namespace velkor {

// A game longer than this leaves the search less than its 64 entries of stack.
inline constexpr int MAX_GAME_PLIES = STATE_STACK_SIZE - 1 - MAX_DEPTH;

// e2e4, e7e8q: from, to and the promotion letter.
void print_coords(move_t move);

// Ng1f3, e5xd6, Nf3xBd4, e7xRf8=Q+; returns the number of characters written.
int print_move(move_t move);

// Moves since the last position command, diagram, key and FEN.
void print_board();

// Writes the FEN of the current position into out (at least 100 bytes) and
// returns its length.
int write_fen(char* out);

// Plays a moves list on the position just loaded, cutting the text in place.
// A malformed or illegal token gets one "info string Illegal move" line and
// ends the list; the moves before it stay played.
void apply_moves(char* text);

}  // namespace velkor
