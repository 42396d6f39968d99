#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "engine/engine.h"
#include "support/support.h"

using namespace velkor;

namespace {

void play(const char* moves) {
    std::string text = moves;
    apply_moves(text.data());
}

std::string fen() {
    char text[128];
    write_fen(text);
    return text;
}

}  // namespace

// Keys published with the Polyglot book format, where our en-passant rule
// agrees with the format's (a capture is possible, or there was no double push).
TEST(Keys, PublishedValues) {
    const std::pair<const char*, uint64_t> lines[] = {
        {"", 0x463B96181691FC9CULL},
        {"e2e4 d7d5 e4e5", 0x662FAFB965DB29D4ULL},
        {"e2e4 d7d5 e4e5 f7f5", 0x22A48B5A8E47FF78ULL},
        {"e2e4 d7d5 e4e5 f7f5 e1e2", 0x652A607CA3F242C1ULL},
        {"e2e4 d7d5 e4e5 f7f5 e1e2 e8f7", 0x00FDD303C946BDD9ULL},
        {"a2a4 b7b5 h2h4 b5b4 c2c4", 0x3C8123EA7B067637ULL},
    };
    for (const auto& [moves, key] : lines) {
        set_startpos();
        play(moves);
        EXPECT_EQ(board.states[board.ply].key, key) << moves;
    }
}

