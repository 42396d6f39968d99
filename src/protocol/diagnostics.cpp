#include <cinttypes>
#include <cstdio>

#include "engine/engine.h"
#include "evaluation/evaluation.h"
#include "protocol/protocol.h"
#include "search/search.h"

namespace velkor {

// Everything the engine knows of the position without searching: the board,
// the static score, and the legal moves by descending word.
void debug_command() {
    update_checks();
    update_attacks();
    print_board();
    const int32_t score = evaluate();
    print_score(score);
    if (score > MATE_BOUND || score < -MATE_BOUND) printf(" [%i half-moves]", score < 0 ? score + MATE : MATE - score);
    printf("\n\n");

    const int n = generate_moves(0, GENERATE_ALL);
    printf("%i legal moves:\n", n);
    move_t* list = move_lists[0];
    for (int i = 0; i < n; ++i) {
        int best = i;
        for (int j = i + 1; j < n; ++j)
            if (int32_t(list[j]) > int32_t(list[best])) best = j;
        const move_t swap = list[i];
        list[i] = list[best];
        list[best] = swap;
    }
    int column = 0;
    for (int i = 0; i < n; ++i) {
        column += print_move(list[i]);
        if (column <= 69) {
            printf(" ");
            ++column;
        } else {
            printf("\n");
            column = 0;
        }
    }
    printf("\n\n");
}

namespace {

constexpr int BENCH_DEPTH = 12;

}  // namespace

// Each position starts with an empty table and empty search memories, as a
// new game would; the time covers everything, board printing included.
void bench_command() {
    const uint64_t start = clock_us();
    uint64_t total = 0;
    for (const char* fen : BENCH_POSITIONS) {
        set_fen(fen);
        reset_search();
        tt_clear();
        print_board();
        limits.mode = MODE_DEPTH;
        limits.depth = BENCH_DEPTH;
        run_search();
        total += search_info.nodes;
    }
    const uint64_t ms = ms_since(start);
    printf("%" PRIu64 " nodes in %" PRIu64 " ms, speed = %" PRIu64 " nodes/s\n", total, ms, speed_nps(total, ms));
    reset_search();
}

}  // namespace velkor
