#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "engine/engine.h"
#include "support/support.h"

using namespace velkor;

namespace {

// Depths whose totals exceed this are left to the long perft run.
constexpr uint64_t LEAF_BUDGET = 6000000;

}  // namespace

// Every position of the data file at every depth within the budget.
TEST(Perft, TotalsFromDataFile) {
    std::ifstream file(VELKOR_TEST_DATA "/perft.epd");
    ASSERT_TRUE(file.good());
    std::string line;
    int counted = 0;
    while (std::getline(file, line)) {
        if (line.empty() || line[0] == '#') continue;
        const std::string fen = line.substr(0, line.find(';'));
        test::load(fen.c_str());
        std::istringstream fields(line.substr(line.find(';')));
        std::string depth_field;
        uint64_t expected = 0;
        while (fields >> depth_field >> expected) {
            const int depth = std::stoi(depth_field.substr(2));
            if (expected > LEAF_BUDGET) continue;
            EXPECT_EQ(perft_count(0, depth - 1), expected) << fen << " depth " << depth;
            EXPECT_EQ(board.ply, 0);
            ++counted;
        }
    }
    EXPECT_GT(counted, 100);
}

TEST(Perft, PrintsALinePerRootMove) {
    set_startpos();
    auto lines = test::split_lines(test::capture_stdout([] { EXPECT_EQ(perft(2), 400u); }));
    ASSERT_EQ(lines.size(), 21u);
    EXPECT_EQ(lines[0], "a2a3: 20");
    EXPECT_EQ(lines[19], "g1h3: 20");
    EXPECT_EQ(lines[20].substr(0, 13), "400 nodes in ");
    // Promotions get a line each, queen first; a mating move counts 0 below it.
    test::load("7k/4P3/6K1/8/8/8/8/8 w - - 0 1");
    lines = test::split_lines(test::capture_stdout([] { perft(2); }));
    EXPECT_EQ(lines[0], "e7e8q: 0");
    EXPECT_EQ(lines[1], "e7e8r: 0");
    EXPECT_EQ(lines[2], "e7e8b: 1");
    EXPECT_EQ(lines[3], "e7e8n: 1");
    // Mate at the root: an empty line at depth 1, the closing line alone deeper.
    test::load("R5k1/5ppp/8/8/8/8/8/6K1 b - - 0 1");
    lines = test::split_lines(test::capture_stdout([] { perft(1); }));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "");
    EXPECT_TRUE(lines[1].starts_with("0 nodes in ") && lines[1].ends_with(" ms, speed = 0 nodes/s")) << lines[1];
    lines = test::split_lines(test::capture_stdout([] { perft(3); }));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("0 nodes in ")) << lines[0];
}
