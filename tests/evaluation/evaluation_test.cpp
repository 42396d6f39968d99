#include <gtest/gtest.h>

#include <string>

#include "engine/engine.h"
#include "evaluation/evaluation.h"
#include "support/support.h"

using namespace velkor;

namespace {

// Every test starts and ends with the default weights.
class Eval : public testing::Test {
   protected:
    void SetUp() override { genes = DEFAULT_GENES; }
    void TearDown() override { genes = DEFAULT_GENES; }

    static void prepare(const char* fen) {
        test::load(fen);
        update_checks();
        update_attacks();
    }
    static int32_t score_of(const char* fen) {
        prepare(fen);
        return evaluate();
    }
    // All weights 0 but one, so that a single term shows.
    static void only(int gene) {
        const int32_t value = DEFAULT_GENES[gene];
        genes.fill(0);
        genes[gene] = value;
    }
};

// The position seen from the other side: ranks reversed, colours swapped.
std::string mirrored(const std::string& fen) {
    std::string placement = fen.substr(0, fen.find(' ')), rest = fen.substr(fen.find(' ') + 1), out;
    for (size_t end = placement.size(); end != std::string::npos;) {
        const size_t start = placement.rfind('/', end - 1);
        const std::string rank = placement.substr(start == std::string::npos ? 0 : start + 1,
                                                  end - (start == std::string::npos ? 0 : start + 1));
        if (!out.empty()) out += '/';
        out += rank;
        end = start;
    }
    for (char& c : out) c = isupper(c) ? char(tolower(c)) : char(toupper(c));
    char side[2], castling[8], ep[3];
    int halfmove = 0, fullmove = 0;
    sscanf(rest.c_str(), "%1s %7s %2s %d %d", side, castling, ep, &halfmove, &fullmove);
    std::string rights;
    for (char c : std::string(castling))
        if (c != '-') rights += isupper(c) ? char(tolower(c)) : char(toupper(c));
    std::string swapped;  // keep the order KQkq
    for (char c : std::string("KQkq"))
        if (rights.find(c) != std::string::npos) swapped += c;
    std::string square = ep;
    if (square != "-") square[1] = square[1] == '3' ? '6' : '3';
    return out + (side[0] == 'w' ? " b " : " w ") + (swapped.empty() ? "-" : swapped) + " " + square + " " +
           std::to_string(halfmove) + " 1";
}

}  // namespace

TEST_F(Eval, ReferenceValues) {
    EXPECT_EQ(score_of(START_FEN), 0);
    EXPECT_EQ(score_of("rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1"), -49);
    EXPECT_EQ(score_of("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1"), 67);
    EXPECT_EQ(score_of("8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1"), -36);
    EXPECT_EQ(material_balance(), 0);
    prepare("8/8/8/8/3K4/8/4P2R/k7 b - - 0 1");
    EXPECT_EQ(material_balance(), -600);
}

// A position and its colour-flipped mirror score the same for the side to move.
TEST_F(Eval, MirrorScoresTheSame) {
    std::vector<std::string> fens;
    test::random_games(4, 80, 4242, [&](int) {
        char fen[128];
        write_fen(fen);
        fens.push_back(fen);
    });
    for (const std::string& fen : fens) {
        const int32_t score = score_of(fen.c_str());
        EXPECT_EQ(score_of(mirrored(fen).c_str()), score) << fen << " / " << mirrored(fen);
    }
    EXPECT_GT(fens.size(), 500u);
}

TEST_F(Eval, PawnStructure) {
    // a2 has a3 ahead: doubled, -5. a3 is passed, 5 squares ahead, unattacked: +25.
    prepare("4k3/8/8/8/8/P7/P7/4K3 w - - 0 1");
    EXPECT_EQ(pawn_score(white), -5 + 25);
    EXPECT_EQ(pawn_score(black), 0);
    // Three on a file: a2 and a3 doubled (-5 each), a4 passed with 4 ahead (+50).
    prepare("4k3/8/8/8/P7/P7/P7/4K3 w - - 0 1");
    EXPECT_EQ(pawn_score(white), -5 - 5 + 50);
    // c2 and e2 are stopped by d7 and have no neighbours: -10 each; d7 likewise -10.
    prepare("4k3/3p4/8/8/8/8/2P1P3/4K3 w - - 0 1");
    EXPECT_EQ(pawn_score(white), -20);
    EXPECT_EQ(pawn_score(black), -10);
    // h7 is passed on its home rank: bonus 0, and a passed pawn is never isolated.
    prepare("4k3/7p/8/8/8/8/8/4K3 b - - 0 1");
    EXPECT_EQ(pawn_score(black), 0);
    // The a-pawn's front takes in the b file: b5 stops it, and it is isolated: -10.
    prepare("4k3/8/8/1p6/8/8/P7/4K3 w - - 0 1");
    EXPECT_EQ(pawn_score(white), -10);
}

