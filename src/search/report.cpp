#include <cstdio>

#include "search/search.h"

namespace velkor {

void print_score(int32_t score) {
    if (score <= MATE_BOUND && score >= -MATE_BOUND)
        printf("score cp %i ", score);
    else
        printf("score mate %i ", score > 0 ? (MATE + 1 - score) / 2 : -((score + MATE + 1) / 2));
}

}  // namespace velkor