// The en-passant term is there after every double push, capture possible or not.
TEST(Keys, EnPassantTermAfterEveryDoublePush) {
    set_startpos();
    play("e2e4");
    EXPECT_EQ(board.states[1].key, 0x4D0DDE8EF7CC031FULL);
    EXPECT_EQ(board.states[1].key ^ Random64[776], 0x823C9B50FD114196ULL);
    test::load("rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
    EXPECT_EQ(board.states[0].key, 0x4D0DDE8EF7CC031FULL);
    test::load("rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq - 0 1");
    EXPECT_EQ(board.states[0].key, 0x823C9B50FD114196ULL);
    set_startpos();
    play("g1f3 g8f6 f3g1 f6g8");
    EXPECT_EQ(board.states[4].key, 0x463B96181691FC9CULL);
}

// Along random games, the incremental key equals the key set_fen computes
// for the written FEN, through captures, castling, en passant and promotions.
TEST(Keys, IncrementalEqualsRecomputeOverRandomGames) {
    std::vector<std::pair<std::string, uint64_t>> seen;
    test::random_games(8, 120, 12345, [&](int) {
        EXPECT_EQ(board.states[board.ply].key, position_key());
        seen.emplace_back(fen(), board.states[board.ply].key);
    });
    for (const auto& [text, key] : seen) {
        test::load(text.c_str());
        EXPECT_EQ(board.states[0].key, key) << text;
    }
    EXPECT_GT(seen.size(), 2000u);
}

TEST(Fen, LoadsFieldsAsWritten) {
    set_startpos();
    EXPECT_EQ(white.material, 3900);
    EXPECT_EQ(white.piece_material, 3100);
    EXPECT_EQ(black.material, 3900);
    EXPECT_EQ(fen(), START_FEN);
    // Four fields, runs of blanks, and text behind the sixth field.
    test::load("4k3/8/8/8/8/8/4P3/4K3   w  -  -");
    EXPECT_EQ(fen(), "4k3/8/8/8/8/8/4P3/4K3 w - - 0 1");
    test::load("4k3/8/8/8/8/8/4P3/4K3 b - - 10 16 moves e8d8");
    EXPECT_EQ(fen(), "4k3/8/8/8/8/8/4P3/4K3 b - - 10 1");
    EXPECT_EQ(board.ply, 0);
    // Any side but a leading w is black; %i reads octal behind a 0.
    test::load("4k3/8/8/8/8/8/4P3/4K3 x - - 010 1");
    EXPECT_EQ(fen(), "4k3/8/8/8/8/8/4P3/4K3 b - - 8 1");
    // Letters other than KQkq are skipped, rights without king and rook at home dropped.
    test::load("r3k2r/8/8/8/8/8/8/R3K3 w KQkqXz - 0 1");
    EXPECT_EQ(fen(), "r3k2r/8/8/8/8/8/8/R3K3 w Qkq - 0 1");
    EXPECT_EQ(board.states[0].castling, CASTLE_WHITE_LONG | CASTLE_BLACK_SHORT | CASTLE_BLACK_LONG);
    test::load("1r2k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1");
    EXPECT_EQ(fen(), "1r2k2r/8/8/8/8/8/8/R3K2R b KQk - 0 1");
    // A second load leaves nothing of the first.
    set_startpos();
    play("e2e4 e7e5");
    test::load("8/8/8/8/8/8/8/K6k w - - 0 1");
    EXPECT_EQ(board.ply, 0);
    EXPECT_EQ(white.material + black.material, 0);
    EXPECT_EQ(board.states[1].en_passant, 0u);
}

TEST(Fen, RejectsWhatIsNoPlayablePosition) {
    const std::pair<const char*, const char*> bad[] = {
        {"", "fewer than four fields"},
        {"4k3/8/8/8/8/8/8/4K3 w -", "fewer than four fields"},
        {"4k3/8/8/8/8/8/8/4K3 w - - 0", "five fields"},
        {"4k3/8/8/8/8/8/8/4K3 w - - moves e1e2", "half-move field 'moves' is not a number"},
        {"4k3/8/8/8/8/8/8/4K3/8 w - - 0 1", "8 ranks of 8 squares"},
        {"4k3/8/8/8/8/8/8/4K3/ w - - 0 1", "8 ranks of 8 squares"},
        {"4k3/8/8/8/8/8/4K3 w - - 0 1", "8 ranks of 8 squares"},
        {"4k4/8/8/8/8/8/8/4K3 w - - 0 1", "8 ranks of 8 squares"},
        {"4k2/8/8/8/8/8/8/4K3 w - - 0 1", "8 ranks of 8 squares"},
        {"4k3/8/8/8/8/8/8/4K2X w - - 0 1", "'X' is neither a piece nor a digit"},
        {"4k3/8/8/8/8/8/8/4K03 w - - 0 1", "'0' is neither a piece nor a digit"},
        {"4k3/8/8/8/8/8/8/8 w - - 0 1", "white has 0 kings, not one"},
        {"4k3/8/8/8/8/8/8/3KK3 w - - 0 1", "white has 2 kings, not one"},
        {"8/8/8/8/8/8/8/4K3 w - - 0 1", "black has 0 kings, not one"},
        {"4k3/8/8/8/8/PPPPPPPP/PPPPPPPP/4K3 w - - 0 1", "white has more than 16 men"},
        {"4k3/8/8/8/8/8/8/4K2P w - - 0 1", "a pawn stands on the first or last rank"},
        {"p3k3/8/8/8/8/8/8/4K3 w - - 0 1", "a pawn stands on the first or last rank"},
        {"4k3/8/8/8/8/8/8/4K2r b - - 0 1", "the side not to move is in check"},
        {"4k3/8/8/8/8/8/8/4R1K1 w - - 0 1", "the side not to move is in check"},
        {"8/8/8/8/8/8/8/3Kk3 b - - 0 1", "the side not to move is in check"},
        {"4k3/8/8/8/8/8/8/4K3 w - e4 0 1", "en passant field 'e4' is not a square of rank 3 or 6"},
        {"4k3/8/8/8/8/8/8/4K3 w - i6 0 1", "en passant field 'i6' is not a square of rank 3 or 6"},
        {"4k3/8/8/4p3/8/8/8/4K3 w - e3 0 1", "en passant square e3 does not follow a double push"},
        {"4k3/8/8/8/8/8/8/4K3 w - e6 0 1", "en passant square e6 does not follow a double push"},
        {"4k3/4p3/8/4p3/8/8/8/4K3 w - e6 0 1", "en passant square e6 does not follow a double push"},
        {"4k3/8/8/8/8/8/8/4K3 w - - x 1", "half-move field 'x' is not a number"},
        {"4k3/8/8/8/8/8/8/4K3 w - - -1 1", "half-move count -1 is not between 0 and 1000000"},
        {"4k3/8/8/8/8/8/8/4K3 w - - 99999999999 1", "half-move count 2147483647 is not between"},
    };
    for (const auto& [text, reason] : bad) {
        const char* got = fen_error(text);
        ASSERT_NE(got, nullptr) << text;
        EXPECT_NE(std::string(got).find(reason), std::string::npos) << text << " -> " << got;
    }
    // Accepted: a field of other length than two means no en-passant square.
    EXPECT_EQ(fen_error("4k3/8/8/8/8/8/8/4K3 w - e3x 0 1"), nullptr);
    EXPECT_EQ(fen_error("4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1"), nullptr);
    EXPECT_EQ(fen_error("4k3/8/8/8/8/8/8/4K3 w - - 0x1F 1"), nullptr);
}

TEST(Draw, BareKingsAndFiftyMoves) {
    test::load("8/8/8/8/8/8/8/K6k w - - 0 1");
    EXPECT_TRUE(is_draw());
    test::load("8/8/8/8/8/8/8/KN5k w - - 0 1");
    EXPECT_FALSE(is_draw());
    test::load("8/8/8/8/8/8/8/KN5k w - - 99 1");
    EXPECT_FALSE(is_draw());
    test::load("8/8/8/8/8/8/8/KN5k w - - 100 1");
    EXPECT_TRUE(is_draw());
    // Mated, but the count comes first.
    test::load("R5k1/5ppp/8/8/8/8/8/6K1 b - - 100 60");
    EXPECT_TRUE(is_draw());
}

TEST(Draw, ThirdOccurrenceSinceLastIrreversibleMove) {
    set_startpos();
    play("g1f3 g8f6 f3g1 f6g8");
    EXPECT_FALSE(is_draw()) << "second occurrence";
    play("g1f3 g8f6 f3g1");
    EXPECT_FALSE(is_draw());
    play("f6g8");
    EXPECT_TRUE(is_draw()) << "third occurrence";
    // A pawn move between the occurrences cuts the history.
    set_startpos();
    play("g1f3 g8f6 f3g1 f6g8 e2e3 e7e6 g1f3 g8f6 f3g1 f6g8");
    EXPECT_FALSE(is_draw());
    // The starting count of a FEN does not let the scan read below entry 0.
    test::load("4k3/8/8/8/8/8/8/R3K3 w - - 50 1");
    play("a1a2 e8d8 a2a1 d8e8");
    EXPECT_FALSE(is_draw());
    play("a1a2 e8d8 a2a1 d8e8");
    EXPECT_TRUE(is_draw());
}

// The same placement after a double push and after a quiet move are different positions.
TEST(Draw, EnPassantSquareMakesADifferentPosition) {
    test::load("4k3/8/8/8/8/8/4P3/4K2N w - - 0 1");
    play("e2e4 e8d8 h1g3 d8e8 g3h1 e8d8 h1g3 d8e8 g3h1");
    EXPECT_FALSE(is_draw());
}
