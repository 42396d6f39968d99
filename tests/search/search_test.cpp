#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "engine/engine.h"
#include "evaluation/evaluation.h"
#include "protocol/protocol.h"
#include "search/search.h"
#include "support/support.h"

using namespace velkor;

namespace {

constexpr int sq(const char* name) { return (name[0] - 'a') + 8 * (name[1] - '1'); }

// Each test starts from empty search memories and an empty table.
class Search : public testing::Test {
   protected:
    void SetUp() override {
        test::capture_stdout([] {
            reset_search();
            tt_clear();
        });
        search_info.start_clock = clock_us();
    }
    void TearDown() override {
        test::capture_stdout([] { reset_search(); });
    }
    static void prepare(const char* fen) {
        test::load(fen);
        update_checks();
        update_attacks();
    }
};

std::string score_text(int32_t score) {
    return test::capture_stdout([&] { print_score(score); });
}

// The limits of a go line with the given side to move.
limits_t limits_of(const char* line, bool white_to_move) {
    set_fen(white_to_move ? START_FEN : "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 1");
    snprintf(input_line, sizeof input_line, "%s", line);
    go_limits();
    return limits;
}

}  // namespace

TEST(Score, Texts) {
    EXPECT_EQ(score_text(29999), "score mate 1 ");
    EXPECT_EQ(score_text(29997), "score mate 2 ");
    EXPECT_EQ(score_text(29937), "score mate 32 ");
    EXPECT_EQ(score_text(29936), "score cp 29936 ");
    EXPECT_EQ(score_text(-29936), "score cp -29936 ");
    EXPECT_EQ(score_text(-29998), "score mate -1 ");
    EXPECT_EQ(score_text(-29996), "score mate -2 ");
    EXPECT_EQ(score_text(-3), "score cp -3 ");
}

TEST(GoLimits, AllocationTable) {
    struct row {
        const char* line;
        bool white;
        uint64_t total, move;
    };
    const row rows[] = {
        {"go wtime 60000 btime 60000 winc 1000 binc 1000", true, 59000, 2450},
        {"go btime 5000 movestogo 1", false, 4000, 3975},
        {"go wtime 5000 movestogo 0", true, 4000, 3975},
        {"go wtime 1000", true, 0, 0},
        {"go wtime 1001", true, 1, 0},
        {"go wtime 500 winc 10000", true, 0, 9975},
        {"go winc 25", true, 0, 0},
        {"go winc 26", true, 0, 1},
        {"go wtime 60000 btime 60000", false, 59000, 1450},  // black to move reads btime
        {"go wtime 60000", false, 0, 0},                     // and finds none
    };
    for (const row& r : rows) {
        const limits_t l = limits_of(r.line, r.white);
        EXPECT_EQ(l.mode, MODE_TOURNAMENT) << r.line;
        EXPECT_EQ(l.total_time, r.total) << r.line;
        EXPECT_EQ(l.move_time, r.move) << r.line;
    }
    limits = limits_t{};
}

TEST(GoLimits, Forms) {
    EXPECT_EQ(limits_of("go", true).depth, 8);
    EXPECT_EQ(limits_of("go infinite", true).move_time, INFINITE_MOVE_TIME);
    EXPECT_EQ(limits_of("go depth 5 wtime 1000", true).mode, MODE_DEPTH);
    EXPECT_EQ(limits_of("go wtime 1000 depth 5", true).mode, MODE_TOURNAMENT);
    EXPECT_EQ(limits_of("go infinite depth 5", true).mode, MODE_TOURNAMENT);
    EXPECT_EQ(limits_of("go depth x", true).mode, MODE_TOURNAMENT);
    EXPECT_EQ(limits_of("go depth 99999999999", true).depth, 2147483647);
    limits_t l = limits_of("go movetime 1500", true);
    EXPECT_EQ(l.mode, MODE_FIXED_TIME);
    EXPECT_EQ(l.move_time, 1500u);
    EXPECT_EQ(limits_of("go movetime 99999999999999999999999", true).move_time, UINT64_MAX);
    l = limits_of("go wtime 99999999999999999999999 winc 99999999999999999999999", true);
    EXPECT_EQ(l.move_time, UINT64_MAX - 25) << "saturates instead of wrapping";
    limits = limits_t{};
}

