#include <cstdio>
#include <cstring>

#include "engine/engine.h"
#include "evaluation/evaluation.h"
#include "protocol/protocol.h"
#include "search/search.h"

namespace velkor {

namespace {

// Scratch for the text behind "position fen " and behind "moves ".
char fen_text[INPUT_SIZE];
char moves_text[INPUT_SIZE];

bool line_is(const char* word) { return strcmp(input_line, word) == 0; }
bool line_has(const char* text) { return strstr(input_line, text) != nullptr; }

void handshake() {
    printf("id name %s\n", ENGINE_NAME);
    printf("id author Treske\n");
    printf("option name Hash type spin default %i min %i max %i\n", TT_DEFAULT_MB, TT_MIN_MB, TT_MAX_MB);
    printf("option name OwnBook type check default false\n");
    printf("uciok\n");
}

void new_game() {
    set_startpos();
    reset_search();
    tt_clear();
}

// Only Hash is honoured; any other line is dropped without a word.
void setoption() {
    constexpr const char* HASH = "setoption name Hash value";
    int megabytes = 0;
    if (strncmp(input_line, HASH, strlen(HASH)) == 0 && scan_int(input_line + strlen(HASH), &megabytes))
        tt_resize(megabytes);
}

// The moves step of both position forms: whatever follows "moves " is played.
void position_moves() {
    const char* moves = strstr(input_line, "moves ");
    if (moves == nullptr) return;
    snprintf(moves_text, sizeof moves_text, "%s", moves + 6);
    apply_moves(moves_text);
}

// A bad FEN leaves the previous position, stack and all, untouched.
void position_fen() {
    snprintf(fen_text, sizeof fen_text, "%s", strstr(input_line, "position fen ") + 13);
    if (const char* reason = fen_error(fen_text)) {
        printf("info string Invalid FEN: %s\n", reason);
        return;
    }
    set_fen(fen_text);
    position_moves();
}

void perft_command() {
    int depth = 1;
    if (strncmp(input_line, "perft", 5) == 0) scan_int(input_line + 5, &depth);
    if (depth < 1 || depth > MAX_DEPTH) {
        printf("info string perft depth must be 1 to %i\n", MAX_DEPTH);
        return;
    }
    perft(depth);
}

// The command loop's dispatch. The first test that holds takes the line;
// "whole" means the whole line equals the text, "anywhere" that the text
// occurs at any place in it. All tests are case-sensitive.
//
//   order  text                 match     action
//   1      "stop"               whole     nothing (a search has already ended)
//   2      "uci"                whole     handshake
//   3      "setoption"          anywhere  Hash: a new table of that size
//   4      "isready"            whole     "readyok"
//   5      "ucinewgame"         whole     start position, search reset, table wiped
//   6      "position startpos"  anywhere  start position, then the moves step
//   7      "position fen "      anywhere  load the FEN, then the moves step
//   8      "go"                 anywhere  search, then search reset
//   9      "perft"              anywhere  perft, then search reset
//   10     "debug"              whole     board, static score and legal moves
//   11     "bench"              whole     four fixed searches, nodes and speed
//   12     "quit"               whole     free the table, end with status 0
//   13     anything else                 "Unknown command : '<line>'"
//
// Returns false when the loop is to end.
bool dispatch() {
    if (line_is("stop")) {
    } else if (line_is("uci")) {
        handshake();
    } else if (line_has("setoption")) {
        setoption();
    } else if (line_is("isready")) {
        printf("readyok\n");
    } else if (line_is("ucinewgame")) {
        new_game();
    } else if (line_has("position startpos")) {
        set_startpos();
        position_moves();
    } else if (line_has("position fen ")) {
        position_fen();
    } else if (line_has("go")) {
        go_command();
        reset_search();
    } else if (line_has("perft")) {
        perft_command();
        reset_search();
    } else if (line_is("debug")) {
        debug_command();
    } else if (line_is("bench")) {
        bench_command();
    } else if (line_is("quit")) {
        return false;
    } else {
        printf("Unknown command : '%s'\n", input_line);
    }
    return true;
}

}  // namespace

// A build for another system or processor level names them in the
// banner (the CMake file sets the note); the default build has none.
#ifndef VELKOR_BUILD_NOTE
#define VELKOR_BUILD_NOTE ""
#endif

bool start_engine(int argc, char** argv) {
    printf("%s%s ('quit' to exit)\n", ENGINE_NAME, VELKOR_BUILD_NOTE);
    fflush(stdout);
    setvbuf(stdout, nullptr, _IONBF, 0);
    __builtin_cpu_init();
    printf("info debug Support of popcnt instruction : %s\n", __builtin_cpu_supports("popcnt") ? "yes" : "no");
    if (argc == 2)
        if (const char* marker = strstr(argv[1], "-pbil=")) load_genes(marker + 6);
    if (init_magics(0) != 0) {
        printf("info string Cannot build the attack tables\n");
        return false;
    }
    tt_resize(TT_DEFAULT_MB);
    set_startpos();
    reset_search();
    return true;
}

// The end of input counts as quit: a last line without a line end has been
// carried out by then.
void command_loop() {
    while (read_line())
        if (!dispatch()) break;
}

int run_engine(int argc, char** argv) {
    if (!start_engine(argc, argv)) return 1;
    command_loop();
    tt_free();
    return 0;
}

}  // namespace velkor
