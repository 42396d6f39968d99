// Searches driven over the protocol: time, stopping, and reproducible counts.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/support.h"

using velkor::test::AWAIT_BESTMOVE;
using velkor::test::PAUSE;
using velkor::test::run_engine_process;
using velkor::test::split_lines;

namespace {

std::vector<std::string> lines_starting(const std::string& out, const std::string& prefix) {
    std::vector<std::string> found;
    for (const std::string& line : split_lines(out))
        if (line.starts_with(prefix)) found.push_back(line);
    return found;
}

// The number behind a word in an info line.
long long field(const std::string& line, const std::string& word) {
    const size_t at = line.find(" " + word + " ");
    return at == std::string::npos ? -1 : std::stoll(line.substr(at + word.size() + 2));
}

}  // namespace

// A fixed time: reports with a lower bound while the iteration runs, the
// answer within the time (one check period late at most).
TEST(SearchSessions, MoveTime) {
    const auto r = run_engine_process("position startpos moves e2e4\ngo movetime 400\n");
    ASSERT_EQ(r.status, 0);
    const auto best = lines_starting(r.out, "bestmove ");
    ASSERT_EQ(best.size(), 1u);
    EXPECT_EQ(best[0].size(), 13u) << best[0];
    const auto infos = lines_starting(r.out, "info depth ");
    ASSERT_FALSE(infos.empty());
    EXPECT_NE(infos.front().find(" lowerbound pv "), std::string::npos);
    EXPECT_LE(field(infos.back(), "time"), 600);
    EXPECT_LT(r.milliseconds, 2500);
}

// Clocks: 10 s and 40 moves to go give 9000 / 40 - 25 = 200 ms, which an
// unsettled root may double while four times it stays within 9000.
TEST(SearchSessions, ClockSearchKeepsItsAllotment) {
    for (const char* go : {"go wtime 10000 btime 10000", "go btime 10000 wtime 10000 binc 0 winc 0",
                           "go winc 100 wtime 1100 btime 1100 binc 100"}) {
        const auto r = run_engine_process(std::string(go) + "\n");
        ASSERT_EQ(r.status, 0) << go;
        ASSERT_EQ(lines_starting(r.out, "bestmove ").size(), 1u) << go;
        const auto infos = lines_starting(r.out, "info depth ");
        ASSERT_FALSE(infos.empty()) << go;
        EXPECT_LE(field(infos.back(), "time"), 1700) << go;
    }
}

// A waiting line ends the search: the bestmove comes first, then the line's answer.
TEST(SearchSessions, StopAndIsreadyDuringInfinite) {
    auto r = run_engine_process(std::string("go infinite\n") + PAUSE + "stop\nisready\n");
    auto lines = split_lines(r.out);
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[lines.size() - 3].substr(0, 11), "info score ");
    EXPECT_EQ(lines[lines.size() - 2].substr(0, 9), "bestmove ");
    EXPECT_EQ(lines.back(), "readyok");
    EXPECT_GE(r.milliseconds, velkor::test::PAUSE_MS);
    r = run_engine_process(std::string("go infinite\n") + PAUSE + "isready\n");
    lines = split_lines(r.out);
    EXPECT_EQ(lines[lines.size() - 2].substr(0, 9), "bestmove ");
    EXPECT_EQ(lines.back(), "readyok");
    // With the input ended nobody could stop it: it ends by itself.
    r = run_engine_process("go infinite\n", {}, 20);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(lines_starting(r.out, "bestmove ").size(), 1u);
}

// A piped depth search with nothing after it runs to its depth, then the engine ends.
TEST(SearchSessions, DepthSearchThenEndOfInput) {
    const auto r = run_engine_process("go depth 7\n");
    EXPECT_EQ(r.status, 0);
    const auto infos = lines_starting(r.out, "info depth ");
    ASSERT_EQ(infos.size(), 7u);
    EXPECT_EQ(infos.back().substr(0, 13), "info depth 7 ");
}

// The same searches around ucinewgame give the same node counts.
TEST(SearchSessions, Reprosearch) {
    const std::string games =
        "position startpos moves e2e4 c7c5\ngo depth 6\n"
        "position fen r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1\ngo depth 4\n"
        "position startpos moves d2d4 d7d5 c2c4\ngo depth 6\n";
    // Each search ends before the next line is sent, so no line stops it early.
    std::string input;
    for (const std::string& line : split_lines(games))
        input += line + "\n" + (line.starts_with("go") ? std::string(1, AWAIT_BESTMOVE) : "");
    const auto r = run_engine_process(input + "ucinewgame\n" + input);
    const auto finals = lines_starting(r.out, "bestmove ");
    ASSERT_EQ(finals.size(), 6u);
    std::vector<long long> nodes;
    for (const std::string& line : split_lines(r.out))
        if (line.starts_with("info depth ")) nodes.push_back(field(line, "nodes"));
    ASSERT_EQ(nodes.size() % 2, 0u);
    for (size_t i = 0; i < nodes.size() / 2; ++i) EXPECT_EQ(nodes[i], nodes[i + nodes.size() / 2]) << i;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(finals[i], finals[i + 3]);
}

// The bench signature: the same count in every build and on every run (twice
// in one process here, where the sanitizers do not slow it down).
TEST(SearchSessions, BenchSignature) {
#if defined(__SANITIZE_ADDRESS__)
    const int runs = 1;
#else
    const int runs = 2;
#endif
    std::string input;
    for (int i = 0; i < runs; ++i) input += "bench\n" + std::string(4, AWAIT_BESTMOVE);
    const auto r = run_engine_process(input, {}, 600);
    ASSERT_FALSE(r.timed_out);
    const auto totals = lines_starting(r.out, "17072933 nodes in ");
    EXPECT_EQ(totals.size(), size_t(runs)) << r.out.substr(r.out.size() - std::min<size_t>(r.out.size(), 300));
    EXPECT_EQ(lines_starting(r.out, "bestmove ").size(), 4u * runs);
    EXPECT_EQ(lines_starting(r.out, "fen = ").size(), 4u * runs);
}
