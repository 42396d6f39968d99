// Fits the evaluation's 14 weights to game results by Texel's method: the
// weights whose static scores of quiet positions best predict the results of
// the games the positions came from, by logistic loss. The scale that turns a
// score into an expected result is fitted first, on the starting weights, and
// kept; then each weight in turn moves by 8, 4, 2 and 1 while the loss falls.
//
// usage: velkor_texel POSITIONS [GENES]
//   POSITIONS  lines "FEN;R", R the game's score for White (1, 0.5, 0)
//   GENES      the 84-character string to start from (default: the engine's weights)
// Progress goes to standard error; standard output gives the fitted weights in
// the string's order, the loss and scale, and last the fitted string.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "evaluation/evaluation.h"

using namespace velkor;

namespace {

struct sample_t {
    std::string fen;
    double result;  // for White
    bool white_to_move;
};

std::vector<sample_t> samples;
double scale = 1.0;  // the score's weight in the expected result

// White's static score of every sample under the current genes.
std::vector<double> white_scores() {
    std::vector<double> scores;
    scores.reserve(samples.size());
    for (const sample_t& s : samples) {
        set_fen(s.fen.c_str());
        update_checks();
        update_attacks();
        const double score = evaluate();
        scores.push_back(s.white_to_move ? score : -score);
    }
    return scores;
}

double loss(const std::vector<double>& scores, double k) {
    double sum = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        double p = 1.0 / (1.0 + std::pow(10.0, -k * scores[i] / 400.0));
        p = std::fmin(std::fmax(p, 1e-9), 1 - 1e-9);
        const double r = samples[i].result;
        sum -= r * std::log(p) + (1 - r) * std::log(1 - p);
    }
    return sum / double(samples.size());
}

bool read_samples(const char* path) {
    FILE* file = fopen(path, "r");
    if (!file) return false;
    char line[512];
    size_t refused = 0;
    while (fgets(line, sizeof line, file)) {
        char* mark = strrchr(line, ';');
        if (!mark) continue;
        *mark = '\0';
        const char* side = strchr(line, ' ');
        if (fen_error(line) || !side) {
            ++refused;
            continue;
        }
        samples.push_back({line, atof(mark + 1), side[1] == 'w'});
    }
    fclose(file);
    fprintf(stderr, "%zu positions, %zu refused\n", samples.size(), refused);
    return !samples.empty();
}

std::string gene_string() {
    std::string text;
    for (int k = 0; k < GENE_NUMBER; ++k) {
        const int code = genes[k] ^ (genes[k] >> 1);
        for (int bit = GENE_SIZE - 1; bit >= 0; --bit) text += (code >> bit & 1) ? '1' : '0';
    }
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: velkor_texel POSITIONS [GENES]\n");
        return 2;
    }
    if (init_magics(0) != 0) return 1;
    if (argc == 3) load_genes(argv[2]);
    if (!read_samples(argv[1])) {
        fprintf(stderr, "velkor_texel: no positions in %s\n", argv[1]);
        return 1;
    }
    const std::vector<double> start = white_scores();
    double best = loss(start, scale);
    for (double k = 0.05; k <= 4.0; k += 0.05) {
        const double l = loss(start, k);
        if (l < best) best = l, scale = k;
    }
    fprintf(stderr, "scale %.2f, loss %.6f\n", scale, best);
    for (const int step : {8, 4, 2, 1}) {
        for (bool improved = true; improved;) {
            improved = false;
            for (int k = 0; k < GENE_NUMBER; ++k) {
                for (const int change : {step, -step}) {
                    const int32_t kept = genes[k];
                    if (kept + change < 0 || kept + change > 63) continue;
                    genes[k] = kept + change;
                    const double l = loss(white_scores(), scale);
                    if (l < best - 1e-9) {
                        best = l;
                        improved = true;
                        fprintf(stderr, "loss %.6f: gene %d = %d\n", best, k, genes[k]);
                        break;
                    }
                    genes[k] = kept;
                }
            }
        }
    }
    for (int k = 0; k < GENE_NUMBER; ++k) printf("%d%c", genes[k], k + 1 < GENE_NUMBER ? ' ' : '\n');
    printf("loss %.6f scale %.2f\n%s\n", best, scale, gene_string().c_str());
    return 0;
}
