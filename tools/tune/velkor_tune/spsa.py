"""SPSA over the weights, as the large engine projects tune: each task
plays theta + c*delta against theta - c*delta (delta a random +-1 for each
weight, both strings rounded stochastically and clipped to the weights'
range) for a few
pairs of games, and theta moves by R * c * (W - L) * delta.

Schedules (fishtest's, with N the iterations, one iteration a game pair):
  c_k = c_end * N^gamma / k^gamma
  R_k = a / (A + k)^alpha / c_k^2,  a = r_end * c_end^2 * (A + N)^alpha,  A = N / 10
with alpha 0.602, gamma 0.101, c_end a twentieth of the range and r_end
0.002 by default. The
answer is the final theta, never a sampled point.

The tasks run in batches drawn from one theta, applied in order when the
whole batch is in, so that the path depends on the seed alone:
OUT/state.json    settings, theta after each batch, the engine's hash
OUT/results.jsonl one line a finished task, appended as soon as it ends
OUT/theta.txt     the present theta as a string, its weights, how far along
OUT/spsa.png      every weight's path
OUT/velkor        the engine the run plays, copied at the start
"""
import math
import pathlib

import numpy as np

from . import genes, match, records, report, tasks
from .reading import limit_text, read_json
from .runfolder import STATE, keep_engine, kept_book, kept_engine, load_state, write_atomically, write_json

THETA = "theta.txt"
KIND = "spsa"  # in its state, which tells an SPSA run from a PBIL one
ALPHA, GAMMA = 0.602, 0.101
LOW, HIGH = genes.LOW, genes.HIGH
DEFAULTS = {"iterations": 20000, "pairs": 4, "batch": 4, "c_end": (HIGH - LOW) / 20, "r_end": 0.002,
            "random_plies": 6}


def schedule(settings: dict, k: int) -> tuple[float, float]:
    """c_k and R_k of iteration k (1-based)."""
    n, c_end = settings["iterations"], settings["c_end"]
    big_a = n / 10
    a = settings["r_end"] * c_end ** 2 * (big_a + n) ** ALPHA
    c = c_end * n ** GAMMA / k ** GAMMA
    return c, a / (big_a + k) ** ALPHA / c ** 2


def rounded(values, rng: np.random.Generator) -> list[int]:
    """Stochastic rounding, floor(x + U(0, 1)), clipped to the weights' range."""
    return [int(v) for v in np.clip(np.floor(np.asarray(values) + rng.random(len(values))), LOW, HIGH)]


def perturbation(theta, c: float, rng: np.random.Generator) -> tuple[list[int], list[int], list[int]]:
    """delta, theta + c*delta and theta - c*delta (both rounded)."""
    delta = np.where(rng.random(len(theta)) < 0.5, -1, 1)
    theta = np.asarray(theta, dtype=float)
    return [int(d) for d in delta], rounded(theta + c * delta, rng), rounded(theta - c * delta, rng)


def step(theta, delta, c: float, r: float, score: int) -> list[float]:
    """theta after a task whose plus side scored `score` = wins - losses."""
    return [float(x) for x in np.clip(np.asarray(theta) + r * c * score * np.asarray(delta), LOW, HIGH)]


def batch_tasks(state: dict, batch: int) -> list[dict]:
    s = state["settings"]
    tasks = []
    for j in range(s["batch"]):
        first = (batch * s["batch"] + j) * s["pairs"]  # iterations before this task
        c, r = schedule(s, first + 1)
        rng = np.random.default_rng([s["seed"], batch, j])
        delta, plus, minus = perturbation(state["theta"], c, rng)
        tasks.append(match.MatchTask(genes=genes.encode(plus), base=genes.encode(minus), pairs=s["pairs"],
                                     depth=s["depth"], tc=s["tc"], seed=s["seed"], engine_hash=state["engine_hash"],
                                     pair_offset=first, random_plies=s["random_plies"], book=s.get("book_name"))
                     .as_dict(batch=batch, task=j, delta=delta, c=c, r=r))
    return tasks


def batches(settings: dict) -> int:
    return math.ceil(settings["iterations"] / (settings["pairs"] * settings["batch"]))


