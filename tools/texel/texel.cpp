// Fits the evaluation's genes by Texel's method: the weights whose static
// scores of quiet positions best predict each position's label, by logistic
// loss. A label is the game's result, or, where a teacher engine scored the
// position, LAMBDA times the teacher's expected score plus (1 - LAMBDA) times
// the result. Every tenth position is held out of the fit and only scored.
// The scale that turns a score into an expected result is fitted first, on
// the starting weights, and kept; then each weight in turn moves by 8, 4, 2
// and 1 while the loss on the fitted positions falls.
//
// usage: velkor_texel POSITIONS [GENES] [--lambda L]
//   POSITIONS  lines "FEN;R" or "FEN;R;T": R the game's score for White
//              (1, 0.5, 0), T a teacher's expected score for White (0..1)
//   GENES      the -pbil= string to start from (default: the engine's weights)
//   --lambda   the teacher's share of a label (default 0: results alone)
// Progress goes to standard error; standard output gives the fitted weights in
// the string's order, the loss and scale, the held-out loss before and after,
// and last the fitted string.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "evaluation/evaluation.h"

using namespace velkor;

namespace {

constexpr size_t HOLDOUT_EVERY = 10;  // the 10th, 20th, ... position is held out

struct sample_t {
    std::string fen;
    double label;  // expected score for White
    bool white_to_move;
};

std::vector<sample_t> fitted, held_out;
double scale = 1.0;  // the score's weight in the expected result

// White's static score of every sample under the current genes.
std::vector<double> white_scores(const std::vector<sample_t>& samples) {
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

double loss(const std::vector<sample_t>& samples, const std::vector<double>& scores, double k) {
    double sum = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        double p = 1.0 / (1.0 + std::pow(10.0, -k * scores[i] / 400.0));
        p = std::fmin(std::fmax(p, 1e-9), 1 - 1e-9);
        const double r = samples[i].label;
        sum -= r * std::log(p) + (1 - r) * std::log(1 - p);
    }
    return sum / double(samples.size());
}

bool read_samples(const char* path, double lambda) {
    FILE* file = fopen(path, "r");
    if (!file) return false;
    char line[512];
    size_t refused = 0, taught = 0;
    while (fgets(line, sizeof line, file)) {
        char* result = strchr(line, ';');
        if (!result) continue;
        *result++ = '\0';
        char* teacher = strchr(result, ';');
        const char* side = strchr(line, ' ');
        if (fen_error(line) || !side) {
            ++refused;
            continue;
        }
        double label = atof(result);
        if (teacher) {
            label = lambda * atof(teacher + 1) + (1 - lambda) * label;
            ++taught;
        }
        const size_t count = fitted.size() + held_out.size() + 1;
        (count % HOLDOUT_EVERY == 0 ? held_out : fitted).push_back({line, label, side[1] == 'w'});
    }
    fclose(file);
    fprintf(stderr, "%zu positions (%zu held out, %zu with a teacher's score, lambda %.2f), %zu refused\n",
            fitted.size() + held_out.size(), held_out.size(), taught, lambda, refused);
    return !fitted.empty() && !held_out.empty();
}

}  // namespace

int main(int argc, char** argv) {
    const char* positions = nullptr;
    const char* start = nullptr;
    double lambda = 0;
    for (int k = 1; k < argc; ++k) {
        if (!strcmp(argv[k], "--lambda") && k + 1 < argc) {
            lambda = atof(argv[++k]);
        } else if (!positions) {
            positions = argv[k];
        } else if (!start) {
            start = argv[k];
        } else {
            positions = nullptr;
            break;
        }
    }
    if (!positions || lambda < 0 || lambda > 1) {
        fprintf(stderr, "usage: velkor_texel POSITIONS [GENES] [--lambda L]\n");
        return 2;
    }
    if (init_magics(0) != 0) return 1;
    if (start) load_genes(start);
    if (!read_samples(positions, lambda)) {
        fprintf(stderr, "velkor_texel: too few positions in %s\n", positions);
        return 1;
    }
    const std::vector<double> scores = white_scores(fitted);
    double best = loss(fitted, scores, scale);
    for (double k = 0.05; k <= 4.0; k += 0.05) {
        const double l = loss(fitted, scores, k);
        if (l < best) best = l, scale = k;
    }
    const double held_before = loss(held_out, white_scores(held_out), scale);
    fprintf(stderr, "scale %.2f, loss %.6f, held out %.6f\n", scale, best, held_before);
    for (const int step : {8, 4, 2, 1}) {
        for (bool improved = true; improved;) {
            improved = false;
            for (int k = 0; k < GENE_NUMBER; ++k) {
                for (const int change : {step, -step}) {
                    const int32_t kept = genes[k];
                    if (kept + change < 0 || kept + change > GENE_MAX) continue;
                    genes[k] = kept + change;
                    const double l = loss(fitted, white_scores(fitted), scale);
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
    const double held_after = loss(held_out, white_scores(held_out), scale);
    for (int k = 0; k < GENE_NUMBER; ++k) printf("%d%c", genes[k], k + 1 < GENE_NUMBER ? ' ' : '\n');
    printf("loss %.6f scale %.2f\nheld out %.6f %.6f\n%s\n", best, scale, held_before, held_after,
           gene_string().c_str());
    return 0;
}
