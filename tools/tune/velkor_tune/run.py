"""A PBIL run into a folder, and its resumption.

OUT/state.json   settings, the engine's hash, the vector of the next
                 generation and the history; replaced atomically after every
                 generation, so it is always whole.
OUT/results.jsonl one line a finished mini-match, appended as soon as it ends.
OUT/best.txt     the run's answer, the vector's consensus (each bit at its
                 likelier value), and apart from it the best-scoring sample
                 so far, which is reported as such and never as the answer:
                 the best of many noisy scores is chosen for its luck.
OUT/velkor       the engine the run plays, copied at the start.
OUT/pgn/         the games, a file a generation.

Every random draw of generation g comes from generators seeded with (seed, g),
so a resumed run samples the same strings and plays the same openings as an
uninterrupted one, and reuses every result already recorded.
"""
import pathlib

import numpy as np

from . import genes, match, pbil, records, report, stats, tasks
from .reading import Unreadable, limit_text, read_json
from .runfolder import PGN, STATE, keep_engine, kept_book, kept_engine, load_state, write_atomically, write_json

BEST = "best.txt"
GAMES = PGN


def generators(seed: int, generation: int):
    """Candidates, openings and the update's mutation of one generation."""
    return tuple(np.random.default_rng([seed, generation, k]) for k in range(3))


def candidates(state: dict, generation: int) -> tuple[list[str], int]:
    s = state["settings"]
    sample_rng, openings_rng, _ = generators(s["seed"], generation)
    vector = pbil.State(state["probabilities"])
    return pbil.sample(vector, s["population"], sample_rng), int(openings_rng.integers(1, 2**31 - 1))


def start(out: pathlib.Path, settings: dict, engine_path) -> dict:
    if (out / STATE).exists():
        raise ValueError(f"{out} holds a run already: velkor-tune resume {out}")
    out.mkdir(parents=True, exist_ok=True)
    digest = keep_engine(out, engine_path)
    first = pbil.State.leaning_to(settings["start"], settings["lean"]) if settings.get("start") else pbil.State()
    state = {"settings": settings, "engine_hash": digest, "generation": 0,
             "probabilities": first.probabilities, "history": [], "best": None}
    write_json(out / STATE, state)
    return state


def write_best(out: pathlib.Path, state: dict):
    text = pbil.consensus(state["probabilities"])
    lines = [text, f"the run's answer: the consensus of the vector after {state['generation']} generations"
                   " (each bit at its likelier value); verify it before use", "", genes.describe(text)]
    best = state["best"]
    if best:
        lines += ["", "best-scoring sample so far (its score is the best of many noisy ones: luck as much as strength):",
                  best["genes"],
                  f"fitness {best['fitness']:.4f} ± {best['error']:.4f}: score of {best['games']} games against the base, "
                  f"generation {best['generation'] + 1}, candidate {best['candidate'] + 1}"]
    write_atomically(out / BEST, "\n".join(lines) + "\n")


def play_generation(cluster, out, state, generation, inputs: tuple, progress) -> list[dict]:
    """Every candidate's mini-match of one generation, reusing recorded ones."""
    s = state["settings"]
    strings, opening_seed = candidates(state, generation)
    work = [match.MatchTask(genes=text, base=s["base"], pairs=s["pairs"], depth=s["depth"], tc=s["tc"],
                            seed=opening_seed, engine_hash=state["engine_hash"], random_plies=s.get("random_plies", 0),
                            book=s.get("book_name")).as_dict(generation=generation, candidate=index)
            for index, text in enumerate(strings)]
    per_generation = s["population"] * 2 * s["pairs"]

    def after(record, done):
        scores = np.array([r["score"] for r in done.values()])
        best = max(done.values(), key=lambda r: r["score"])
        return (f"  generation {generation + 1}/{s['generations']}: {sum(map(records.games, done.values()))}"
                f"/{per_generation} games, best {best['score']:.3f}±{stats.score_error(best['penta']):.3f}"
                f" mean {scores.mean():.3f}±{scores.std() / np.sqrt(len(scores)):.3f}  [{record['worker']}]")

    pgn_folder = out / GAMES
    pgn_folder.mkdir(exist_ok=True)
    done = tasks.play(cluster, out, work, inputs, progress, name=f"pbil-g{generation}",
                      key=lambda t: (t["generation"], t["candidate"]), same=("genes",),
                      pgn=lambda r: pgn_folder / f"generation-{generation + 1:03d}.pgn", after=after)
    return [done[(generation, i)] for i in range(len(strings))]


