#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "engine/engine.h"
#include "support/support.h"

using namespace velkor;

namespace {

constexpr int sq(const char* name) { return (name[0] - 'a') + 8 * (name[1] - '1'); }

// What make_move and unmake_move keep, compared field by field.
struct snapshot_t {
    bitboard pieces[2][7];
    int material[2], piece_material[2];
    bitboard occupied;
    const side_t* turn;
    int ply;
    bitboard en_passant, castling;
    uint64_t key;
    int rule50;

    snapshot_t() {
        for (int p = 0; p < 7; ++p) {
            pieces[0][p] = white.pieces[p];
            pieces[1][p] = black.pieces[p];
        }
        material[0] = white.material;
        material[1] = black.material;
        piece_material[0] = white.piece_material;
        piece_material[1] = black.piece_material;
        occupied = board.occupied;
        turn = board.turn;
        ply = board.ply;
        const state_t& s = board.states[board.ply];
        en_passant = s.en_passant;
        castling = s.castling;
        key = s.key;
        rule50 = s.rule50;
    }
    bool operator==(const snapshot_t& o) const {
        return memcmp(pieces, o.pieces, sizeof pieces) == 0 && material[0] == o.material[0] &&
               material[1] == o.material[1] && piece_material[0] == o.piece_material[0] &&
               piece_material[1] == o.piece_material[1] && occupied == o.occupied && turn == o.turn &&
               ply == o.ply && en_passant == o.en_passant && castling == o.castling && key == o.key &&
               rule50 == o.rule50;
    }
};

void play(const char* moves) {
    std::string text = moves;
    apply_moves(text.data());
}

}  // namespace

// Every legal move of positions that hold all move kinds: normal moves,
// captures, en passant, both castlings of both colours, promotions and
// capturing promotions. Each pair restores everything it keeps.
TEST(MakeMove, EveryMoveKindRoundTrips) {
    const char* fens[] = {
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/Pp2P3/2N2Q1p/1PPBBPPP/R3K2R b KQkq a3 0 1",
        "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq - 0 1",
        "n1n5/PPPk4/8/8/8/8/4Kppp/5N1N b - - 0 1",
        "4k3/8/8/2pP4/8/8/8/4K3 w - c6 0 1",
    };
    int moves = 0;
    for (const char* fen : fens) {
        test::load(fen);
        update_checks();
        update_attacks();
        const int n = generate_moves(1, GENERATE_ALL);
        for (int i = 0; i < n; ++i) {
            const move_t m = move_lists[1][i];
            const snapshot_t before;
            make_move(m);
            EXPECT_EQ(board.states[board.ply].key, position_key()) << fen << " " << i;
            EXPECT_EQ(board.states[board.ply - 1].move, m);
            unmake_move(m);
            EXPECT_TRUE(snapshot_t() == before) << fen << " move " << i;
            ++moves;
        }
    }
    EXPECT_GT(moves, 120);
}

TEST(MakeMove, EnPassantTakesThePawnBehind) {
    test::load("4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1");
    const move_t m = make_word(sq("e5"), sq("d6"), PAWN, PAWN);
    make_move(m);
    EXPECT_EQ(board.states[0].target, square_bit(sq("d5")));
    EXPECT_EQ(black.pieces[PAWN], 0u);
    EXPECT_EQ(white.pieces[PAWN], square_bit(sq("d6")));
    EXPECT_EQ(black.material, 0);
    EXPECT_EQ(board.states[1].rule50, 0);
    EXPECT_EQ(board.states[1].en_passant, 0u);
    unmake_move(m);
    EXPECT_EQ(black.pieces[PAWN], square_bit(sq("d5")));
    EXPECT_EQ(white.pieces[PAWN], square_bit(sq("e5")));
}

TEST(MakeMove, CapturingPromotion) {
    test::load("5n1k/4P3/8/8/8/8/8/4K3 w - - 7 1");
    const move_t m = make_word(sq("e7"), sq("f8"), PAWN, KNIGHT, QUEEN);
    make_move(m);
    EXPECT_EQ(white.pieces[QUEEN], square_bit(sq("f8")));
    EXPECT_EQ(white.pieces[PAWN], 0u);
    EXPECT_EQ(black.pieces[KNIGHT], 0u);
    EXPECT_EQ(white.material, 900);
    EXPECT_EQ(white.piece_material, 900);
    EXPECT_EQ(black.material, 0);
    EXPECT_EQ(board.states[1].rule50, 0);
    unmake_move(m);
    EXPECT_EQ(white.material, 100);
    EXPECT_EQ(white.piece_material, 0);
    EXPECT_EQ(black.piece_material, 300);
}

TEST(MakeMove, CastlingRightsAndCounters) {
    test::load("r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 5 1");
    play("e1g1");
    EXPECT_EQ(white.pieces[ROOK], square_bit(sq("a1")) | square_bit(sq("f1")));
    EXPECT_EQ(white.pieces[KING], square_bit(sq("g1")));
    EXPECT_EQ(board.states[1].castling,
              square_bit(sq("a1")) | square_bit(sq("h1")) | CASTLE_BLACK_SHORT | CASTLE_BLACK_LONG);
    EXPECT_EQ(board.states[1].rule50, 6);
    play("e8c8");
    EXPECT_EQ(black.pieces[ROOK], square_bit(sq("d8")) | square_bit(sq("h8")));
    // A rook leaving h8 ends that right only; the corner stays cleared when it comes back.
    test::load("r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1");
    play("h8h7 a1a2 h7h8");
    EXPECT_EQ(board.states[3].castling, CASTLE_BLACK_LONG | CASTLE_WHITE_SHORT);
    // A capture on a corner ends the right of the captured rook by its to-square.
    test::load("r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1");
    play("a1a8");
    EXPECT_EQ(board.states[1].castling, CASTLE_WHITE_SHORT | CASTLE_BLACK_SHORT);
    EXPECT_EQ(board.states[1].rule50, 0);
}

TEST(MakeMove, DoublePushSetsEnPassantForOneMove) {
    set_startpos();
    play("e2e4 e7e5");
    EXPECT_EQ(board.ply, 2);
    EXPECT_EQ(board.states[1].en_passant, square_bit(sq("e3")));
    EXPECT_EQ(board.states[2].en_passant, square_bit(sq("e6")));
    play("g1f3");
    EXPECT_EQ(board.states[3].en_passant, 0u);
    // Taking a double push back leaves no en-passant square above the stack.
    unmake_move(board.states[2].move);
    unmake_move(board.states[1].move);
    EXPECT_EQ(board.states[2].en_passant, 0u);
}

#ifndef NDEBUG
TEST(MakeMoveDeathTest, InvariantCheckCatchesABrokenBoard) {
    set_startpos();
    white.pieces[PAWN] ^= square_bit(sq("e4"));
    EXPECT_DEATH(make_move(make_word(sq("g1"), sq("f3"), KNIGHT)), "invariant");
    white.pieces[PAWN] ^= square_bit(sq("e4"));
}
#endif