TEST_F(Eval, PassedPawnUnderAttack) {
    // e6 passed, 2 ahead: 150 when nothing attacks it.
    prepare("k7/8/4P3/3K4/8/8/8/8 w - - 0 1");
    EXPECT_EQ(pawn_score(white), 150);
    // The knight on g7 attacks e6 and the king on d5 defends it: 150 / 2.
    prepare("k7/6n1/4P3/3K4/8/8/8/8 w - - 0 1");
    EXPECT_EQ(pawn_score(white), 75);
    genes[GENE_PASSED_GUARDED] = 0;
    EXPECT_EQ(pawn_score(white), 0) << "the divisor 0 switches the bonus off";
    genes[GENE_PASSED_GUARDED] = 3;
    EXPECT_EQ(pawn_score(white), 50);
    // Attacked and undefended (king on c4): nothing.
    genes = DEFAULT_GENES;
    prepare("k7/6n1/4P3/8/2K5/8/8/8 w - - 0 1");
    EXPECT_EQ(pawn_score(white), 0);
}

TEST_F(Eval, Rooks) {
    // h8 and h7: far ranks with a black pawn on the board, +50 each; the h
    // file holds only these rooks, +25 each.
    prepare("7R/p6R/1k6/8/8/8/8/4K3 w - - 0 1");
    EXPECT_EQ(rook_score(white), 150);
    // An enemy knight on the file closes it.
    prepare("7R/p6R/1k6/8/8/8/7n/4K3 w - - 0 1");
    EXPECT_EQ(rook_score(white), 100);
    // Without enemy pawns the far ranks give nothing.
    prepare("7R/7R/1k6/8/8/8/8/4K3 w - - 0 1");
    EXPECT_EQ(rook_score(white), 50);
    // Black's far ranks are the first and second; a3 closes the a file.
    prepare("4k3/8/8/8/8/P7/r7/4K3 w - - 0 1");
    EXPECT_EQ(rook_score(black), 50);
}

TEST_F(Eval, Mobility) {
    // White: knight d4 reaches 8 squares, c2 and e2 lie on the rook's rank:
    // 6 safe; king a1: a2 and b2 on that rank, b1 safe: 1. 5 x 7.
    // Black: rook h2 reaches g2-a2, h1, h3-h8 (14), less c2, e2 (knight) and
    // a2, b2 (king): 10; king h8: g8, g7, h7: 3. 5 x 13.
    only(GENE_MOBILITY);
    prepare("7k/8/8/8/3N4/8/7r/K7 w - - 0 1");
    EXPECT_EQ(activity_score(white), 35);
    EXPECT_EQ(activity_score(black), 65);
}

TEST_F(Eval, PawnChainAndBishops) {
    // e3 defends d4: one pawn in the chain, x 2. (No pieces: the kings'
    // ending term is centre_weight[e1], 0.)
    only(GENE_PAWN_CHAIN);
    prepare("4k3/8/8/8/3P4/4P3/8/4K3 w - - 0 1");
    EXPECT_EQ(activity_score(white), 2);
    // c1 and e3 see each other: two guarded bishops, x 5.
    only(GENE_DIAGONAL_GUARD);
    prepare("4k3/8/8/8/8/4B3/8/2B1K3 w - - 0 1");
    EXPECT_EQ(activity_score(white), 10);
    // Two bishops, or three, pay the pair once.
    only(GENE_BISHOP_PAIR);
    EXPECT_EQ(activity_score(white), 15);
    prepare("4k3/8/8/8/8/4B3/8/2B1KB2 w - - 0 1");
    EXPECT_EQ(activity_score(white), 15);
}

TEST_F(Eval, StraightAndQueenGuards) {
    // Rook a1 and queen d1 guard each other along the rank: 2 x 5.
    only(GENE_STRAIGHT_GUARD);
    prepare("4k3/8/8/8/8/8/8/R2Q2K1 w - - 0 1");
    EXPECT_EQ(activity_score(white), 10);
    // The queen guards the bishop c1 along the rank: 1 x 5 in the diagonal term.
    only(GENE_DIAGONAL_GUARD);
    prepare("4k3/8/8/8/8/8/8/2BQ2K1 w - - 0 1");
    EXPECT_EQ(activity_score(white), 5);
}