def close_generation(state, generation, played: list[dict]) -> dict:
    s = state["settings"]
    fitness = [r["score"] for r in played]
    strings = [r["genes"] for r in played]
    vector = pbil.State(state["probabilities"])
    settings = pbil.Settings(s["learning_rate"], s["negative_rate"], s["mutation_probability"], s["mutation_shift"])
    following = pbil.update(vector, strings, fitness, settings, generators(s["seed"], generation)[2])
    top = max(range(len(played)), key=lambda i: (fitness[i], -i))
    errors = [stats.score_error(r["penta"]) for r in played]
    entry = {"generation": generation, "probabilities": state["probabilities"], "entropy": pbil.entropy(vector),
             "fitness": fitness, "errors": errors, "best": top, "mean": float(np.mean(fitness)),
             "mean_error": float(np.std(fitness) / np.sqrt(len(fitness))),
             "games": sum(map(records.games, played)), "failures": sum(map(records.failures, played))}
    best = state["best"]
    if best is None or fitness[top] > best["fitness"]:
        r = played[top]
        best = {"genes": r["genes"], "fitness": fitness[top], "error": errors[top], "generation": generation,
                "candidate": top, "games": records.games(r)}
    return {**state, "generation": generation + 1, "probabilities": following.probabilities,
            "history": state["history"] + [entry], "best": best}


def carry_on(out: pathlib.Path, cluster) -> dict:
    """Plays the generations still to play; returns the final state."""
    state = load_state(out)
    inputs = (kept_engine(out, state), kept_book(state["settings"]))
    write_best(out, state)
    s = state["settings"]
    history = state["history"]
    progress = tasks.Progress(s["generations"] * s["population"] * 2 * s["pairs"], sum(h["games"] for h in history),
                              sum(h["failures"] for h in history))
    for generation in range(state["generation"], s["generations"]):
        played = play_generation(cluster, out, state, generation, inputs, progress)
        state = close_generation(state, generation, played)
        write_json(out / STATE, state)
        write_best(out, state)
        entry, best = state["history"][-1], state["best"]
        progress.say(f"generation {generation + 1} done: best {max(entry['fitness']):.3f}, mean {entry['mean']:.3f},"
                     f" entropy now {pbil.entropy(pbil.State(state['probabilities'])):.3f};"
                     f" best so far {best['fitness']:.3f} (generation {best['generation'] + 1})")
        report.plot(out, state)
    return state


# The campaign page's reading of a PBIL run's folder (see campaigns.py):
# a run's state that SPSA's reading has not taken, and so the state of any
# run that cannot be read.
KIND = "run"


def holds(folder: pathlib.Path) -> bool:
    return (folder / STATE).exists()


def parts(folder: pathlib.Path, played: list[dict]) -> list[dict]:
    state = read_json(folder / STATE)
    if not isinstance(state, dict):
        raise Unreadable(f"{STATE} is not an object")
    s, history = state["settings"], state["history"]
    return [{"kind": "pbil", "final": state["generation"] >= s["generations"], "generation": state["generation"],
             "generations": s["generations"],
             "bits": [h["probabilities"] for h in history] + [state["probabilities"]],
             "fitness": [{"best": h["fitness"][h["best"]], "best_error": h["errors"][h["best"]], "mean": h["mean"],
                          "mean_error": h["mean_error"]} for h in history],
             "entropy": pbil.entropy(pbil.State(state["probabilities"])),
             "genes": pbil.consensus(state["probabilities"]),
             "expected": [round(float(m), 2) for m in report.gene_moments(state["probabilities"])[0]],
             "games": sum(h["games"] for h in history), "limit": limit_text(s)}]
