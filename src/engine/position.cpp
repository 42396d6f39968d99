#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/engine.h"

namespace velkor {

side_t white;
side_t black;
board_t board;

namespace {

// The six fields of a FEN text, as split from it: each may be the whole text.
constexpr size_t FEN_FIELD_SIZE = FEN_TEXT_SIZE;
struct fen_t {
    char placement[FEN_FIELD_SIZE];
    char side[FEN_FIELD_SIZE];
    char castling[FEN_FIELD_SIZE];
    char en_passant[FEN_FIELD_SIZE];
    char halfmove[FEN_FIELD_SIZE];
    char fullmove[FEN_FIELD_SIZE];
};

fen_t fen;

// Cuts the text at blanks into at most six fields and returns how many were
// found. Four fields leave the counters at "0" and "1".
int split_fen(const char* text, fen_t& out) {
    char* fields[6] = {out.placement, out.side, out.castling, out.en_passant, out.halfmove, out.fullmove};
    int section = 0;
    const char* p = text;
    while (section < 6) {
        while (*p == ' ') ++p;
        if (*p == '\0') break;
        size_t len = strcspn(p, " ");
        if (len > FEN_FIELD_SIZE - 1) len = FEN_FIELD_SIZE - 1;  // the command line is shorter than this anyway
        memcpy(fields[section], p, len);
        fields[section][len] = '\0';
        p += len;
        ++section;
    }
    if (section == 4) {
        strcpy(out.halfmove, "0");
        strcpy(out.fullmove, "1");
    }
    return section;
}

void reset_side(side_t& side, bool is_white) {
    side = side_t{};
    side.is_white = is_white ? 1 : 0;
    for (int piece = PAWN; piece <= KING; ++piece) side.key_base[piece] = 128 * (piece - 1) + (is_white ? 64 : 0);
}

// Walks the placement field from a8 and sets the piece bits of both sides.
// Returns nullptr or the reason the field is unusable.
const char* place_pieces(const char* placement, side_t& w, side_t& b) {
    static char reason[64];
    int rank = 7, file = 0;
    bool fits = true;
    for (const char* c = placement; *c && fits; ++c) {
        if (*c == '/') {
            fits = file == 8 && rank > 0;
            --rank;
            file = 0;
        } else if (*c >= '1' && *c <= '8') {
            file += *c - '0';
            fits = file <= 8;
        } else {
            const char* black_hit = strchr(PIECE_LETTERS[0] + PAWN, *c);
            const char* white_hit = strchr(PIECE_LETTERS[1] + PAWN, *c);
            if (black_hit == nullptr && white_hit == nullptr) {
                snprintf(reason, sizeof reason, "'%c' is neither a piece nor a digit", *c);
                return reason;
            }
            fits = file < 8;
            if (fits && white_hit) w.pieces[white_hit - PIECE_LETTERS[1]] |= square_bit(8 * rank + file);
            if (fits && black_hit) b.pieces[black_hit - PIECE_LETTERS[0]] |= square_bit(8 * rank + file);
            ++file;
        }
    }
    if (!fits || rank != 0 || file != 8) return "the placement does not hold 8 ranks of 8 squares";
    for (side_t* side : {&w, &b})
        for (int piece = PAWN; piece <= KING; ++piece) side->pieces[0] |= side->pieces[piece];
    return nullptr;
}

// The rights of the castling field whose king and rook stand at home; the
// rights on the first rank are white's.
bitboard castling_rights(const char* field) {
    bitboard word = 0;
    for (const castling_right_t& r : CASTLING_RIGHTS) {
        const side_t& side = r.squares & rank_mask(0) ? white : black;
        // The king's home is the square both rights of its side hold.
        bitboard king_home =
            side.is_white ? CASTLE_WHITE_SHORT & CASTLE_WHITE_LONG : CASTLE_BLACK_SHORT & CASTLE_BLACK_LONG;
        bool pieces_home = (side.pieces[KING] & king_home) && (side.pieces[ROOK] & (r.squares & ~king_home));
        if (strchr(field, r.letter) && pieces_home) word |= r.squares;
    }
    return word;
}

// The square of a two-character en-passant field, or -1.
int en_passant_square(const char* field) {
    if (strlen(field) != 2 || field[0] < 'a' || field[0] > 'h' || (field[1] != '3' && field[1] != '6')) return -1;
    return field[0] - 'a' + 8 * (field[1] - '1');
}

}  // namespace

uint64_t position_key() {
    uint64_t key = 0;
    for (const side_t* side : {&white, &black})
        for (int piece = PAWN; piece <= KING; ++piece)
            for (bitboard b = side->pieces[piece]; b;) key ^= piece_key(*side, piece, pop_square(b));
    const state_t& s = board.states[board.ply];
    key ^= castling_key(s.castling);
    if (s.en_passant) key ^= en_passant_key(s.en_passant);
    if (board.turn == &white) key ^= SIDE_KEY;
    return key;
}

bool is_draw() {
    if (popcount(board.occupied) == 2) return true;
    const state_t* states = board.states;
    if (states[board.ply].rule50 >= FIFTY_MOVE_PLIES) return true;
    // Every move counts rule50 one up or back to 0, so the positions since
    // the last irreversible one are the last rule50 of the stack; of those
    // only every second one has the same side to move.
    const uint64_t key = states[board.ply].key;
    const int oldest = std::max(0, board.ply - states[board.ply].rule50);
    int found = 1;
    for (int i = board.ply - 2; i >= oldest; i -= 2)
        if (states[i].key == key && ++found == 3) return true;
    return false;
}

const char* fen_error(const char* text) {
    static fen_t scratch;
    static char reason[160];
    int sections = split_fen(text, scratch);
    if (sections < 4) return "fewer than four fields";
    if (sections == 5) return "five fields; the half-move and move counters come together or not at all";

    side_t w, b;
    reset_side(w, true);
    reset_side(b, false);
    w.opponent = &b;
    b.opponent = &w;
    if (const char* bad = place_pieces(scratch.placement, w, b)) return bad;
    const bitboard occupied = w.pieces[0] | b.pieces[0];
    for (const side_t* side : {&w, &b}) {
        const char* name = side->is_white ? "white" : "black";
        if (popcount(side->pieces[KING]) != 1) {
            snprintf(reason, sizeof reason, "%s has %d kings, not one", name, popcount(side->pieces[KING]));
            return reason;
        }
        if (popcount(side->pieces[0]) > 16) {
            snprintf(reason, sizeof reason, "%s has more than 16 men", name);
            return reason;
        }
    }
    if ((w.pieces[PAWN] | b.pieces[PAWN]) & (rank_mask(0) | rank_mask(7)))
        return "a pawn stands on the first or last rank";

    const bool white_to_move = scratch.side[0] == 'w';
    const side_t& waiting = white_to_move ? b : w;
    const int waiting_king = lowest_square(waiting.pieces[KING]);
    if (attacked_by(*waiting.opponent, occupied, waiting_king, waiting.is_white != 0) ||
        (king_attacks[waiting_king] & waiting.opponent->pieces[KING]))
        return "the side not to move is in check";

    if (strlen(scratch.en_passant) == 2) {
        int ep = en_passant_square(scratch.en_passant);
        if (ep < 0) {
            snprintf(reason, sizeof reason, "en passant field '%.40s' is not a square of rank 3 or 6",
                     scratch.en_passant);
            return reason;
        }
        // The pawn that just moved two squares stands in front of the square,
        // and the square and the one it came from are empty.
        const bool rank6 = rank_of(ep) == 5;
        const int pawn = rank6 ? ep - 8 : ep + 8, origin = rank6 ? ep + 8 : ep - 8;
        const side_t& pusher = rank6 ? b : w;
        if (rank6 != white_to_move || !(pusher.pieces[PAWN] & square_bit(pawn)) ||
            (occupied & (square_bit(ep) | square_bit(origin)))) {
            snprintf(reason, sizeof reason, "en passant square %.2s does not follow a double push", scratch.en_passant);
            return reason;
        }
    }

    int halfmove = 0;
    if (!scan_int(scratch.halfmove, &halfmove)) {
        snprintf(reason, sizeof reason, "half-move field '%.40s' is not a number", scratch.halfmove);
        return reason;
    }
    if (halfmove < 0 || halfmove > 1000000) {
        snprintf(reason, sizeof reason, "half-move count %d is not between 0 and 1000000", halfmove);
        return reason;
    }
    return nullptr;
}

void set_fen(const char* text) {
    split_fen(text, fen);
    memset(&board, 0, sizeof board);
    reset_side(black, false);
    reset_side(white, true);
    white.opponent = &black;
    black.opponent = &white;
    place_pieces(fen.placement, white, black);
    for (side_t* side : {&white, &black})
        for (int piece = PAWN; piece <= KING; ++piece) {
            int value = piece_value[piece] * popcount(side->pieces[piece]);
            side->material += value;
            if (piece != PAWN) side->piece_material += value;
        }
    board.occupied = white.pieces[0] | black.pieces[0];
    board.turn = fen.side[0] == 'w' ? &white : &black;

    state_t& s = board.states[0];
    s.castling = castling_rights(fen.castling);
    int ep = en_passant_square(fen.en_passant);
    s.en_passant = ep < 0 ? 0 : square_bit(ep);
    int draw = 0;
    scan_int(fen.halfmove, &draw);
    s.rule50 = draw;
    s.key = position_key();
}

void set_startpos() { set_fen(START_FEN); }

void check_position_invariants() {
    auto fail = [](const char* what) {
        fprintf(stderr, "position invariant broken: %s\n", what);
        abort();
    };
    bitboard seen = 0;
    for (const side_t* side : {&white, &black}) {
        bitboard all = 0;
        int material = 0, piece_material = 0;
        for (int piece = PAWN; piece <= KING; ++piece) {
            if (side->pieces[piece] & seen) fail("two pieces on one square");
            seen |= side->pieces[piece];
            all |= side->pieces[piece];
            int value = piece_value[piece] * popcount(side->pieces[piece]);
            material += value;
            if (piece != PAWN) piece_material += value;
        }
        if (all != side->pieces[0]) fail("pieces[0] is not the union of the piece sets");
        if (popcount(side->pieces[KING]) != 1) fail("a side without exactly one king");
        if (material != side->material || piece_material != side->piece_material) fail("material");
    }
    if (board.occupied != (white.pieces[0] | black.pieces[0])) fail("occupied");
    if (board.states[board.ply].key != position_key()) fail("key differs from a recompute");
}

}  // namespace velkor
