#include <gtest/gtest.h>

#include <cctype>
#include <sstream>
#include <string>

#include "engine/engine.h"
#include "evaluation/evaluation.h"
#include "support/support.h"

using namespace velkor;

namespace {

// The position seen from the other side: ranks reversed, colours swapped.
std::string mirrored(const std::string& fen) {
    std::istringstream in(fen);
    std::string placement, side, castling, ep, out;
    in >> placement >> side >> castling >> ep;
    std::istringstream ranks(placement);
    for (std::string rank; std::getline(ranks, rank, '/');) out = rank + (out.empty() ? "" : "/") + out;
    for (std::string* s : {&out, &castling})
        for (char& c : *s) c = char(isupper(c) ? tolower(c) : toupper(c));
    std::string rights;  // in the order KQkq
    for (char c : std::string("KQkq"))
        if (castling.find(c) != std::string::npos) rights += c;
    if (ep != "-") ep[1] = ep[1] == '3' ? '6' : '3';
    return out + (side == "w" ? " b " : " w ") + (rights.empty() ? "-" : rights) + " " + ep + " 0 1";
}

int32_t score_of(const std::string& fen) {
    test::load(fen.c_str());
    update_checks();
    update_attacks();
    return evaluate();
}

}  // namespace

// A gene by its id in the table, or -1 for "none".
static int gene_index(const std::string& id) {
    for (int k = 0; k < GENE_NUMBER; ++k)
        if (id == GENE_IDS[k]) return k;
    EXPECT_EQ(id, "none") << "no such gene";
    return -1;
}

// Each record of evaluation.epd loads its FEN with the default weights, then
// runs its operations in order; see the head of the file.
TEST(Eval, ReferenceData) {
    int checked = 0;
    for (const auto& r : test::records("evaluation.epd")) {
        genes = DEFAULT_GENES;
        test::load(r[0].c_str());
        update_checks();
        update_attacks();
        for (size_t i = 1; i < r.size(); ++i, ++checked) {
            std::istringstream in(r[i]);
            std::string op, gene;
            in >> op;
            const std::string at = r[0] + " ; " + r[i];
            if (op == "only") {
                in >> gene;
                const int k = gene_index(gene);
                genes.fill(0);
                if (k >= 0) genes[k] = DEFAULT_GENES[k];
            } else if (op == "set") {
                int value = 0;
                in >> gene >> value;
                genes[gene_index(gene)] = value;
            } else if (op == "eval") {
                test::pinned(r, i, "eval " + std::to_string(evaluate()), at);
            } else if (op == "balance") {
                test::pinned(r, i, "balance " + std::to_string(material_balance()), at);
            } else {
                int32_t (*term)(const side_t&) = op == "pawns"   ? pawn_score
                                                 : op == "rooks" ? rook_score
                                                                 : activity_score;
                EXPECT_TRUE(op == "pawns" || op == "rooks" || op == "activity") << at;
                test::pinned(r, i, op + " " + std::to_string(term(white)) + " " + std::to_string(term(black)), at);
            }
        }
    }
    genes = DEFAULT_GENES;
    EXPECT_GT(checked, 60);
}

// A position and its colour-flipped mirror score the same for the side to move.
TEST(Eval, MirrorScoresTheSame) {
    std::vector<std::string> fens;
    test::random_games(4, 80, 4242, [&](int) {
        char fen[128];
        write_fen(fen);
        fens.push_back(fen);
    });
    for (const std::string& fen : fens)
        EXPECT_EQ(score_of(mirrored(fen)), score_of(fen)) << fen << " / " << mirrored(fen);
    EXPECT_GT(fens.size(), 500u);
}

// A broken board of three kings has no score, and must not read past a set.
TEST(Eval, ThirdKingScoresZero) {
    side_t strong = {}, weak = {};
    strong.opponent = &weak;
    weak.opponent = &strong;
    strong.pieces[KING] = square_bit(0) | square_bit(63);
    weak.pieces[KING] = square_bit(36);
    EXPECT_EQ(endgame_score(strong, 1), 0);
}
