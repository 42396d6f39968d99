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

}  // namespace velkor
