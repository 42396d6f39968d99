#include <cinttypes>
#include <cstdio>

#include "engine/engine.h"
#include "search/search.h"

namespace velkor {

namespace {

// Plays the line out of the table on the live board and takes it back. It
// ends at a draw, at a position without a current entry or move, or where
// the state stack ends.
void pv_walk(move_t move) {
    if (is_draw() || move == 0 || board.ply >= STATE_STACK_SIZE - 1) return;
    print_coords(move);
    printf(" ");
    make_move(move);
    pv_walk(tt_pv_move(board.states[board.ply].key));
    unmake_move(move);
}

}  // namespace

void print_score(int32_t score) {
    if (score <= MATE_BOUND && score >= -MATE_BOUND)
        printf("score cp %i ", score);
    else
        printf("score mate %i ", score > 0 ? (MATE + 1 - score) / 2 : -((score + MATE + 1) / 2));
}

void report_pv(int32_t score, int bound, move_t move) {
    search_info.score = score;
    search_info.best_move = move;
    search_info.elapsed = elapsed_ms();
    search_info.nps = speed_nps(search_info.nodes, search_info.elapsed);
    printf("info depth %i seldepth %i ", search_info.depth, search_info.seldepth);
    print_score(score);
    if (bound == TT_LOWER) printf("lowerbound ");
    printf("pv ");
    pv_walk(move);
    printf("time %" PRIu64 " nodes %" PRIu64 " nps %" PRIu64 " hashfull %i\n", search_info.elapsed, search_info.nodes,
           search_info.nps, tt_hashfull());
}

}  // namespace velkor
