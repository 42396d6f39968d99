// Evaluations per second over a fixed set of positions, each with its attack
// maps made fresh first as the search does, next to the cost of those maps
// alone.
#include <cinttypes>
#include <cstdio>
#include <iterator>

#include "engine/engine.h"
#include "evaluation/evaluation.h"
#include "protocol/protocol.h"

using namespace velkor;

namespace {

// Its own positions, timed before those of the bench command.
const char* const OWN_POSITIONS[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - - 0 10",
};
constexpr int ROUNDS = 1000000;
constexpr int COUNT = int(std::size(OWN_POSITIONS) + std::size(BENCH_POSITIONS));

// Nanoseconds per pass over the current position, ROUNDS passes.
template <bool Evaluate>
double nanoseconds_per_pass(int64_t& checksum) {
    const uint64_t start = clock_us();
    for (int r = 0; r < ROUNDS; ++r) {
        update_checks();
        update_attacks();
        if constexpr (Evaluate) checksum += evaluate();
    }
    return double(clock_us() - start) * 1000.0 / ROUNDS;
}

// Adds the position's share of the average times.
void time_position(const char* fen, double& maps, double& full, int64_t& checksum) {
    set_fen(fen);
    maps += nanoseconds_per_pass<false>(checksum) / COUNT;
    full += nanoseconds_per_pass<true>(checksum) / COUNT;
}

}  // namespace

int main() {
    if (init_magics(0) != 0) return 1;
    int64_t checksum = 0;
    double maps = 0, full = 0;
    for (const char* fen : OWN_POSITIONS) time_position(fen, maps, full, checksum);
    for (const char* fen : BENCH_POSITIONS) time_position(fen, maps, full, checksum);
    printf("%d positions, %d passes each\n", COUNT, ROUNDS);
    printf("%-28s %12s %14s\n", "", "ns/position", "positions/s");
    printf("%-28s %12.1f %14.0f\n", "attack maps alone", maps, 1e9 / maps);
    printf("%-28s %12.1f %14.0f\n", "attack maps and evaluate", full, 1e9 / full);
    printf("%-28s %12.1f %14.0f\n", "evaluate alone (difference)", full - maps, 1e9 / (full - maps));
    printf("checksum %" PRId64 "\n", checksum);
    return 0;
}
