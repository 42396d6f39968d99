"""Match statistics from pentanomial pair counts.

A pair is two games of one opening with colours swapped; its score for the
tested side is 0, 0.5, 1, 1.5 or 2 points, counted in `penta[0..4]`.
"""
import math

Z95 = 1.959963984540054


def elo(score: float) -> float:
    """Elo difference of an expected score strictly between 0 and 1."""
    return -400.0 * math.log10(1.0 / score - 1.0)


def summary(penta) -> dict:
    """Score, Elo with its 95 % interval, and LOS, from the pair counts."""
    pairs = sum(penta)
    if pairs == 0:
        raise ValueError("no pairs")
    values = [k / 4 for k in range(5)]  # pair score as a fraction of its two points
    mean = sum(n * v for n, v in zip(penta, values)) / pairs
    variance = sum(n * (v - mean) ** 2 for n, v in zip(penta, values)) / pairs
    se = math.sqrt(variance / pairs)
    clamp = lambda s: min(max(s, 1e-6), 1 - 1e-6)
    low, high = elo(clamp(mean - Z95 * se)), elo(clamp(mean + Z95 * se))
    los = 0.5 * (1 + math.erf((mean - 0.5) / (se * math.sqrt(2)))) if se > 0 else (
        1.0 if mean > 0.5 else 0.0 if mean < 0.5 else 0.5)
    return {"pairs": pairs, "score": mean, "elo": elo(clamp(mean)),
            "elo_error": (high - low) / 2, "los": los}
