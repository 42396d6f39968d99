#include <gtest/gtest.h>

#include <string>

#include "engine/engine.h"
#include "support/support.h"

using namespace velkor;

namespace {

constexpr int sq(const char* name) { return (name[0] - 'a') + 8 * (name[1] - '1'); }

std::string apply(const char* moves) {
    std::string text = moves;
    return test::capture_stdout([&] { apply_moves(text.data()); });
}

std::string fen() {
    char text[128];
    write_fen(text);
    return text;
}

std::string shown(move_t m) {
    int width = 0;
    std::string text = test::capture_stdout([&] { width = print_move(m); });
    EXPECT_EQ(size_t(width), text.size()) << text;
    return text;
}

const std::string V = "\xB3", L = "\xB0";

}  // namespace

TEST(Notation, MoveForms) {
    EXPECT_EQ(shown(0), "null");
    EXPECT_EQ(shown(make_word(sq("g1"), sq("f3"), KNIGHT)), "Ng1f3");
    EXPECT_EQ(shown(make_word(sq("e2"), sq("e4"), PAWN)), "e2e4");
    EXPECT_EQ(shown(make_word(sq("f3"), sq("d4"), KNIGHT, BISHOP)), "Nf3xBd4");
    EXPECT_EQ(shown(make_word(sq("f3"), sq("d4"), KNIGHT, PAWN)), "Nf3xd4");
    EXPECT_EQ(shown(make_word(sq("e5"), sq("d6"), PAWN, PAWN)), "e5xd6");
    EXPECT_EQ(shown(make_word(sq("e7"), sq("f8"), PAWN, ROOK, QUEEN) | MOVE_CHECK), "e7xRf8=Q+");
    EXPECT_EQ(shown(make_word(sq("e1"), sq("g1"), KING) | MOVE_CHECK | MOVE_DISCOVERED), "Ke1g1++");
    // The coordinate form ignores order bits and check bits.
    auto coords = [](move_t m) { return test::capture_stdout([&] { print_coords(m); }); };
    EXPECT_EQ(coords(make_word(sq("e7"), sq("e8"), PAWN, 0, QUEEN) | MOVE_HASH | MOVE_CHECK), "e7e8q");
    EXPECT_EQ(coords(make_word(sq("b2"), sq("a1"), PAWN, ROOK, KNIGHT)), "b2a1n");
    EXPECT_EQ(coords(make_word(sq("e8"), sq("c8"), KING)), "e8c8");
}

