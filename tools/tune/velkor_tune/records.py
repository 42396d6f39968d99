"""A mini-match as the tuner records it, and the totals of many.

A record is one line of a folder's results.jsonl: the task (the strings, the
limit, the openings' seed and pairs) with the tested side's wins, draws and
losses, its pentanomial pair counts, the failures of each side by kind, the
plies, the CPU time, the worker that played it and when it finished. Its
games are `games(record)`, a count, as everywhere in the tuner's files.
"""
from dataclasses import dataclass, field

from . import stats


def games(record: dict) -> int:
    return record["wins"] + record["draws"] + record["losses"]


def failures(record: dict) -> int:
    """Failures of both sides."""
    return sum(record["failures"].values()) + sum(record["base_failures"].values())


# What names a task: the fields of its inputs that tell it from the others.
TASK = ("generation", "candidate", "batch", "task", "index", "pair_offset", "genes", "base", "seed")


def once(records: list[dict]) -> list[dict]:
    """The first record of each task, as the commands count them: a result
    that arrived twice (two calls on one folder at once) counts once."""
    seen, out = set(), []
    for r in records:
        name = repr([r.get(f) for f in TASK])
        if name not in seen:
            seen.add(name)
            out.append(r)
    return out


def add_counts(into: dict, counts: dict):
    for kind, n in counts.items():
        into[kind] = into.get(kind, 0) + n


@dataclass
class Totals:
    wins: int = 0
    draws: int = 0
    losses: int = 0
    penta: list = field(default_factory=lambda: [0] * 5)
    failures: dict = field(default_factory=dict)
    base_failures: dict = field(default_factory=dict)
    plies: int = 0
    cpu: dict = field(default_factory=lambda: {"engines": 0.0, "driver": 0.0})

    @classmethod
    def of(cls, records) -> "Totals":
        t = cls()
        for r in records:
            t.add(r)
        return t

    def add(self, r: dict):
        self.wins, self.draws, self.losses = self.wins + r["wins"], self.draws + r["draws"], self.losses + r["losses"]
        self.plies += r.get("plies", 0)
        self.penta = [a + b for a, b in zip(self.penta, r["penta"])]
        for k in self.cpu:
            self.cpu[k] += r.get("cpu", {}).get(k, 0.0)
        add_counts(self.failures, r["failures"])
        add_counts(self.base_failures, r["base_failures"])

    @property
    def games(self) -> int:
        return games(vars(self))

    @property
    def failed(self) -> int:
        return failures(vars(self))

    def kinds(self) -> dict:
        """Failures of both sides by kind, those that happened."""
        both = {}
        add_counts(both, self.failures)
        add_counts(both, self.base_failures)
        return {k: n for k, n in both.items() if n}

    def as_dict(self) -> dict:
        return {k: getattr(self, k) for k in ("wins", "draws", "losses", "penta", "failures", "base_failures", "plies",
                                               "cpu")}

    def describe(self, bounds=None) -> str:
        """The terminal's and summary.json's account of a match."""
        lines = [f"games {self.games}: +{self.wins} ={self.draws} -{self.losses}"]
        if sum(self.penta):
            s = stats.summary(self.penta)
            lines.append(f"score {s['score']:.4f}, Elo {s['elo']:+.1f} +/- {s['elo_error']:.1f} (95 %), "
                         f"LOS {100 * s['los']:.1f} %")
        lines.append("pentanomial " + " ".join(f"{n}" for n in self.penta) + " (pairs scoring 0, 1/2, 1, 3/2, 2)")
        fmt = lambda f: ", ".join(f"{k} {n}" for k, n in f.items()) or "none"
        lines.append(f"failures of the tested side: {fmt(self.failures)}; of the base: {fmt(self.base_failures)}")
        if bounds:
            q = stats.sprt(self.penta, *bounds)
            lines.append(f"SPRT nElo [{q['elo0']:g}, {q['elo1']:g}], alpha = beta = 0.05: LLR {q['llr']:.2f}"
                         f" ({q['lower']:.2f}, {q['upper']:.2f}): {q['verdict']}")
        return "\n".join(lines)

    def stat_block(self, bounds=None, rate=None) -> str:
        """The block the testing frameworks print for a match, to copy into a report."""
        lines = []
        if bounds:
            q = stats.sprt(self.penta, *bounds)
            lines.append(f"LLR: {q['llr']:.2f} ({q['lower']:.2f}, {q['upper']:.2f}) [{q['elo0']:.2f}, {q['elo1']:.2f}]"
                         f" {q['verdict']}")
        if sum(self.penta):
            s = stats.summary(self.penta)
            lines.append(f"Elo: {s['elo']:+.2f} ± {s['elo_error']:.2f} (95%) LOS: {100 * s['los']:.1f}%")
        lines.append(f"Total: {self.games} W: {self.wins} L: {self.losses} D: {self.draws}")
        lines.append("Ptnml(0-2): " + ", ".join(str(n) for n in self.penta))
        if rate is not None:
            lines.append(f"Games/min: {rate:.1f}")
        kinds = self.kinds()
        lines.append("Failures: " + (", ".join(f"{k} {n}" for k, n in kinds.items()) if kinds else "none"))
        return "\n".join(lines)