def apply_batch(state: dict, played: list[dict]) -> dict:
    theta = state["theta"]
    for r in sorted(played, key=lambda r: r["task"]):
        theta = step(theta, r["delta"], r["c"], r["r"], r["wins"] - r["losses"])
    return {**state, "batch": state["batch"] + 1, "theta": theta, "path": state["path"] + [theta],
            "games": state["games"] + sum(map(records.games, played)),
            "failures": state["failures"] + sum(map(records.failures, played))}


def answer(state: dict) -> str:
    """The run's answer: the present theta, each weight rounded to the nearest."""
    return genes.encode([int(np.clip(round(x), LOW, HIGH)) for x in state["theta"]])


def start(out: pathlib.Path, settings: dict, engine_path) -> dict:
    if (out / STATE).exists():
        raise ValueError(f"{out} holds a run already: velkor-tune spsa {out} (with no other options) carries it on")
    out.mkdir(parents=True, exist_ok=True)
    digest = keep_engine(out, engine_path)
    theta = [float(w) for w in genes.decode(settings["start"])]
    state = {"kind": KIND, "settings": settings, "engine_hash": digest, "batch": 0, "theta": theta,
             "path": [theta], "games": 0, "failures": 0}
    write_json(out / STATE, state)
    return state


def write_theta(out: pathlib.Path, state: dict):
    s = state["settings"]
    text = answer(state)
    write_atomically(out / THETA, (
        f"{text}\n"
        f"SPSA theta after {state['batch']} of {batches(s)} batches ({state['games']} games, "
        f"{state['failures']} failures), from {s['start']}\n\n{genes.describe(text)}\n"))


def games_per_batch(settings: dict) -> int:
    return settings["pairs"] * settings["batch"] * 2


def plot(out: pathlib.Path, state: dict):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    path = np.array(state["path"])
    games = np.arange(len(path)) * games_per_batch(state["settings"])
    fig, cells = report.weight_grid(plt)
    for k, ax in enumerate(cells):
        ax.plot(games, path[:, k])
        ax.axhline(genes.DEFAULTS[k], color="grey", linestyle="--", linewidth=0.8)
        ax.axhline(path[0, k], color="green", linestyle=":", linewidth=0.8)
    fig.suptitle("SPSA: each weight's theta by games played (dashed: the default, dotted: the start)")
    fig.supxlabel("games")
    fig.tight_layout()
    fig.savefig(out / "spsa.png", dpi=110)
    plt.close(fig)


def carry_on(out: pathlib.Path, cluster) -> dict:
    """Plays the batches still to play; returns the final state."""
    state = load_state(out)
    total = batches(state["settings"])
    # A finished run only plots again: it needs neither engine nor book.
    inputs = (kept_engine(out, state), kept_book(state["settings"])) if state["batch"] < total else None
    progress = tasks.Progress(total * games_per_batch(state["settings"]), state["games"], state["failures"])
    while state["batch"] < total:
        work = batch_tasks(state, state["batch"])
        done = tasks.play(cluster, out, work, inputs, progress, name=f"spsa-b{state['batch']}",
                          key=lambda t: (t["batch"], t["task"]), same=("genes", "base"))
        state = apply_batch(state, list(done.values()))
        write_json(out / STATE, state)
        write_theta(out, state)
        progress.say(f"batch {state['batch']}/{total} applied, theta " + " ".join(f"{x:.1f}" for x in state["theta"]))
        if state["batch"] % 10 == 0 or state["batch"] == total:
            plot(out, state)
    plot(out, state)
    return state


# The campaign page's reading of an SPSA run's folder (see campaigns.py).

def holds(folder: pathlib.Path) -> bool:
    try:
        return load_state(folder).get("kind") == KIND
    except (OSError, ValueError, AttributeError):
        return False


def parts(folder: pathlib.Path, played: list[dict]) -> list[dict]:
    state = read_json(folder / STATE)
    s = state["settings"]
    per_batch = s["pairs"] * s["batch"]
    return [{"kind": KIND, "final": state["batch"] >= batches(s), "batch": state["batch"],
             "batches": batches(s), "thetas": state["path"], "theta": state["theta"],
             "c": [schedule(s, max(1, b * per_batch))[0] for b in range(len(state["path"]))],
             "genes": answer(state), "games": state["games"], "failures": state["failures"],
             "limit": limit_text(s)}]