TEST(Notation, FenWriter) {
    set_startpos();
    apply("e2e4");
    EXPECT_EQ(fen(), "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
    apply("e7e5 g1f3");
    EXPECT_EQ(fen(), "rnbqkbnr/pppp1ppp/8/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 1 2");
    // After the king has moved the rights are gone, whatever rook bits remain.
    apply("b8c6 e1e2");
    EXPECT_EQ(fen(), "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPPKPPP/RNBQ1B1R b kq - 3 3");
}

TEST(Notation, BoardDiagram) {
    set_startpos();
    const std::string expected =
        "\n"
        " 8" + V + L + "r" + L + " n " + L + "b" + L + " q " + L + "k" + L + " b " + L + "n" + L + " r \n" +
        " 7" + V + " p " + L + "p" + L + " p " + L + "p" + L + " p " + L + "p" + L + " p " + L + "p" + L + "\n" +
        " 6" + V + L + L + L + "   " + L + L + L + "   " + L + L + L + "   " + L + L + L + "   \n" +
        " 5" + V + "   " + L + L + L + "   " + L + L + L + "   " + L + L + L + "   " + L + L + L + "\n" +
        " 4" + V + L + L + L + "   " + L + L + L + "   " + L + L + L + "   " + L + L + L + "   \n" +
        " 3" + V + "   " + L + L + L + "   " + L + L + L + "   " + L + L + L + "   " + L + L + L + "\n" +
        " 2" + V + L + "P" + L + " P " + L + "P" + L + " P " + L + "P" + L + " P " + L + "P" + L + " P \n" +
        " 1" + V + " R " + L + "N" + L + " B " + L + "Q" + L + " K " + L + "B" + L + " N " + L + "R" + L + " *\n" +
        "   \xC0" + std::string(24, '\xC4') + "\n     A  B  C  D  E  F  G  H\n\n" +
        "key = 0x463b96181691fc9c\n"
        "fen = rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1\n";
    EXPECT_EQ(test::capture_stdout(print_board), expected);

    // Black to move in check: the mark moves to the rank 8 line.
    test::load("4k3/8/8/8/8/8/8/4R1K1 b - - 0 1");
    update_checks();
    auto lines = test::split_lines(test::capture_stdout(print_board));
    EXPECT_EQ(lines[1], " 8" + V + L + L + L + "   " + L + L + L + "   " + L + "k" + L + "   " + L + L + L +
                            "    * (check !)");
    EXPECT_EQ(lines[8].substr(lines[8].size() - 3), L + L + L) << "no mark on the rank 1 line";
    // A key with leading zeros keeps its 16 digits.
    EXPECT_EQ(lines[12].size(), 6u + 18u);
}

TEST(Notation, MovesSinceThePositionCommand) {
    set_startpos();
    apply("e2e4 e7e5 g1f3 b8c6 f1b5 a7a6 d2d4");
    auto text = test::capture_stdout(print_board);
    EXPECT_EQ(text.substr(0, text.find(" 8")),
              "\nafter moves:\n"
              "   1. e2e4      e7e5         2. Ng1f3     Nb8c6        3. Bf1b5     a7a6      \n"
              "   4. d2d4      \n\n");
}

TEST(MoveList, IllegalOrMalformedTokenEndsTheList) {
    const std::pair<const char*, const char*> cases[] = {
        {"e2e4 e7e5 e1e3 g1f3", "e1e3"},  // no such move
        {"e2e4 e7e5 e7e6", "e7e6"},       // nothing stands there
        {"e2e4 e7e5 e2e", "e2e"},         // too short
        {"e2e4 e7e5 g1f9", "g1f9"},       // no such rank
        {"e2e4 e7e5 i2i3", "i2i3"},       // no such file
        {"e2e4 e7e5 g1f3q", "g1f3q"},     // promotion letter on a knight move
        {"e2e4 e7e5 g1f3x", "g1f3x"},     // no promotion letter at all
        {"e2e4 e7e5 e8e7", "e8e7"},       // the other side's piece
    };
    for (const auto& [moves, bad] : cases) {
        set_startpos();
        EXPECT_EQ(apply(moves), std::string("info string Illegal move: ") + bad + "\n") << moves;
        EXPECT_EQ(board.ply, 2) << moves;
    }
    // A pawn reaching the last rank needs its letter; capitals are no letter.
    test::load("4k3/P7/8/8/8/8/8/4K3 w - - 0 1");
    EXPECT_EQ(apply("a7a8"), "info string Illegal move: a7a8\n");
    EXPECT_EQ(apply("a7a8Q"), "info string Illegal move: a7a8Q\n");
    EXPECT_EQ(apply("a7a8n"), "");
    EXPECT_EQ(white.pieces[KNIGHT], square_bit(sq("a8")));
    // Six characters and more read as the first four.
    set_startpos();
    EXPECT_EQ(apply("e2e4xx"), "");
    EXPECT_EQ(board.ply, 1);
}

TEST(MoveList, SpecialMovesFromText) {
    test::load("4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1");
    apply("e5d6");
    EXPECT_EQ(board.states[0].move, make_word(sq("e5"), sq("d6"), PAWN, PAWN));
    EXPECT_EQ(black.pieces[PAWN], 0u);
    test::load("r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1");
    apply("e1g1 e8c8");
    EXPECT_EQ(fen(), "2kr3r/8/8/8/8/8/8/R4RK1 w - - 2 2");
}

// A game of more than 959 moves keeps its exact position and repetition
// history; only entries before the last pawn move go.
TEST(MoveList, VeryLongGameKeepsTheSearchItsRoom) {
    std::string moves;
    bool white_home = true, black_home = true;
    auto white_king = [&] { moves += white_home ? "e1d1 " : "d1e1 ", white_home = !white_home; };
    auto black_king = [&] { moves += black_home ? "e8d8 " : "d8e8 ", black_home = !black_home; };
    for (int r = 0; r < 24; ++r) {
        const char file = char('a' + r % 8), from = char('2' + r / 8);
        moves += std::string{file, from, file, char(from + 1), ' '};
        black_king();
        for (int j = 0; j < 20; ++j) white_king(), black_king();
    }
    test::load("4k3/8/8/8/8/8/PPPPPPPP/4K3 w - - 0 1");
    EXPECT_EQ(apply(moves.c_str()), "");
    EXPECT_EQ(board.dropped_plies + board.ply, 24 * 42);
    EXPECT_LE(board.ply + MAX_DEPTH, STATE_STACK_SIZE - 1);
    EXPECT_EQ(board.states[board.ply].key, position_key());
    EXPECT_EQ(fen(), "4k3/8/8/PPPPPPPP/8/8/8/4K3 w - - 41 505");
    EXPECT_TRUE(is_draw());  // the shuffle since the last pawn move repeats
    auto text = test::capture_stdout(print_board);
    EXPECT_NE(text.find("after moves:\n"), std::string::npos);
    EXPECT_EQ(text.find("   1. "), std::string::npos) << "the shown list starts later";
}