TEST_F(Search, ExchangeEvaluation) {
    auto see = [](const char* fen, const char* from, const char* to) {
        prepare(fen);
        const int n = generate_moves(0, GENERATE_ALL);
        for (int i = 0; i < n; ++i)
            if (move_from(move_lists[0][i]) == sq(from) && move_to(move_lists[0][i]) == sq(to))
                return see_score(move_lists[0][i]);
        ADD_FAILURE() << "no move " << from << to;
        return 0;
    };
    // Rook takes a pawn that the queen defends: 100 - 500.
    EXPECT_EQ(see("3q3k/8/8/3p4/8/8/8/3R3K w - - 0 1", "d1", "d5"), -400);
    // Bishop takes a pawn that a pawn defends: 100 - 300.
    EXPECT_EQ(see("7k/8/3p4/4p3/8/2B5/8/7K w - - 0 1", "c3", "e5"), -200);
    // The queen behind the rook joins once the rook has gone: 100 - 500 + 500.
    EXPECT_EQ(see("3r3k/8/8/3p4/8/8/3R4/3Q3K w - - 0 1", "d2", "d5"), 100);
    EXPECT_EQ(see("3r3k/8/8/3p4/8/8/3R4/7K w - - 0 1", "d2", "d5"), -400);
    // A king that makes the last capture is safe; one that can be taken back is not.
    EXPECT_EQ(see("8/8/4k3/3p4/8/8/8/3Q3K w - - 0 1", "d1", "d5"), -800);
    EXPECT_EQ(see("8/8/4k3/3p4/8/8/3Q4/3R3K w - - 0 1", "d2", "d5"), 19200);
}

TEST_F(Search, QuiescenceExits) {
    prepare(START_FEN);
    EXPECT_EQ(quiesce(64, 17, 18, 0), 17) << "beyond ply 63";
    EXPECT_EQ(search_info.nodes, 1u);
    search_info.stop = 1;
    EXPECT_EQ(quiesce(1, 17, 18, 0), 0);
    search_info.stop = 0;
    test::load("8/8/8/8/8/8/8/K6k w - - 0 1");
    EXPECT_EQ(quiesce(1, 17, 18, 0), 0) << "draw";
    // In check without a move: mated at this ply.
    test::load("R5k1/5ppp/8/8/8/8/8/6K1 b - - 0 1");
    EXPECT_EQ(quiesce(5, -100, 100, 1), 5 - MATE);
    EXPECT_EQ(quiesce(63, -100, 100, 1), 63 - MATE);
    // Standing pat at or above beta returns the static score itself.
    prepare(START_FEN);
    EXPECT_EQ(quiesce(1, -50, -10, 0), 0);
    // No capture: the better of alpha and the static score.
    EXPECT_EQ(quiesce(1, 7, 20, 0), 7);
    EXPECT_EQ(quiesce(1, -7, 20, 0), 0);
}

// e4xd5 is the one capture. With static score s the margin is s + 200 + 100:
// below the best it is skipped (one node), at it the capture is searched.
TEST_F(Search, QuiescenceDeltaPruning) {
    prepare("4k3/8/8/3p4/4P3/8/8/4K3 w - - 0 1");
    const int32_t s = evaluate();
    search_info.nodes = 0;
    EXPECT_EQ(quiesce(1, s + 301, s + 302, 0), s + 301);
    EXPECT_EQ(search_info.nodes, 1u);
    search_info.nodes = 0;
    quiesce(1, s + 299, s + 300, 0);
    EXPECT_GT(search_info.nodes, 1u);
    // A losing capture (bishop takes a defended pawn) is skipped only in a one-point window.
    prepare("4k3/8/3p4/4p3/8/2B5/8/4K3 w - - 0 1");
    const int32_t b = evaluate();
    search_info.nodes = 0;
    quiesce(1, b - 1, b, 0);
    EXPECT_EQ(search_info.nodes, 1u) << "stand pat at beta";
    search_info.nodes = 0;
    quiesce(1, b + 1, b + 2, 0);
    EXPECT_EQ(search_info.nodes, 1u) << "SEE -200 skips it";
    search_info.nodes = 0;
    quiesce(1, b + 1, b + 50, 0);
    EXPECT_GT(search_info.nodes, 1u) << "a wider window searches all captures";
}

TEST_F(Search, AlphaBetaEarlyExits) {
    // Mate and stalemate come from the generation, before any pruning.
    prepare("R5k1/5ppp/8/8/8/8/8/6K1 b - - 0 1");
    EXPECT_EQ(alpha_beta(3, 6, -100, 100, 1, 1), 3 - MATE);
    prepare("7k/5Q2/6K1/8/8/8/8/8 b - - 0 1");
    EXPECT_EQ(alpha_beta(3, 6, -100, 100, 0, 1), 0);
    // A draw at entry returns 0 and stores nothing.
    test::load("8/8/8/8/8/8/8/K6k w - - 0 1");
    EXPECT_EQ(alpha_beta(1, 5, -100, 100, 0, 1), 0);
    EXPECT_EQ(tt_used, 0u);
    // A table hit answers a non-PV node at once; a PV node takes it only inside its window.
    test::load(START_FEN);
    const uint64_t key = board.states[0].key;
    tt_store(key, 33, 10, TT_EXACT, 0);
    search_info.nodes = 0;
    EXPECT_EQ(alpha_beta(1, 5, 40, 41, 0, 1), 33);
    EXPECT_EQ(search_info.nodes, 1u);
    EXPECT_EQ(alpha_beta(1, 5, 20, 40, 0, 1), 33);
    EXPECT_EQ(search_info.nodes, 2u);
    // The end of the depth hands over to quiescence, which counts the node.
    search_info.nodes = 0;
    EXPECT_EQ(alpha_beta(4, 4, -5, 5, 0, 1), quiesce(4, -5, 5, 0));
    EXPECT_EQ(search_info.nodes, 2u);
}

