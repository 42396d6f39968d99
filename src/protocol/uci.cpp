#include <cstdio>
#include <cstring>

#include "engine/engine.h"
#include "evaluation/evaluation.h"
#include "protocol/protocol.h"
#include "search/search.h"

namespace velkor {

namespace {

// Scratch for the text behind "position fen " and behind "moves ".
static_assert(INPUT_SIZE <= FEN_TEXT_SIZE, "a FEN as long as a whole line is read");
char fen_text[INPUT_SIZE];
char moves_text[INPUT_SIZE];

// The handlers of the command table; each returns false when the loop is to end.

// A stop that arrives here finds its search already ended.
bool stop() { return true; }

bool handshake() {
    printf("id name %s\n", ENGINE_NAME);
    printf("id author Treske\n");
    printf("option name Hash type spin default %i min %i max %i\n", TT_DEFAULT_MB, TT_MIN_MB, TT_MAX_MB);
    printf("option name OwnBook type check default false\n");
    printf("uciok\n");
    return true;
}

// Only Hash is honoured; any other line is dropped without a word.
bool setoption() {
    constexpr const char* HASH = "setoption name Hash value";
    int megabytes = 0;
    if (strncmp(input_line, HASH, strlen(HASH)) == 0 && scan_int(input_line + strlen(HASH), &megabytes))
        tt_resize(megabytes);
    return true;
}

// UCI has a GUI ask this before its first search and after a new Hash size:
// the table is made resident then, in case no ucinewgame cleared it.
bool isready() {
    tt_make_resident();
    printf("readyok\n");
    return true;
}

bool new_game() {
    set_startpos();
    reset_search();
    tt_clear();
    return true;
}

// The moves step of both position forms: whatever follows "moves " is played.
void position_moves() {
    const char* moves = strstr(input_line, "moves ");
    if (moves == nullptr) return;
    snprintf(moves_text, sizeof moves_text, "%s", moves + 6);
    apply_moves(moves_text);
}

bool position_startpos() {
    set_startpos();
    position_moves();
    return true;
}

// A bad FEN leaves the previous position, stack and all, untouched.
bool position_fen() {
    snprintf(fen_text, sizeof fen_text, "%s", strstr(input_line, "position fen ") + 13);
    if (const char* reason = fen_error(fen_text)) {
        printf("info string Invalid FEN: %s\n", reason);
        return true;
    }
    set_fen(fen_text);
    position_moves();
    return true;
}

// A search and a perft leave the search memories cleared behind them.
bool go() {
    go_command();
    reset_search();
    return true;
}

bool perft_line() {
    int depth = 1;
    if (strncmp(input_line, "perft", 5) == 0) scan_int(input_line + 5, &depth);
    if (depth < 1 || depth > MAX_DEPTH)
        printf("info string perft depth must be 1 to %i\n", MAX_DEPTH);
    else
        perft(depth);
    reset_search();
    return true;
}

bool debug() {
    debug_command();
    return true;
}

bool bench() {
    bench_command();
    return true;
}

bool quit() { return false; }

// Where a command's text must stand: the line is the text itself, or holds
// it anywhere. Both are case-sensitive.
enum place_t { WHOLE_LINE, ANYWHERE };

struct command_t {
    const char* text;
    place_t place;
    bool (*run)();
};

// The first row that fits takes the line, so a row must come before any
// row whose text its lines could also hold.
constexpr command_t COMMANDS[] = {
    {"stop", WHOLE_LINE, stop},
    {"uci", WHOLE_LINE, handshake},
    {"setoption", ANYWHERE, setoption},
    {"isready", WHOLE_LINE, isready},
    {"ucinewgame", WHOLE_LINE, new_game},
    {"position startpos", ANYWHERE, position_startpos},
    {"position fen ", ANYWHERE, position_fen},
    {"go", ANYWHERE, go},
    {"perft", ANYWHERE, perft_line},
    {"debug", WHOLE_LINE, debug},
    {"bench", WHOLE_LINE, bench},
    {"quit", WHOLE_LINE, quit},
};

bool fits(const command_t& command) {
    return command.place == WHOLE_LINE ? strcmp(input_line, command.text) == 0
                                       : strstr(input_line, command.text) != nullptr;
}

// Returns false when the loop is to end.
bool dispatch() {
    for (const command_t& command : COMMANDS)
        if (fits(command)) return command.run();
    printf("Unknown command : '%s'\n", input_line);
    return true;
}

}  // namespace

// A build for another system or processor level names them in the
// banner (the CMake file sets the note); the default build has none.
#ifndef VELKOR_BUILD_NOTE
#define VELKOR_BUILD_NOTE ""
#endif

namespace {

// WebAssembly counts bits with an instruction of its own on every machine.
bool popcnt_supported() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    return __builtin_cpu_supports("popcnt");
#else
    return true;
#endif
}

}  // namespace

bool start_engine(int argc, char** argv) {
    printf("%s%s ('quit' to exit)\n", ENGINE_NAME, VELKOR_BUILD_NOTE);
    fflush(stdout);
    // A line goes out whole, in one write, once it ends (a search's info line
    // is printed in a dozen pieces), and the rest before the engine waits for
    // input. Windows' C library has no line buffering: unbuffered there.
#if defined(_WIN32)
    setvbuf(stdout, nullptr, _IONBF, 0);
#else
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
#endif
    printf("info debug Support of popcnt instruction : %s\n", popcnt_supported() ? "yes" : "no");
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