TEST_F(Eval, HangingMen) {
    // The rook hits the knight a5 and the bishop the pawn b5, both
    // undefended: (300 + 100) / 10.
    only(GENE_HANGING);
    prepare("4k3/8/8/np6/8/8/8/R3KB2 w - - 0 1");
    EXPECT_EQ(activity_score(white), 40);
    // b6 defends the knight: only the pawn hangs, 100 / 10.
    prepare("4k3/8/1p6/np6/8/8/8/R3KB2 w - - 0 1");
    EXPECT_EQ(activity_score(white), 10);
    genes[GENE_HANGING] = 0;
    EXPECT_EQ(activity_score(white), 0);
    // A checked king is in the attack set and adds 0.
    only(GENE_HANGING);
    prepare("4k3/8/8/8/8/8/8/4R1K1 b - - 0 1");
    EXPECT_EQ(activity_score(white), 0);
}

TEST_F(Eval, KingSafetyAndPins) {
    // King g1: f2, g2, h2 shelter it (3 x 1); the rook a1 reaches f1 of its
    // ring (1 x 10).
    only(GENE_KING_SHELTER);
    prepare("4k3/8/8/8/8/8/5PPP/r5K1 w - - 0 1");
    EXPECT_EQ(activity_score(white), 3);
    only(GENE_KING_DANGER);
    EXPECT_EQ(activity_score(white), -10);
    // The knight e2 is pinned by the rook e8: -300 / 10.
    only(GENE_PINNED);
    prepare("4r1k1/8/8/8/8/8/4N3/4K3 w - - 0 1");
    EXPECT_EQ(activity_score(white), -30);
    EXPECT_EQ(activity_score(black), 0);
    genes[GENE_PINNED] = 0;
    EXPECT_EQ(activity_score(white), 0);
}

TEST_F(Eval, KingInTheEnding) {
    // Black has no piece: both kings get their centre weight, d4 6 and a1 0.
    genes.fill(0);
    prepare("8/8/8/8/3K4/8/4P2R/k7 w - - 0 1");
    EXPECT_EQ(activity_score(white), 6);
    EXPECT_EQ(activity_score(black), 0);
    // With a piece on each side the term is gone.
    prepare("8/8/8/8/3K4/8/4P2R/k5r1 w - - 0 1");
    EXPECT_EQ(activity_score(white), 0);
}

TEST_F(Eval, AllGenesZeroLeavesMaterialAndTheEndingTerm) {
    genes.fill(0);
    EXPECT_EQ(score_of("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1"), 0);
    // 600 of material, and the kings' centre terms d4 6 and a1 0.
    EXPECT_EQ(score_of("8/8/8/8/3K4/8/4P2R/k7 w - - 0 1"), 606);
}

TEST_F(Eval, ThreeMen) {
    // Pawn e5 next to the black king e6, black to move, no defender: it falls.
    EXPECT_EQ(score_of("8/8/4k3/4P3/8/8/8/K7 b - - 0 1"), 0);
    // Defended by the king d4: n = 3 (75), d = 2, reach 4: caught, 75 + 100.
    EXPECT_EQ(score_of("8/8/4k3/4P3/3K4/8/8/8 b - - 0 1"), -175);
    // e2 on its home rank (bonus 0), the black king e5 inside the square.
    EXPECT_EQ(score_of("8/8/8/4k3/8/8/4P3/4K3 w - - 0 1"), 100);
    EXPECT_EQ(score_of("8/8/8/4k3/8/8/4P3/4K3 b - - 0 1"), -100);
    // a4 (n = 4, bonus 50) with the white king away: the black king on e6
    // is 4 from a8, inside; on f6, 5 away, outside: 50 + 100 + 10000 + 0 - 5.
    EXPECT_EQ(score_of("8/8/4k3/8/P7/8/8/7K w - - 0 1"), 150);
    EXPECT_EQ(score_of("8/8/5k2/8/P7/8/8/7K w - - 0 1"), 10145);
    // Black to move reaches one square further: f6 is inside, g6 outside.
    EXPECT_EQ(score_of("8/8/5k2/8/P7/8/8/7K b - - 0 1"), -150);
    EXPECT_EQ(score_of("8/8/6k1/8/P7/8/8/7K b - - 0 1"), -(50 + 100 + 10000 + 0 - 2));
    // The king f7 covers g7 and g8: won wherever the black king is: 150 + 10100 + 2 - 0.
    EXPECT_EQ(score_of("8/5K2/6Pk/8/8/8/8/8 w - - 0 1"), 10252);
    // The king on its own pawn's file ahead of it: 50 + 100 only.
    EXPECT_EQ(score_of("8/8/4K3/8/4P3/8/8/k7 w - - 0 1"), 150);
    // A black pawn one step from d1 and the white king far: 275 + 10100.
    EXPECT_EQ(score_of("4K3/8/8/8/8/8/3p4/7k b - - 0 1"), 10375);
    // Rook: 500 + 10000 + 0 - 5; beside the black king, black to move, it falls.
    EXPECT_EQ(score_of("8/8/8/8/8/4k3/8/K6R w - - 0 1"), 10495);
    EXPECT_EQ(score_of("8/8/8/8/8/4k3/8/K6R b - - 0 1"), -10495);
    EXPECT_EQ(score_of("8/8/8/8/8/4k3/3R4/K7 b - - 0 1"), 0);
    EXPECT_EQ(score_of("8/8/8/8/8/4k3/3R4/K7 w - - 0 1"), 10495);
    // One minor piece: 0 wherever it stands.
    EXPECT_EQ(score_of("8/8/8/8/8/4k3/8/K6B w - - 0 1"), 0);
    EXPECT_EQ(score_of("8/8/8/8/8/4k3/8/K6n w - - 0 1"), 0);
}

