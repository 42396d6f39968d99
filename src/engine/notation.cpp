#include <cstdio>
#include <cstring>

#include "engine/engine.h"

namespace velkor {

namespace {

constexpr const char* FILES = "abcdefgh";
constexpr const char* RANKS = "12345678";
// Coordinates write a promotion in lower case, the display form names
// pieces in upper case.
constexpr const char* PROMOTION_LETTERS = PIECE_LETTERS[0];
constexpr const char* DISPLAY_LETTERS = PIECE_LETTERS[1];

// The word a coordinate token names, built from the board, or 0 when the
// token is malformed or its from-square is empty.
move_t word_from_text(const char* token) {
    const size_t len = strlen(token);
    if (len < 4) return 0;
    const char* f1 = strchr(FILES, token[0]);
    const char* r1 = strchr(RANKS, token[1]);
    const char* f2 = strchr(FILES, token[2]);
    const char* r2 = strchr(RANKS, token[3]);
    if (!f1 || !r1 || !f2 || !r2) return 0;
    const int from = int(f1 - FILES) + 8 * int(r1 - RANKS);
    const int to = int(f2 - FILES) + 8 * int(r2 - RANKS);
    const int moved = piece_on(square_bit(from));
    if (moved == NO_PIECE) return 0;
    int captured = piece_on(square_bit(to));
    if (captured == NO_PIECE && moved == PAWN && file_of(from) != file_of(to)) captured = PAWN;
    int promotion = 0;
    if (len == 5) {
        const char* p = strchr(PROMOTION_LETTERS, token[4]);
        promotion = p ? int(p - PROMOTION_LETTERS) : NO_PIECE;
        if (promotion < KNIGHT || promotion > QUEEN) return 0;
    }
    return make_word(from, to, moved, captured, promotion);
}

// Whether the generator lists a move with the same from, to and promotion.
bool is_legal(move_t word) {
    update_checks();
    update_attacks();
    const int n = generate_moves(0, GENERATE_ALL);
    constexpr move_t key_fields = 0xFFF | (7u << 20);
    for (int i = 0; i < n; ++i)
        if ((move_lists[0][i] & key_fields) == (word & key_fields)) return true;
    return false;
}

// Keeps a long game within the stack: no repetition reaches past the last
// capture or pawn move (nor past the reversible moves that draw by rule),
// so the entries below it can go.
void drop_old_entries() {
    const int rule50 = board.states[board.ply].rule50;
    const int keep = rule50 < FIFTY_MOVE_PLIES ? rule50 : FIFTY_MOVE_PLIES;
    const int drop = board.ply - keep;
    memmove(&board.states[0], &board.states[drop], sizeof(state_t) * size_t(keep + 1));
    memset(&board.states[keep + 1], 0, sizeof(state_t) * size_t(drop));
    board.ply = keep;
    board.dropped_plies += drop;
}

}  // namespace

void print_coords(move_t move) {
    const int from = move_from(move), to = move_to(move), promotion = move_promotion(move);
    char text[6] = {FILES[file_of(from)], RANKS[rank_of(from)], FILES[file_of(to)], RANKS[rank_of(to)], 0, 0};
    if (promotion) text[4] = PROMOTION_LETTERS[promotion];
    fputs(text, stdout);
}

int print_move(move_t move) {
    if (move == 0) {
        fputs("null", stdout);
        return 4;
    }
    char text[16];
    int n = 0;
    const int from = move_from(move), to = move_to(move);
    if (move_moved(move) != PAWN) text[n++] = DISPLAY_LETTERS[move_moved(move)];
    text[n++] = FILES[file_of(from)];
    text[n++] = RANKS[rank_of(from)];
    if (const int captured = move_captured(move)) {
        text[n++] = 'x';
        if (captured != PAWN) text[n++] = DISPLAY_LETTERS[captured];
    }
    text[n++] = FILES[file_of(to)];
    text[n++] = RANKS[rank_of(to)];
    if (const int promotion = move_promotion(move)) {
        text[n++] = '=';
        text[n++] = DISPLAY_LETTERS[promotion];
    }
    if (move & MOVE_CHECK) text[n++] = '+';
    if (move & MOVE_DISCOVERED) text[n++] = '+';
    text[n] = '\0';
    fputs(text, stdout);
    return n;
}

int write_fen(char* out) {
    int n = 0;
    for (int rank = 7; rank >= 0; --rank) {
        int empty = 0;
        for (int file = 0; file < 8; ++file) {
            const int square = 8 * rank + file;
            const int piece = piece_on(square_bit(square));
            if (piece == NO_PIECE) {
                ++empty;
                continue;
            }
            if (empty) out[n++] = char('0' + empty);
            empty = 0;
            const bool is_white = white.pieces[0] & square_bit(square);
            out[n++] = PIECE_LETTERS[is_white][piece];
        }
        if (empty) out[n++] = char('0' + empty);
        if (rank) out[n++] = '/';
    }
    const state_t& s = board.states[board.ply];
    out[n++] = ' ';
    out[n++] = board.turn->is_white ? 'w' : 'b';
    out[n++] = ' ';
    const int rights_start = n;
    for (const castling_right_t& r : CASTLING_RIGHTS)
        if ((s.castling & r.squares) == r.squares) out[n++] = r.letter;
    if (n == rights_start) out[n++] = '-';
    out[n++] = ' ';
    if (s.en_passant) {
        const int ep = lowest_square(s.en_passant);
        out[n++] = FILES[file_of(ep)];
        out[n++] = RANKS[rank_of(ep)];
    } else {
        out[n++] = '-';
    }
    n += snprintf(out + n, 40, " %d %d", s.rule50, (board.dropped_plies + board.ply) / 2 + 1);
    return n;
}

void print_board() {
    printf("\n");
    if (board.ply != 0) {
        printf("after moves:\n");
        for (int k = 0; k < board.ply; ++k) {
            const int i = board.dropped_plies + k;  // index in the whole game
            if (i % 2 == 0) printf("%4i. ", i / 2 + 1);
            for (int width = print_move(board.states[k].move); width < 10; ++width) putchar(' ');
            if (i % 6 == 5) printf("\n");
        }
        printf("\n\n");
    }
    for (int rank = 7; rank >= 0; --rank) {
        printf(" %i%c", rank + 1, 0xB3);
        for (int file = 0; file < 8; ++file) {
            const int square = 8 * rank + file;
            const char shade = (rank + file) % 2 == 1 ? char(0xB0) : ' ';
            const int piece = piece_on(square_bit(square));
            char letter = shade;
            if (piece != NO_PIECE) letter = PIECE_LETTERS[(white.pieces[0] & square_bit(square)) != 0][piece];
            putchar(shade);
            putchar(letter);
            putchar(shade);
        }
        if ((rank == 7 && !board.turn->is_white) || (rank == 0 && board.turn->is_white))
            printf(" *%s", board.turn->checkers ? " (check !)" : "");
        printf("\n");
    }
    printf("   %c", 0xC0);
    for (int i = 0; i < 24; ++i) putchar(0xC4);
    printf("\n     A  B  C  D  E  F  G  H\n\n");
    const uint64_t key = board.states[board.ply].key;
    printf("key = 0x%08x%08x\n", unsigned(key >> 32), unsigned(key));
    char fen[128];
    write_fen(fen);
    printf("fen = %s\n", fen);
}

void apply_moves(char* text) {
    for (char* token = strtok(text, " "); token; token = strtok(nullptr, " ")) {
        const move_t word = word_from_text(token);
        if (word == 0 || !is_legal(word)) {
            printf("info string Illegal move: %s\n", token);
            return;
        }
        make_move(word);
        if (board.ply > MAX_GAME_PLIES) drop_old_entries();
    }
}

}  // namespace velkor
