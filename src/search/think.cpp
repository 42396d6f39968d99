#include <cstdio>
#include <cstdlib>

#include "engine/engine.h"
#include "search/search.h"

namespace velkor {

namespace {

// The answer when there is no move to give: why, then the null move.
void answer_no_move(const char* why) {
    printf("info string Game over (%s) !\n", why);
    printf("bestmove 0000\n");
}

}  // namespace

// Iterations of 1, 2, 3 ... plies with the full window, until a mate score,
// a stop, the depth asked for, a forecast that the next one will not fit,
// or depth MAX_DEPTH - 1. The answer is the move of the latest report.
void think() {
    update_checks();
    update_attacks();
    const int n = generate_moves(0, GENERATE_ALL);
    const int in_check = board.turn->checkers ? 1 : 0;
    if (n == 0) {
        answer_no_move(in_check ? "mate" : "pat");
        return;
    }
    if (n == 1) {
        printf("bestmove ");
        print_coords(move_lists[0][0]);
        printf("\n");
        return;
    }

    search_info.depth = search_info.seldepth = 1;
    int32_t result = alpha_beta(0, 1, -SCORE_INF, SCORE_INF, in_check, 1);
    uint64_t delta = 0;
    search_info.depth = 2;
    for (;;) {
        if (std::abs(result) > MATE_BOUND) break;
        tt_new_search();
        search_info.time_extended = 0;
        search_info.root_fail = 0;
        search_info.seldepth = search_info.depth;
        result = alpha_beta(0, search_info.depth, -SCORE_INF, SCORE_INF, in_check, 1);
        if (search_info.stop) break;
        search_info.last_score = result;
        ++search_info.depth;
        if (limits.mode == MODE_DEPTH && search_info.depth > limits.depth) break;
        if (search_info.time_extended) break;
        const uint64_t e = elapsed_ms();
        search_info.elapsed = e;
        delta = e - delta;
        if (limits.mode == MODE_TOURNAMENT && e + delta > limits.move_time) break;
        if (search_info.depth > MAX_DEPTH - 1) break;
    }

    const int32_t score = search_info.score;
    if (std::abs(score) > MATE_BOUND)
        printf("info string Mate in %i half-moves !\n", score < 0 ? score + MATE : MATE - score);
    printf("info ");
    print_score(score);
    printf("\n");
    // Stopped before the first report: the first move of the root list.
    const move_t best = search_info.best_move ? search_info.best_move : move_lists[0][0] & MOVE_STRIP;
    printf("bestmove ");
    print_coords(best);
    printf("\n");
}

void run_search() {
    search_info.start_clock = clock_us();
    if (is_draw()) {
        answer_no_move("draw");
        return;
    }
    think();
}

}  // namespace velkor
