// The search: score constants and the text form of a score.
#pragma once

#include <cstdint>

namespace velkor {

inline constexpr int32_t MATE = 30000;         // a side mated at search ply p scores p - MATE
inline constexpr int32_t MATE_BOUND = 29936;   // a larger absolute value is a mate score
inline constexpr int32_t SCORE_INF = 0x10000000;

// "score cp N " or "score mate N " (full moves to the mate, negative when
// the side to move is mated); always ends in a blank.
void print_score(int32_t score);

}  // namespace velkor
