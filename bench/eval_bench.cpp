// Evaluations per second over a fixed set of positions, each with its attack
// maps made fresh first as the search does, next to the cost of those maps
// alone.
#include <cinttypes>
#include <cstdio>

#include "engine/engine.h"
#include "evaluation/evaluation.h"

using namespace velkor;

namespace {

const char* const POSITIONS[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - - 0 10",
    "2r1k2r/pq1p1ppp/1pbPpn2/8/2P2B2/P2B1P2/1PQ3PP/R3K2R b KQk - 2 16",
    "1n1q1rk1/r3ppbp/p1p3p1/1p3b2/P1pP3B/1NP1PB2/5PPP/R2QR1K1 w - - 10 16",
    "r2q2k1/pb3pp1/1p3n1p/2bpr3/8/2NBP3/PPQB1PPP/2RR2K1 w - - 0 16",
    "r5k1/p2qp1bp/6p1/1pP3P1/2n1P3/1QP1B3/P3N1PP/R4K2 b - - 0 17",
};
constexpr int ROUNDS = 1000000;
constexpr int COUNT = int(sizeof POSITIONS / sizeof POSITIONS[0]);

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

}  // namespace

int main() {
    if (init_magics(0) != 0) return 1;
    int64_t checksum = 0;
    double maps = 0, full = 0;
    for (const char* fen : POSITIONS) {
        set_fen(fen);
        maps += nanoseconds_per_pass<false>(checksum) / COUNT;
        full += nanoseconds_per_pass<true>(checksum) / COUNT;
    }
    printf("%d positions, %d passes each\n", COUNT, ROUNDS);
    printf("%-28s %12s %14s\n", "", "ns/position", "positions/s");
    printf("%-28s %12.1f %14.0f\n", "attack maps alone", maps, 1e9 / maps);
    printf("%-28s %12.1f %14.0f\n", "attack maps and evaluate", full, 1e9 / full);
    printf("%-28s %12.1f %14.0f\n", "evaluate alone (difference)", full - maps, 1e9 / (full - maps));
    printf("checksum %" PRId64 "\n", checksum);
    return 0;
}
