// The search: transposition table, records and limit check, quiescence with
// exchange evaluation, alpha-beta, reporting and the iterative deepening
// driver.
#pragma once

#include <cstdint>

#include "engine/types.h"
#include "search/tt.h"

namespace velkor {

inline constexpr int32_t MATE = 30000;        // a side mated at search ply p scores p - MATE
inline constexpr int32_t MATE_BOUND = 29936;  // a larger absolute value is a mate score
inline constexpr int32_t SCORE_INF = 0x10000000;
inline constexpr uint64_t LIMIT_CHECK_MASK = 0xFFF;  // clock and input every 4096 nodes
inline constexpr uint64_t CURRMOVE_MASK = 0x1FFFFF;  // a currmove line every 2097152 nodes

enum : uint32_t { MODE_DEPTH = 0, MODE_FIXED_TIME = 1, MODE_TOURNAMENT = 2 };
inline constexpr uint64_t INFINITE_MOVE_TIME = 1000000000;  // the time of go infinite, ms

struct limits_t {
    uint32_t mode;
    int32_t depth;        // MODE_DEPTH: the last iteration
    uint64_t total_time;  // MODE_TOURNAMENT: the clock less its margin, ms; bounds the doubling
    uint64_t move_time;   // modes 1 and 2: the time of this move, ms
};

struct search_info_t {
    int32_t depth;     // the iteration in progress
    int32_t seldepth;  // the deepest ply reached
    int32_t score;     // of the latest report
    move_t best_move;  // of the latest report
    uint32_t stop;     // the search must unwind
    move_t currmove;
    int32_t currmovenumber;
    int32_t root_fail;  // the root is not settled in this iteration
    uint32_t time_extended;
    int32_t last_score;    // result of the last finished iteration
    uint64_t start_clock;  // clock_us() at the start of the search
    uint64_t elapsed;      // ms at the latest reading
    uint64_t nodes;
    uint64_t nps;
};

extern limits_t limits;
extern search_info_t search_info;
extern move_t killers[MAX_DEPTH][2];
extern uint32_t history[8 * 64];
extern uint64_t root_nodes[4096];

// Advances the table's age and clears what lives for one search: limits,
// search_info, killers, history, the move lists and root_nodes.
void reset_search();

// Milliseconds since the search began.
uint64_t elapsed_ms();

// Every 4096 nodes: the clock, the allotment (doubled while the root is
// unsettled), pending input, and now and then a currmove line.
void check_limits();

int32_t alpha_beta(int ply, int depth_limit, int32_t alpha, int32_t beta, int check_flags, int null_allowed);
int32_t quiesce(int ply, int32_t alpha, int32_t beta, int check_flags);

// The balance of the exchange on the target square of a capture, for the capturer.
int32_t see_score(move_t word);

// "score cp N " or "score mate N " (full moves to the mate, negative when
// the side to move is mated); always ends in a blank.
void print_score(int32_t score);

// Records score and move as the search's answer and prints the info line
// with the principal variation read back from the table; bound is TT_EXACT
// once all root moves are searched, TT_LOWER for a new best move before that.
void report_pv(int32_t score, int bound, move_t move);

// Iterative deepening from the current position, to the closing lines and bestmove.
void think();

// The draw test, then the search with the limits already set.
void run_search();

}  // namespace velkor
