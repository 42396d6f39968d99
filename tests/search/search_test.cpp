#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "engine/engine.h"
#include "search/search.h"
#include "support/support.h"

using namespace velkor;

// Each record of search.epd loads its FEN, then runs its operations; see
// the head of the file.
TEST(Search, ReferenceData) {
    int checked = 0;
    for (const auto& r : test::records("search.epd")) {
        std::string bestmove;
        for (size_t i = 1; i < r.size(); ++i, ++checked) {
            test::load(r[0].c_str());
            std::istringstream in(r[i]);
            std::string op, text;
            in >> op >> text;
            const std::string at = r[0] + " ; " + r[i];
            if (op == "go") {
                test::capture_stdout([] { tt_clear(), reset_search(); });
                uint32_t step = 0;
                if (in >> step)
                    for (uint32_t i = 0; i < 8 * 64; ++i) history[i] = i * step;
                limits.mode = MODE_DEPTH;
                limits.depth = std::stoi(text);
                const std::string out = test::capture_stdout(run_search);
                bestmove = out.substr(out.rfind("bestmove "));
            } else if (op == "nodes") {
                test::pinned(r, i, "nodes " + std::to_string(search_info.nodes), at);
            } else if (op == "score") {
                test::pinned(r, i, "score " + std::to_string(search_info.score), at);
            } else if (op == "best") {
                test::pinned(r, i, "best " + bestmove.substr(9, bestmove.size() - 10), at);
            } else if (op == "see") {
                update_checks();
                update_attacks();
                const int n = generate_moves(0, GENERATE_ALL);
                int k = 0;
                while (k < n && test::capture_stdout([&] { print_coords(move_lists[0][k]); }) != text) ++k;
                ASSERT_LT(k, n) << at;
                test::pinned(r, i, "see " + text + " " + std::to_string(see_score(move_lists[0][k])), at);
            } else {
                ADD_FAILURE() << "unknown operation " << at;
            }
        }
    }
    test::capture_stdout([] { reset_search(); });
    EXPECT_GT(checked, 20);
}

// The limit check on a clock read long after the start: a timed search
// stops, an unsettled root doubles its time while four times it fits in
// the clock, and a depth search runs on.
TEST(Search, LimitCheck) {
    const limits_t cases[] = {{MODE_FIXED_TIME, 0, 0, 100},
                              {MODE_TOURNAMENT, 0, 1000, 200},
                              {MODE_TOURNAMENT, 0, 1000, 400},  // more than a quarter of the clock
                              {MODE_DEPTH, 5, 0, 0}};
    const uint32_t stops[] = {1, 0, 1, 0};
    for (int i = 0; i < 4; ++i) {
        test::capture_stdout([] { reset_search(); });
        limits = cases[i];
        search_info.root_fail = 1;
        search_info.start_clock = clock_us() - 1000000;
        check_limits();
        EXPECT_EQ(search_info.stop, stops[i]) << i;
        EXPECT_EQ(search_info.time_extended, i == 1 ? 1u : 0u) << i;
        EXPECT_EQ(limits.move_time, i == 1 ? 400u : cases[i].move_time) << i;
    }
    test::capture_stdout([] { reset_search(); });
}

// Under a clock the root is unsettled when its score falls more than 100
// below the last iteration's; a fall of exactly 100 leaves it settled.
TEST(Search, RootFallOfMoreThanOneHundred) {
    test::load("k7/8/8/8/8/8/6q1/7K w - - 0 1");  // Kxg2 alone, then bare kings: 0
    for (const int32_t last : {100, 101}) {
        test::capture_stdout([] { tt_clear(), reset_search(); });
        limits = {MODE_FIXED_TIME, 0, 0, 1000000};
        search_info.start_clock = clock_us();
        search_info.depth = 2;
        search_info.last_score = last;
        int32_t score = -1;
        test::capture_stdout([&] { score = alpha_beta(0, 2, -SCORE_INF, SCORE_INF, 1, 1); });
        EXPECT_EQ(score, 0);
        EXPECT_EQ(search_info.root_fail, last == 101 ? 2 : 0) << last;
    }
    test::capture_stdout([] { reset_search(); });
}

TEST(Search, ScoreTexts) {
    for (const auto& [score, text] : {std::pair{29999, "mate 1"},
                                      {29997, "mate 2"},
                                      {29937, "mate 32"},
                                      {29936, "cp 29936"},
                                      {-29936, "cp -29936"},
                                      {-29998, "mate -1"},
                                      {-29996, "mate -2"},
                                      {-3, "cp -3"}})
        EXPECT_EQ(test::capture_stdout([&] { print_score(score); }), "score " + std::string(text) + " ");
}

TEST(Search, QuiescenceStopsAtTheLastPly) {
    test::load(START_FEN);
    update_checks();
    update_attacks();
    EXPECT_EQ(quiesce(MAX_DEPTH, 17, 18, 0), 17);
    test::load("R5k1/5ppp/8/8/8/8/8/6K1 b - - 0 1");
    EXPECT_EQ(quiesce(MAX_DEPTH - 1, -100, 100, 1), MAX_DEPTH - 1 - MATE);
}
