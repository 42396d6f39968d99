"""Match statistics from pentanomial pair counts.

A pair is two games of one opening with colours swapped; its score for the
tested side is 0, 0.5, 1, 1.5 or 2 points, counted in `penta[0..4]`.
"""
import math

Z95 = 1.959963984540054


def elo(score: float) -> float:
    """Elo difference of an expected score strictly between 0 and 1."""
    return 400.0 * math.log10(score / (1.0 - score))


def moments(penta) -> tuple[int, float, float]:
    """Pairs, and the mean and variance of a pair's score as a fraction of its two points."""
    pairs = sum(penta)
    if pairs == 0:
        return 0, 0.5, 0.0
    values = [k / 4 for k in range(5)]
    mean = sum(n * v for n, v in zip(penta, values)) / pairs
    return pairs, mean, sum(n * (v - mean) ** 2 for n, v in zip(penta, values)) / pairs


def summary(penta) -> dict:
    """Score, Elo with its 95 % interval, and LOS, from the pair counts."""
    pairs, mean, variance = moments(penta)
    if pairs == 0:
        raise ValueError("no pairs")
    se = math.sqrt(variance / pairs)
    clamp = lambda s: min(max(s, 1e-6), 1 - 1e-6)
    low, high = elo(clamp(mean - Z95 * se)), elo(clamp(mean + Z95 * se))
    los = 0.5 * (1 + math.erf((mean - 0.5) / (se * math.sqrt(2)))) if se > 0 else (
        1.0 if mean > 0.5 else 0.0 if mean < 0.5 else 0.5)
    return {"pairs": pairs, "score": mean, "elo": elo(clamp(mean)),
            "elo_error": (high - low) / 2, "los": los}


def score_error(penta) -> float:
    """Standard error of the score from pair counts (0 with fewer than two pairs)."""
    pairs, _, variance = moments(penta)
    return math.sqrt(variance / pairs) if pairs >= 2 else 0.0


# Normalized Elo: the score's distance from 0.5 in standard deviations of a
# game, times 800 / ln 10. A pair is the mean of two games, so a game's
# deviation is sqrt(2) times a pair's.
NELO_SCALE = 800 / math.log(10)


def sprt(penta, elo0: float, elo1: float, alpha: float = 0.05, beta: float = 0.05) -> dict:
    """Sequential test of nElo = elo0 against nElo = elo1 on pair counts.

    With the pair scores' mean m and deviation s (both estimated), the log
    likelihood ratio of two normal models with means 0.5 + t0 s and 0.5 + t1 s
    is N (t1 - t0) ((m - 0.5) / s - (t0 + t1) / 2), where t is a bound in
    deviations of a pair: nElo / NELO_SCALE * sqrt(2).
    """
    lower, upper = math.log(beta / (1 - alpha)), math.log((1 - beta) / alpha)
    pairs, mean, variance = moments(penta)
    sd = math.sqrt(variance)
    llr = 0.0
    if pairs >= 2:
        if sd > 0:
            t0, t1 = (e / NELO_SCALE * math.sqrt(2) for e in (elo0, elo1))
            llr = pairs * (t1 - t0) * ((mean - 0.5) / sd - (t0 + t1) / 2)
    verdict = "H1 accepted" if llr >= upper else "H0 accepted" if llr <= lower else "running"
    return {"llr": llr, "lower": lower, "upper": upper, "elo0": elo0, "elo1": elo1, "verdict": verdict}
