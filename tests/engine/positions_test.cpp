// The position machinery against reference data, and its invariants along
// random games.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "engine/engine.h"
#include "support/support.h"

using namespace velkor;

namespace {

std::string fen() {
    char text[128];
    write_fen(text);
    return text;
}

// Everything make_move and unmake_move keep.
std::string kept() {
    std::ostringstream s;
    const state_t& now = board.states[board.ply];
    s << fen() << ' ' << board.ply << ' ' << now.key << ' ' << now.castling << ' ' << board.occupied;
    for (const side_t* side : {&white, &black}) {
        s << ' ' << side->material << ' ' << side->piece_material;
        for (bitboard set : side->pieces) s << ' ' << set;
    }
    return s.str();
}

}  // namespace

// Each record of positions.epd loads its FEN (or the start position), then
// runs its operations in order; see the head of the file.
TEST(Positions, ReferenceData) {
    int checked = 0;
    for (const auto& r : test::records("positions.epd")) {
        const std::string where = r[0];
        const char* reason = r[0] == "startpos" ? nullptr : fen_error(r[0].c_str());
        if (r[1].starts_with("error ")) {
            EXPECT_NE(std::string(reason ? reason : "accepted").find(r[1].substr(6)), std::string::npos)
                << where << " -> " << (reason ? reason : "accepted");
            ++checked;
            continue;
        }
        ASSERT_EQ(reason, nullptr) << where;
        r[0] == "startpos" ? set_startpos() : set_fen(r[0].c_str());
        check_position_invariants();  // aborts if the loaded records disagree
        std::string said;
        for (size_t i = 1; i < r.size(); ++i, ++checked) {
            std::istringstream in(r[i]);
            std::string op, rest;
            in >> op;
            std::getline(in >> std::ws, rest);
            const std::string at = where + " ; " + r[i];
            if (op == "moves") {
                EXPECT_EQ(said, "") << at;
                said = test::capture_stdout([&] { apply_moves(rest.data()); });
            } else if (op == "illegal") {
                EXPECT_EQ(said, "info string Illegal move: " + rest + "\n") << at;
                said.clear();
            } else if (op == "fen") {
                EXPECT_EQ(fen(), rest) << at;
            } else if (op == "key") {
                EXPECT_EQ(board.states[board.ply].key, std::stoull(rest, nullptr, 16)) << at;
                EXPECT_EQ(board.states[board.ply].key, position_key()) << at;
            } else if (op == "castling") {
                EXPECT_EQ(board.states[board.ply].castling, std::stoull(rest, nullptr, 16)) << at;
            } else if (op == "draw") {
                EXPECT_EQ(is_draw(), rest == "1") << at;
            } else if (op == "ply") {
                EXPECT_EQ(board.ply, std::stoi(rest)) << at;
            } else if (op == "material") {
                std::ostringstream got;
                got << white.material << ' ' << black.material << ' ' << white.piece_material << ' '
                    << black.piece_material;
                EXPECT_EQ(got.str(), rest) << at;
            } else if (op == "gen" || op == "captures") {
                EXPECT_EQ(test::generated(op == "gen" ? GENERATE_ALL : GENERATE_CAPTURES), rest) << at;
            } else {
                ADD_FAILURE() << "unknown operation " << at;
            }
        }
        EXPECT_EQ(said, "") << where;
    }
    EXPECT_GT(checked, 100);
}

// Along random games: the incremental key equals a recompute and the key of
// the written FEN; every move leaves the mover's king safe, sets a check bit
// exactly when it gives check, and is taken back to the last bit; the
// captures list is the full list less quiet moves, in the same order; the
// counting pass agrees.
TEST(Positions, RandomGameInvariants) {
    std::vector<std::pair<std::string, uint64_t>> seen;
    long moves = 0;
    test::random_games(8, 120, 12345, [&](int n) {
        ASSERT_EQ(board.states[board.ply].key, position_key());
        seen.emplace_back(fen(), board.states[board.ply].key);
        ASSERT_EQ(count_moves(), n);
        ASSERT_EQ(has_legal_move(board.turn->checkers != 0), n != 0);
        if (!board.turn->checkers) {
            std::vector<move_t> expected;
            for (int i = 0; i < n; ++i)
                if (move_captured(move_lists[0][i]) || move_promotion(move_lists[0][i]))
                    expected.push_back(move_lists[0][i]);
            const move_t* last = move_lists[MAX_DEPTH - 1];  // the last ply's list serves too
            ASSERT_EQ(std::vector<move_t>(last, last + generate_moves(MAX_DEPTH - 1, GENERATE_CAPTURES)), expected);
        }
        const std::string before = kept();
        for (int i = 0; i < n; ++i, ++moves) {
            const move_t m = move_lists[0][i];
            make_move(m);
            ASSERT_EQ(is_king_attacked(board.turn->opponent), 0);
            ASSERT_EQ((m & (MOVE_CHECK | MOVE_DISCOVERED)) != 0, is_king_attacked(board.turn) == 1);
            ASSERT_EQ(board.states[board.ply].key, position_key());
            unmake_move(m);
            ASSERT_EQ(kept(), before);
        }
    });
    for (const auto& [text, key] : seen) {
        test::load(text.c_str());
        EXPECT_EQ(board.states[0].key, key) << text;
    }
    EXPECT_GT(moves, 50000);
}

#ifndef NDEBUG
TEST(PositionsDeathTest, InvariantCheckCatchesABrokenBoard) {
    set_startpos();
    white.pieces[PAWN] ^= square_bit(28);
    EXPECT_DEATH(make_move(make_word(6, 21, KNIGHT)), "invariant");
    white.pieces[PAWN] ^= square_bit(28);
}
#endif

// A field longer than its buffer is cut there and the rest of it counts as the
// next field: four fields here, so it is the placement that is wrong.
TEST(Positions, OverlongFieldIsCut) {
    const std::string text = std::string(FEN_TEXT_SIZE, 'x') + " b c";
    EXPECT_STREQ(fen_error(text.c_str()), "'x' is neither a piece nor a digit");
}
