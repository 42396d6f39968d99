#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "support/support.h"

using namespace velkor;
using list = std::vector<std::string>;

namespace {

// The generated list of a position, in order, in the long display form:
// captured piece letters and check marks show the word's fields.
list moves_of(const char* fen, unsigned mode = GENERATE_ALL) {
    test::load(fen);
    return test::generated(mode);
}

}  // namespace

TEST(Generate, StartPositionOrder) {
    EXPECT_EQ(moves_of(START_FEN), (list{"a2a3", "a2a4", "b2b3", "b2b4", "c2c3", "c2c4", "d2d3", "d2d4", "e2e3",
                                        "e2e4", "f2f3", "f2f4", "g2g3", "g2g4", "h2h3", "h2h4", "Nb1a3", "Nb1c3",
                                        "Ng1f3", "Ng1h3"}));
    test::load("rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
    list black = test::generated();
    ASSERT_EQ(black.size(), 20u);
    EXPECT_EQ(list(black.begin(), black.begin() + 4), (list{"a7a5", "a7a6", "b7b5", "b7b6"}));
    EXPECT_EQ(list(black.end() - 4, black.end()), (list{"Nb8a6", "Nb8c6", "Ng8f6", "Ng8h6"}));
}

TEST(Generate, Castling) {
    list both = moves_of("r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1");
    ASSERT_EQ(both.size(), 26u);
    EXPECT_EQ(list(both.begin(), both.begin() + 3), (list{"Ke1g1", "Ke1c1", "Ra1b1"}));
    EXPECT_EQ(std::count(both.begin(), both.end(), "Ra1xRa8+"), 1);
    EXPECT_EQ(std::count(both.begin(), both.end(), "Rh1xRh8+"), 1);
    // An attacked transit square forbids a side; an attacked b1 does not.
    list f_file = moves_of("4k3/8/8/8/8/5r2/8/R3K2R w KQ - 0 1");
    EXPECT_EQ(f_file[0], "Ke1c1");
    EXPECT_EQ(std::count(f_file.begin(), f_file.end(), "Ke1g1"), 0);
    list b_file = moves_of("4k3/8/8/8/8/1r6/8/R3K2R w KQ - 0 1");
    EXPECT_EQ(list(b_file.begin(), b_file.begin() + 2), (list{"Ke1g1", "Ke1c1"}));
    // The arriving rook gives check.
    EXPECT_EQ(moves_of("5k2/8/8/8/8/8/8/4K2R w K - 0 1")[0], "Ke1g1+");
    EXPECT_EQ(moves_of("3k4/8/8/8/8/8/8/R3K3 w Q - 0 1")[0], "Ke1c1+");
    // No castling out of check, nor in the captures list.
    EXPECT_NE(moves_of("4k3/8/8/8/8/8/4r3/R3K2R w KQ - 0 1")[0].substr(0, 4), "Ke1g");
    EXPECT_EQ(moves_of("r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", GENERATE_CAPTURES),
              (list{"Ra1xRa8+", "Rh1xRh8+"}));
}

TEST(Generate, Promotions) {
    EXPECT_EQ(moves_of("8/4P1k1/8/8/8/8/8/4K3 w - - 0 1", GENERATE_CAPTURES),
              (list{"e7e8=Q", "e7e8=R", "e7e8=B", "e7e8=N+"}));
    EXPECT_EQ(moves_of("5n1k/4P3/8/8/8/8/8/4K3 w - - 0 1", GENERATE_CAPTURES),
              (list{"e7e8=Q", "e7e8=R", "e7e8=B", "e7e8=N", "e7xNf8=Q+", "e7xNf8=R+", "e7xNf8=B", "e7xNf8=N"}));
}

TEST(Generate, EnPassant) {
    EXPECT_EQ(moves_of("4k3/8/8/2pP4/8/8/8/4K3 w - c6 0 1"),
              (list{"d5xc6", "d5d6", "Ke1d1", "Ke1f1", "Ke1d2", "Ke1e2", "Ke1f2"}));
    // Both pawns leave the rank and the rook would see the king.
    list pinned = moves_of("8/8/8/8/k2pP2R/8/8/7K b - e3 0 1");
    EXPECT_EQ(std::count(pinned.begin(), pinned.end(), "d4xe3"), 0);
    // Uncovering the rook counts as check; both bits are set.
    EXPECT_EQ(moves_of("7k/8/8/8/1K1pP2r/8/8/8 b - e3 0 1")[0], "d4xe3++");
    // Taking the checking pawn en passant is the pawn's only move.
    list evasion = moves_of("8/8/8/2k5/3Pp3/8/8/4K3 b - d3 0 1");
    EXPECT_EQ(evasion[0], "e4xd3");
    for (size_t i = 1; i < evasion.size(); ++i) EXPECT_EQ(evasion[i][0], 'K') << evasion[i];
}

TEST(Generate, ChecksPinsAndEvasions) {
    EXPECT_EQ(moves_of("4r3/8/8/8/8/8/4K3/7k w - - 0 1"),
              (list{"Ke2d1", "Ke2f1", "Ke2d2", "Ke2f2", "Ke2d3", "Ke2f3"}));
    EXPECT_EQ(moves_of("4r1k1/8/8/8/8/5n2/8/4K3 w - - 0 1"), (list{"Ke1d1", "Ke1f1", "Ke1f2"}));
    list pinned = moves_of("4k3/4r3/8/8/8/8/4R3/4K3 w - - 0 1");
    EXPECT_EQ(list(pinned.begin(), pinned.begin() + 5), (list{"Re2e3", "Re2e4", "Re2e5", "Re2e6", "Re2xRe7+"}));
    EXPECT_EQ(pinned[5][0], 'K');
    list discovered = moves_of("4k3/8/8/3p4/4P3/8/8/4R2K w - - 0 1");
    EXPECT_EQ(list(discovered.begin(), discovered.begin() + 2), (list{"e4xd5+", "e4e5"}));
    list knight = moves_of("4k3/8/8/4N3/8/8/8/4R2K w - - 0 1");
    EXPECT_EQ(list(knight.begin(), knight.begin() + 8),
              (list{"Ne5d3+", "Ne5f3+", "Ne5c4+", "Ne5g4+", "Ne5c6+", "Ne5g6+", "Ne5d7+", "Ne5f7+"}));
    // Mate and stalemate leave an empty list.
    EXPECT_TRUE(moves_of("R5k1/5ppp/8/8/8/8/8/6K1 b - - 0 1").empty());
    EXPECT_TRUE(moves_of("7k/5Q2/6K1/8/8/8/8/8 b - - 0 1").empty());
}

TEST(Generate, LastPlyListIsUsable) {
    set_startpos();
    update_checks();
    update_attacks();
    EXPECT_EQ(generate_moves(MAX_DEPTH - 1, GENERATE_ALL), 20);
    EXPECT_EQ(move_lists[MAX_DEPTH - 1][19], make_word(6, 23, KNIGHT));
}

// Along random games: every move leaves the mover's king safe, a check bit is
// set exactly when the move gives check, the captures list is the full list
// less quiet moves, in the same order, and the counting pass and the test
// for any move agree.
TEST(Generate, WordsAreLegalAndCheckBitsExact) {
    long checked = 0;
    test::random_games(10, 100, 777, [&](int n) {
        ASSERT_EQ(count_moves(), n);
        ASSERT_EQ(has_legal_move(), n != 0);
        if (!board.turn->checkers) {
            std::vector<move_t> expected;
            for (int i = 0; i < n; ++i)
                if (move_captured(move_lists[0][i]) || move_promotion(move_lists[0][i]))
                    expected.push_back(move_lists[0][i]);
            const int c = generate_moves(1, GENERATE_CAPTURES);
            ASSERT_EQ(std::vector<move_t>(move_lists[1], move_lists[1] + c), expected);
        }
        for (int i = 0; i < n; ++i) {
            const move_t m = move_lists[0][i];
            make_move(m);
            ASSERT_EQ(is_king_attacked(board.turn->opponent), 0);
            ASSERT_EQ((m & (MOVE_CHECK | MOVE_DISCOVERED)) != 0, is_king_attacked(board.turn) == 1);
            unmake_move(m);
            ++checked;
        }
    });
    EXPECT_GT(checked, 50000);
}
