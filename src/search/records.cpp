#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "engine/engine.h"
#include "search/search.h"

namespace velkor {

limits_t limits;
search_info_t search_info;
move_t killers[MAX_DEPTH][2];
uint32_t history[8 * 64];
uint64_t root_nodes[4096];

void reset_search() {
    tt_new_search();
    limits = limits_t{};
    search_info = search_info_t{};
    memset(killers, 0, sizeof killers);
    memset(history, 0, sizeof history);
    memset(move_lists, 0, sizeof move_lists);
    memset(root_nodes, 0, sizeof root_nodes);
}

uint64_t elapsed_ms() { return ms_since(search_info.start_clock); }

void check_limits() {
    search_info.elapsed = elapsed_ms();
    if (limits.mode != MODE_DEPTH && search_info.elapsed >= limits.move_time) {
        if (search_info.root_fail != 0 && limits.move_time <= limits.total_time / 4) {
            search_info.time_extended = 1;
            limits.move_time *= 2;
        } else {
            search_info.stop = 1;
        }
    }
    if (input_pending()) search_info.stop = 1;
    // An infinite search whose input has ended would never hear a stop.
    if (limits.mode == MODE_FIXED_TIME && limits.move_time >= INFINITE_MOVE_TIME && input_closed())
        search_info.stop = 1;
    if ((search_info.nodes & CURRMOVE_MASK) == CURRMOVE_MASK) {
        search_info.nps = speed_nps(search_info.nodes, search_info.elapsed);
        printf("info depth %i currmove ", search_info.depth);
        print_coords(search_info.currmove);
        printf(" currmovenumber %i time %" PRIu64 " nodes %" PRIu64 " nps %" PRIu64 " hashfull %i\n",
               search_info.currmovenumber, search_info.elapsed, search_info.nodes, search_info.nps, tt_hashfull());
    }
}

}  // namespace velkor
