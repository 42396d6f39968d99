#include <cstdio>
#include <cstring>

#include "evaluation/evaluation.h"

namespace velkor {

std::array<int32_t, GENE_NUMBER> genes = DEFAULT_GENES;

// Neighbouring gene values differ in one bit of the string: each gene is a Gray code.
void load_genes(const char* text) {
    uint32_t gray_decode[GENE_MAX + 1] = {};
    for (uint32_t i = 0; i <= uint32_t(GENE_MAX); ++i) gray_decode[i ^ (i >> 1)] = i;
    const size_t length = strlen(text);
    if (length != size_t(GENE_SIZE * GENE_NUMBER)) {
        printf("info string -pbil= needs %i characters, got %zu; default weights kept\n", GENE_SIZE * GENE_NUMBER,
               length);
        return;
    }
    for (int k = 0; k < GENE_NUMBER; ++k) {
        uint32_t code = 0;
        for (int b = 0; b < GENE_SIZE; ++b) code = code << 1 | (text[GENE_SIZE * k + b] == '1' ? 1 : 0);
        genes[k] = int32_t(gray_decode[code]);
        printf("info debug pbil[%02i] = %i\n", k, genes[k]);
    }
}

std::string gene_string() {
    std::string text;
    for (int k = 0; k < GENE_NUMBER; ++k) {
        const int32_t code = genes[k] ^ (genes[k] >> 1);
        for (int bit = GENE_SIZE - 1; bit >= 0; --bit) text += (code >> bit & 1) ? '1' : '0';
    }
    return text;
}

}  // namespace velkor
