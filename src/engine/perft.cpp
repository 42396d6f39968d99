#include <cinttypes>
#include <cstdio>

#include "engine/engine.h"

namespace velkor {

// The last level is counted, never played.
uint64_t perft_count(int ply, int last) {
    update_checks();
    update_attacks();
    if (ply == last) return uint64_t(count_moves());
    const int n = generate_moves(ply, GENERATE_ALL);
    uint64_t total = 0;
    for (int i = 0; i < n; ++i) {
        const move_t w = move_lists[ply][i];
        make_move(w);
        total += perft_count(ply + 1, last);
        unmake_move(w);
    }
    return total;
}

// Levels 0 and 1 are written out here so that each root move gets its line.
uint64_t perft(int depth) {
    const uint64_t start = clock_us();
    update_checks();
    update_attacks();
    const int n = generate_moves(0, GENERATE_ALL);
    uint64_t total = 0;
    if (depth == 1) {
        for (int i = 0; i < n; ++i) {
            print_coords(move_lists[0][i]);
            printf(" ");
        }
        printf("\n");
        total = uint64_t(n);
    } else {
        for (int i = 0; i < n; ++i) {
            const move_t m = move_lists[0][i];
            make_move(m);
            update_checks();
            update_attacks();
            const int c = generate_moves(1, GENERATE_ALL);
            uint64_t count = uint64_t(c);
            if (depth > 2) {
                count = 0;
                for (int j = 0; j < c; ++j) {
                    const move_t w = move_lists[1][j];
                    make_move(w);
                    count += perft_count(2, depth - 1);
                    unmake_move(w);
                }
            }
            total += count;
            print_coords(m);
            printf(": %" PRIu64 "\n", count);
            unmake_move(m);
        }
    }
    const uint64_t ms = ms_since(start);
    const uint64_t speed = speed_nps(total, ms);
    printf("%" PRIu64 " nodes in %" PRIu64 " ms, speed = %" PRIu64 " nodes/s\n", total, ms, speed);
    return total;
}

}  // namespace velkor
