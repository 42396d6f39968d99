"""Progress of a run on the terminal: a line for each finished mini-match and
one for each generation."""
import math
import sys
import time

import numpy as np

from . import pbil
from .stats import score_error


def clock(seconds: float) -> str:
    seconds = int(max(0, seconds))
    return f"{seconds // 3600}:{seconds // 60 % 60:02d}:{seconds % 60:02d}"


class Progress:
    def __init__(self, generations: int, games_per_generation: int, state: dict, stream=sys.stdout):
        self.generations, self.per_generation, self.stream = generations, games_per_generation, stream
        self.started = time.monotonic()
        self.played_here = 0  # games played since this process started, for the rate
        self.games_before = sum(h["games"] for h in state["history"])
        self.failures = sum(h["failures"] for h in state["history"])
        self.entropy = pbil.entropy(pbil.State(state["probabilities"]))

    def start_generation(self, generation: int, recorded: list[dict]):
        self.generation, self.records = generation, list(recorded)
        if recorded:
            self.say(f"generation {generation + 1}: {len(recorded)} mini-matches already recorded")

    def finished(self, record: dict):
        self.records.append(record)
        games = record["wins"] + record["draws"] + record["losses"]
        self.played_here += games
        self.failures += sum(record["failures"].values()) + sum(record["base_failures"].values())
        done_generation = sum(r["wins"] + r["draws"] + r["losses"] for r in self.records)
        done_all = self.games_before + done_generation
        total = self.generations * self.per_generation
        minutes = (time.monotonic() - self.started) / 60
        rate = self.played_here / minutes if minutes > 0 else 0.0
        left = (total - done_all) / rate * 60 if rate > 0 else math.inf
        scores = np.array([r["score"] for r in self.records])
        best = max(self.records, key=lambda r: r["score"])
        self.say(f"gen {self.generation + 1}/{self.generations}  games {done_generation}/{self.per_generation}"
                 f" ({done_all}/{total} in all)  {rate:.1f} games/min  left {clock(left) if rate else '?'}"
                 f"  best {best['score']:.3f}±{score_error(best['penta']):.3f}"
                 f"  mean {scores.mean():.3f}±{scores.std() / np.sqrt(len(scores)):.3f}"
                 f"  entropy {self.entropy:.3f}  failures {self.failures}  [{record['worker']}]")

    def closed(self, state: dict):
        entry = state["history"][-1]
        self.games_before += entry["games"]
        self.entropy = pbil.entropy(pbil.State(state["probabilities"]))
        best = state["best"]
        self.say(f"generation {entry['generation'] + 1} done: best {max(entry['fitness']):.3f}, mean {entry['mean']:.3f},"
                 f" entropy now {self.entropy:.3f}; best so far {best['fitness']:.3f} (generation {best['generation'] + 1})")

    def say(self, line: str):
        print(line, file=self.stream, flush=True)
