#include <cstring>

#include "engine/engine.h"
#include "protocol/protocol.h"
#include "search/search.h"

namespace velkor {

namespace {

constexpr int BARE_GO_DEPTH = 8;
constexpr uint64_t CLOCK_MARGIN = 1000;  // taken off the side's clock
constexpr uint64_t MOVE_MARGIN = 25;     // taken off the time of the move
constexpr uint64_t DEFAULT_MOVES_TO_GO = 40;

// The number behind a keyword anywhere in the line, or `absent`.
uint64_t keyword_value(const char* keyword, uint64_t absent) {
    const char* at = strstr(input_line, keyword);
    uint64_t value = 0;
    return at && scan_u64(at + strlen(keyword), &value) ? value : absent;
}

// The clocks of the side to move give the time of this move.
void clock_limits() {
    const bool white_to_move = board.turn->is_white;
    const uint64_t clock = keyword_value(white_to_move ? "wtime " : "btime ", 0);
    const uint64_t increment = keyword_value(white_to_move ? "winc " : "binc ", 0);
    uint64_t moves_to_go = keyword_value("movestogo ", DEFAULT_MOVES_TO_GO);
    if (moves_to_go == 0) moves_to_go = 1;
    limits.mode = MODE_TOURNAMENT;
    limits.total_time = clock > CLOCK_MARGIN ? clock - CLOCK_MARGIN : 0;
    const uint64_t share = limits.total_time / moves_to_go;
    const uint64_t x = increment > UINT64_MAX - share ? UINT64_MAX : increment + share;
    limits.move_time = x > MOVE_MARGIN ? x - MOVE_MARGIN : 0;
}

}  // namespace

// Every line that holds "go" comes here; the first form that fits sets the limits.
void go_limits() {
    limits = limits_t{};
    int depth = 0;
    uint64_t move_time = 0;
    if (strcmp(input_line, "go") == 0) {
        limits.mode = MODE_DEPTH;
        limits.depth = BARE_GO_DEPTH;
    } else if (strcmp(input_line, "go infinite") == 0) {
        limits.mode = MODE_FIXED_TIME;
        limits.move_time = INFINITE_MOVE_TIME;
    } else if (strncmp(input_line, "go depth", 8) == 0 && scan_int(input_line + 8, &depth)) {
        limits.mode = MODE_DEPTH;
        limits.depth = depth;
    } else if (strncmp(input_line, "go movetime", 11) == 0 && scan_u64(input_line + 11, &move_time)) {
        limits.mode = MODE_FIXED_TIME;
        limits.move_time = move_time;
    } else {
        clock_limits();
    }
}

void go_command() {
    go_limits();
    run_search();
}

}  // namespace velkor
