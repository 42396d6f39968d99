// The static evaluation: material, pawn structure, rooks, piece activity and
// king safety, summed side against side, with special cases for three men
// and for four men without pawns. Some weights are tunable genes.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "engine/position.h"
#include "evaluation/genes.h"

namespace velkor {

// The genes: GENE_<ID>, GENE_NUMBER, GENE_SIZE and DEFAULT_GENES, made by
// the build from the table src/evaluation/genes.txt.
extern std::array<int32_t, GENE_NUMBER> genes;

// Replaces all genes from a string of GENE_SIZE * GENE_NUMBER characters, a
// Gray-coded 6-bit number each, '1' a one bit and anything else a zero. A
// string of another length keeps the defaults and says so.
void load_genes(const char* text);

// The string that load_genes reads as the present genes.
std::string gene_string();

inline constexpr int32_t WIN_BONUS = 10000;

// Passed-pawn bonus by the number of squares ahead of the pawn on its file.
inline constexpr int32_t passed_bonus[8] = {0, 275, 150, 75, 50, 25, 0, 0};

// The score for the side to move. The attack maps and the pins must be
// current (update_checks or update_pins, then update_attacks).
int32_t evaluate();

int32_t material_balance();

// Terms of one side, good for that side.
int32_t pawn_score(const side_t& side);
int32_t rook_score(const side_t& side);
int32_t activity_score(const side_t& side);
// pawn_score of the side less that of its opponent, the pawns filled once for both.
int32_t pawn_balance(const side_t& side);

// Three men: the value for the side that owns the third man (0 or positive).
int32_t endgame_score(const side_t& strong, uint32_t white_to_move);

// A won ending of a over b: material, the bonus, and the kings' centre terms.
int32_t win_score(const side_t& a, const side_t& b);

}  // namespace velkor