// Depth 1, non-PV, null allowed: the static test returns its score when it
// reaches beta: evaluate less 25 for each own man the enemy attacks.
TEST_F(Search, ShallowStaticTest) {
    prepare("4k3/8/8/8/8/8/r7/R3K3 w - - 0 1");
    EXPECT_EQ(popcount(white.pieces[0] & black.attacks[0]), 1);  // the rook a1
    const int32_t s = evaluate() - 25;
    search_info.nodes = 0;
    EXPECT_EQ(alpha_beta(1, 2, s - 1, s, 0, 1), s);
    EXPECT_EQ(search_info.nodes, 1u);
    // With pawns alone on one side there is no such test: the node searches.
    prepare("4k3/4p3/8/8/8/8/8/R3K3 w - - 0 1");
    search_info.nodes = 0;
    alpha_beta(1, 2, -20000, -19999, 0, 1);
    EXPECT_GT(search_info.nodes, 1u);
}

// A quiet fail-high feeds history and killers and is stored as a lower bound with its move.
TEST_F(Search, FailHighMemories) {
    prepare("7k/8/8/8/8/8/P7/4K3 w - - 0 1");
    const int32_t result = alpha_beta(1, 2, -SCORE_INF, -20000, 0, 1);
    EXPECT_GE(result, -20000);
    const move_t first = killers[1][0];
    ASSERT_NE(first, 0u);
    EXPECT_EQ(first >> 17, 0u) << "a plain quiet move";
    EXPECT_EQ(history[move_moved(first) * 64 + move_to(first)], 1u);
    EXPECT_EQ(tt_best_move(board.states[0].key), first);
    EXPECT_EQ(tt_bound(tt_table[uint32_t(board.states[0].key) & tt_mask].tt_data), TT_LOWER);
}

namespace {

// The entry the table holds for the current position, or nullptr.
const tt_entry* entry_here() {
    const uint64_t key = board.states[board.ply].key;
    const tt_entry* e = tt_table + (uint32_t(key) & tt_mask);
    for (int i = 0; i < 4; ++i)
        if (e[i].tt_key == key && e[i].tt_data != 0) return &e[i];
    return nullptr;
}

}  // namespace

// What the table keeps of each way out of a node.
TEST_F(Search, StoresByExit) {
    // A null move at depth 3 and more that still reaches beta: its score, and no store.
    prepare("r3k3/8/8/8/8/8/8/Q3K2R w - - 0 1");
    EXPECT_GE(alpha_beta(1, 5, -20000, -19999, 0, 1), -19999);
    EXPECT_EQ(entry_here(), nullptr);
    // A PV node where nothing reaches alpha: an upper bound without a move.
    prepare(START_FEN);
    EXPECT_EQ(alpha_beta(1, 3, 2000, 2010, 0, 1), 2000);
    ASSERT_NE(entry_here(), nullptr);
    EXPECT_EQ(tt_bound(entry_here()->tt_data), TT_UPPER);
    EXPECT_EQ(move_t(entry_here()->tt_data), 0u);
    // A null-move node at depth 1 or 2 whose static test failed stores no upper bound.
    test::capture_stdout([] { tt_clear(); });
    prepare(START_FEN);
    EXPECT_EQ(alpha_beta(1, 2, 2000, 2001, 0, 1), 2000);
    EXPECT_EQ(entry_here(), nullptr);
    // The root with the full window: an exact score with its best move, and the report.
    prepare(START_FEN);
    search_info.depth = search_info.seldepth = 1;
    const std::string out = test::capture_stdout([] { alpha_beta(0, 1, -SCORE_INF, SCORE_INF, 0, 1); });
    ASSERT_NE(entry_here(), nullptr);
    EXPECT_EQ(tt_bound(entry_here()->tt_data), TT_EXACT);
    EXPECT_EQ(move_t(entry_here()->tt_data), search_info.best_move);
    EXPECT_EQ(out.substr(0, 44), "info depth 1 seldepth 1 score cp 51 pv e2e3 ");
}
