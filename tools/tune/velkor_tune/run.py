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
import json
import pathlib
import time
import uuid
import warnings

import numpy as np

from . import genes, match, pbil, report, stats
from .runfolder import STATE, append_result, keep_engine, kept_engine, load_state, read_results, write_atomically
from .progress import Progress

BEST = "best.txt"


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
        raise SystemExit(f"{out} holds a run already: velkor-tune resume {out}")
    out.mkdir(parents=True, exist_ok=True)
    digest = keep_engine(out, engine_path)
    first = pbil.State.leaning_to(settings["start"], settings["lean"]) if settings.get("start") else pbil.State()
    state = {"settings": settings, "engine_hash": digest, "generation": 0,
             "probabilities": first.probabilities, "history": [], "best": None}
    write_atomically(out / STATE, json.dumps(state, indent=1))
    return state


def answer(state: dict) -> str:
    """What a run proposes: the consensus of its present vector."""
    return pbil.consensus(state["probabilities"])


def write_best(out: pathlib.Path, state: dict):
    text = answer(state)
    lines = [text, f"the run's answer: the consensus of the vector after {state['generation']} generations"
                   " (each bit at its likelier value); verify it before use", "", genes.describe(text)]
    best = state["best"]
    if best:
        lines += ["", "best-scoring sample so far (its score is the best of many noisy ones: luck as much as strength):",
                  best["genes"],
                  f"fitness {best['fitness']:.4f} ± {best['error']:.4f}: score of {best['games']} games against the base, "
                  f"generation {best['generation'] + 1}, candidate {best['candidate'] + 1}"]
    write_atomically(out / BEST, "\n".join(lines) + "\n")


def play_generation(client, out, state, generation, engine_bytes, progress) -> list[dict]:
    """Every candidate's mini-match of one generation, reusing recorded ones."""
    s = state["settings"]
    strings, opening_seed = candidates(state, generation)
    done = {}
    for record in read_results(out):
        if record["generation"] == generation and record["genes"] == strings[record["candidate"]]:
            done.setdefault(record["candidate"], record)
    progress.start_generation(generation, list(done.values()))
    run_id = uuid.uuid4().hex[:8]
    futures = []
    for index, text in enumerate(strings):
        if index in done:
            continue
        task = {"generation": generation, "candidate": index, "genes": text, "base": s["base"],
                "pairs": s["pairs"], "depth": s["depth"], "tc": s["tc"], "seed": opening_seed,
                "engine_hash": state["engine_hash"]}
        futures.append(client.submit(match.play, task, engine_bytes, key=f"velkor-{run_id}-g{generation}-c{index}",
                                     retries=1))
    from distributed import as_completed
    pgn_folder = out / "pgn"
    pgn_folder.mkdir(exist_ok=True)
    for future in as_completed(futures):
        record = future.result()
        # The games first: a kill between the two writes replays the
        # mini-match on resume rather than losing its games.
        with open(pgn_folder / f"generation-{generation + 1:03d}.pgn", "a") as f:
            f.write(record.pop("pgn") + "\n\n")
        record["finished"] = time.time()
        append_result(out, record)
        done[record["candidate"]] = record
        progress.finished(record)
    return [done[i] for i in range(len(strings))]


def close_generation(state, generation, records) -> dict:
    s = state["settings"]
    fitness = [r["score"] for r in records]
    strings = [r["genes"] for r in records]
    vector = pbil.State(state["probabilities"])
    settings = pbil.Settings(s["learning_rate"], s["negative_rate"], s["mutation_probability"], s["mutation_shift"])
    following = pbil.update(vector, strings, fitness, settings, generators(s["seed"], generation)[2])
    top = max(range(len(records)), key=lambda i: (fitness[i], -i))
    errors = [stats.score_error(r["penta"]) for r in records]
    entry = {"generation": generation, "probabilities": state["probabilities"], "entropy": pbil.entropy(vector),
             "fitness": fitness, "errors": errors, "best": top, "mean": float(np.mean(fitness)),
             "mean_error": float(np.std(fitness) / np.sqrt(len(fitness))),
             "games": sum(r["wins"] + r["draws"] + r["losses"] for r in records),
             "failures": sum(sum(r["failures"].values()) + sum(r["base_failures"].values()) for r in records)}
    best = state["best"]
    if best is None or fitness[top] > best["fitness"]:
        r = records[top]
        best = {"genes": r["genes"], "fitness": fitness[top], "error": errors[top], "generation": generation,
                "candidate": top, "games": r["wins"] + r["draws"] + r["losses"]}
    return {**state, "generation": generation + 1, "probabilities": following.probabilities,
            "history": state["history"] + [entry], "best": best}


def carry_on(out: pathlib.Path, client) -> dict:
    """Plays the generations still to play; returns the final state."""
    warnings.filterwarnings("ignore", message="Large object")
    state = load_state(out)
    engine_bytes = kept_engine(out, state)
    write_best(out, state)
    s = state["settings"]
    progress = Progress(s["generations"], s["population"] * 2 * s["pairs"], state)
    for generation in range(state["generation"], s["generations"]):
        records = play_generation(client, out, state, generation, engine_bytes, progress)
        state = close_generation(state, generation, records)
        write_atomically(out / STATE, json.dumps(state, indent=1))
        write_best(out, state)
        progress.closed(state)
        report.plot(out, state)
    return state
