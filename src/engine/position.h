// The one position: two side records, the board with its state stack, the
// position key, FEN loading, and playing and taking back moves.
#pragma once

#include <cstddef>

#include "engine/random64.h"
#include "engine/types.h"

namespace velkor {

struct side_t {
    bitboard pieces[7];         // [PAWN..KING] by type, [0] all of this side's pieces
    bitboard attacks[7];        // squares attacked by each type, [0] their union (derived)
    bitboard check_squares[7];  // squares from which an enemy piece of that type hits our king (derived)
    bitboard checkers;          // enemy pieces attacking our king (derived)
    bitboard pinned;            // our pieces alone between our king and an enemy slider (derived)
    bitboard discoverers;       // our pieces alone between our slider and the enemy king (derived)
    bitboard evasions;          // target mask of non-king moves: all ones unless in single check (derived)
    uint32_t is_white;
    int32_t key_base[7];     // index of this side's piece type in Random64
    int32_t material;        // piece_value over all pieces, pawns included
    int32_t piece_material;  // the same without pawns
    side_t* opponent;
};

struct state_t {
    bitboard en_passant;    // square passed over by the last double push, or 0
    bitboard castling;      // home squares whose piece has not moved (rights need both bits)
    bitboard from_to;       // from and to of the move played from here
    bitboard rook_from_to;  // rook squares when that move castles
    bitboard target;        // where its capture and promotion take effect
    uint64_t key;
    move_t move;  // the move played from here; 0 for a null move
    int32_t rule50;
};

struct board_t {
    side_t* turn;
    bitboard occupied;
    state_t states[STATE_STACK_SIZE];
    int32_t ply;            // index of the current position's entry
    int32_t dropped_plies;  // moves of a very long game cut from the bottom of the stack
};

extern side_t white;
extern side_t black;
extern board_t board;

inline constexpr bitboard CASTLE_WHITE_SHORT = 0x90;
inline constexpr bitboard CASTLE_WHITE_LONG = 0x11;
inline constexpr bitboard CASTLE_BLACK_SHORT = 0x9000000000000000ULL;
inline constexpr bitboard CASTLE_BLACK_LONG = 0x1100000000000000ULL;

// The four rights with their FEN letters, in FEN's order.
struct castling_right_t {
    char letter;
    bitboard squares;
};
inline constexpr castling_right_t CASTLING_RIGHTS[4] = {
    {'K', CASTLE_WHITE_SHORT}, {'Q', CASTLE_WHITE_LONG}, {'k', CASTLE_BLACK_SHORT}, {'q', CASTLE_BLACK_LONG}};

inline constexpr uint64_t SIDE_KEY = Random64[780];

inline uint64_t piece_key(const side_t& side, int piece, int square) { return Random64[side.key_base[piece] + square]; }

inline uint64_t en_passant_key(bitboard en_passant) { return Random64[772 + file_of(lowest_square(en_passant))]; }

// The castling term goes by whole rights (both bits of a pair), not by single bits.
inline uint64_t castling_key(bitboard word) {
    uint64_t key = 0;
    if ((word & CASTLE_WHITE_SHORT) == CASTLE_WHITE_SHORT) key ^= Random64[768];
    if ((word & CASTLE_WHITE_LONG) == CASTLE_WHITE_LONG) key ^= Random64[769];
    if ((word & CASTLE_BLACK_SHORT) == CASTLE_BLACK_SHORT) key ^= Random64[770];
    if ((word & CASTLE_BLACK_LONG) == CASTLE_BLACK_LONG) key ^= Random64[771];
    return key;
}

// The type of whatever stands on the square, either colour, tested in the
// order PAWN..KING; NO_PIECE on an empty square.
inline int piece_on(bitboard square) {
    for (int piece = PAWN; piece <= KING; ++piece)
        if ((white.pieces[piece] | black.pieces[piece]) & square) return piece;
    return NO_PIECE;
}

// The key of the current position computed from nothing.
uint64_t position_key();

// Reversible plies in a row that draw by the fifty-move rule.
inline constexpr int FIFTY_MOVE_PLIES = 100;

// Bare kings, fifty moves, or a third occurrence since the last irreversible move.
bool is_draw();

inline constexpr const char* START_FEN = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";

// The longest FEN text read, its terminator included.
inline constexpr size_t FEN_TEXT_SIZE = 8192;

// Loads a FEN whose form has been checked by fen_error. Text behind the sixth
// field (a moves list) is ignored. Castling letters without their king and
// rook at home are dropped.
void set_fen(const char* text);
void set_startpos();

// Why the text is no FEN of a playable position, or nullptr if it is one.
// Writes nothing but its own message buffer.
const char* fen_error(const char* text);

void make_move(move_t word);
void unmake_move(move_t word);

// Debug builds: the incremental records agree with a recompute from the piece sets.
void check_position_invariants();

}  // namespace velkor