TEST_F(Eval, FourMenWithoutPawns) {
    // Queens level or no queens: only the kings' centre terms, d4 6 and a8 0.
    EXPECT_EQ(score_of("k7/8/8/8/3K4/8/8/1Q5q w - - 0 1"), 6);
    EXPECT_EQ(score_of("k7/8/8/8/3K4/8/8/1R5n w - - 0 1"), 6);
    EXPECT_EQ(score_of("k7/8/8/8/3K4/8/8/1R5n b - - 0 1"), -6);
    // Queen against rook: 900 + 10000 - 500 + 0 - 0, either side to move.
    EXPECT_EQ(score_of("3k4/8/8/8/8/8/8/KQ5r w - - 0 1"), 10400);
    EXPECT_EQ(score_of("3k4/8/8/8/8/8/8/KQ5r b - - 0 1"), -10400);
    // Bishop and knight, or two bishops on one colour: won for the side with them.
    EXPECT_EQ(score_of("k7/8/8/8/3K4/8/8/1B5N w - - 0 1"), 10606);
    EXPECT_EQ(score_of("k7/8/8/8/3K4/8/8/1B5N b - - 0 1"), -10606);
    EXPECT_EQ(score_of("k7/8/8/8/3K4/3B4/8/1B6 w - - 0 1"), 10606);
    // Two knights: 0 with their side to move, lost for the bare king to move
    // (5 for the king on e3). The first board, where the knight d1 checks the
    // king not to move, is no legal position; the score needs no legality.
    set_fen("8/8/8/8/8/4k3/8/KN1N4 w - - 0 1");
    EXPECT_EQ(evaluate(), 0);
    EXPECT_EQ(score_of("8/8/8/8/8/4k3/8/KN1N4 b - - 0 1"), -10595);
    EXPECT_EQ(score_of("8/8/8/5k2/8/8/8/KN1N4 w - - 0 1"), 0);
    // A pawn among four men takes the general sum.
    EXPECT_NE(score_of("8/8/8/8/8/4k3/4P3/K6R w - - 0 1"), 100 + 500 + 10000);
}

// A broken board of three kings has no score, and must not read past a set.
TEST_F(Eval, ThirdKingScoresZero) {
    side_t strong = {}, weak = {};
    strong.opponent = &weak;
    weak.opponent = &strong;
    strong.pieces[KING] = square_bit(0) | square_bit(63);
    weak.pieces[KING] = square_bit(36);
    EXPECT_EQ(endgame_score(strong, 1), 0);
}

TEST_F(Eval, GeneStrings) {
    const std::string defaults = "000111000011001111000111000111001000000001001111001111000111001111000011101011010101";
    genes.fill(0);
    auto out = test::capture_stdout([&] { load_genes(defaults.c_str()); });
    EXPECT_EQ(genes, DEFAULT_GENES);
    auto lines = test::split_lines(out);
    ASSERT_EQ(lines.size(), 14u);
    EXPECT_EQ(lines[0], "info debug pbil[00] = 5");
    EXPECT_EQ(lines[12], "info debug pbil[12] = 50");
    test::capture_stdout([] { load_genes(std::string(84, '1').c_str()); });
    for (int32_t g : genes) EXPECT_EQ(g, 42);
    test::capture_stdout([] { load_genes(std::string(84, 'x').c_str()); });
    for (int32_t g : genes) EXPECT_EQ(g, 0);
    genes = DEFAULT_GENES;
    out = test::capture_stdout([] { load_genes("0101"); });
    EXPECT_EQ(out, "info string -pbil= needs 84 characters, got 4; default weights kept\n");
    EXPECT_EQ(genes, DEFAULT_GENES);
}
