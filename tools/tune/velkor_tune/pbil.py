"""Population-based incremental learning over the bits of a gene string.

The state is a probability for each bit. A generation samples strings from
it; after they are scored the vector moves towards the best string, away from
the worst where the two differ, and mutates.
"""
from dataclasses import dataclass, field

import numpy as np

from . import genes


@dataclass
class Settings:
    learning_rate: float = 0.1
    negative_rate: float = 0.075
    mutation_probability: float = 0.02
    mutation_shift: float = 0.05


@dataclass
class State:
    probabilities: list = field(default_factory=lambda: [0.5] * genes.BITS)

    @classmethod
    def leaning_to(cls, text: str, lean: float):
        """Starts leaning towards a string: each bit lean away from 0.5 its way."""
        return cls([0.5 + lean if c == "1" else 0.5 - lean for c in text])


def sample(state: State, count: int, rng: np.random.Generator) -> list[str]:
    p = np.asarray(state.probabilities)
    draws = rng.random((count, len(p))) < p
    return ["".join("1" if b else "0" for b in row) for row in draws]


def update(state: State, candidates: list[str], fitness: list[float], settings: Settings,
           rng: np.random.Generator) -> State:
    """The next vector. Ties in fitness go to the earlier candidate."""
    order = sorted(range(len(candidates)), key=lambda i: -fitness[i])
    best = np.array([c == "1" for c in candidates[order[0]]], dtype=float)
    worst = np.array([c == "1" for c in candidates[order[-1]]], dtype=float)
    p = np.asarray(state.probabilities, dtype=float)
    p = p * (1 - settings.learning_rate) + best * settings.learning_rate
    differ = best != worst
    p[differ] = p[differ] * (1 - settings.negative_rate) + best[differ] * settings.negative_rate
    mutate = rng.random(len(p)) < settings.mutation_probability
    towards = (rng.random(len(p)) < 0.5).astype(float)
    p[mutate] = p[mutate] * (1 - settings.mutation_shift) + towards[mutate] * settings.mutation_shift
    return State([float(x) for x in p])


def entropy(state: State) -> float:
    """Mean binary entropy of the bits, 1 at the start, 0 when converged."""
    p = np.clip(np.asarray(state.probabilities), 1e-12, 1 - 1e-12)
    return float(np.mean(-(p * np.log2(p) + (1 - p) * np.log2(1 - p))))


def consensus(probabilities) -> str:
    """The vector's answer: each bit at its likelier value (ties to zero)."""
    return "".join("1" if p > 0.5 else "0" for p in probabilities)
