"""Positions to fit the weights to: quiet positions of self-play games, each
with its game's result.

OUT/positions.txt  one line "FEN;R" a position, R the game's score for White
OUT/results.jsonl  one line a finished task of games (its counts, no PGN)
OUT/settings.json  what the games are, so that a second call goes on with them

The games are Dask tasks of a few pairs each, seeded: a task's games depend
on the seed and its pairs alone, so an interrupted call, called again, plays
only the tasks it has not recorded. Each opening line of the driver is
followed by random legal plies chosen from the seed and the pair, so that
games at a fixed depth do not repeat.
"""
import json
import pathlib
import subprocess
import tempfile
import time
import uuid
import warnings

from . import engine, match, runfolder

POSITIONS_TOOL = pathlib.Path(__file__).resolve().parents[2] / "match" / "positions.mjs"
PAIRS_PER_TASK = 4
SETTINGS = ("games", "depth", "random_plies", "seed", "genes")


def extract(pgn_files, out_file: pathlib.Path) -> str:
    """Quiet positions of PGN files into out_file; returns the tool's count line."""
    with tempfile.NamedTemporaryFile("w", dir=out_file.parent, delete=False) as f:
        run = subprocess.run(["node", str(POSITIONS_TOOL), *map(str, pgn_files)], stdout=f,
                             stderr=subprocess.PIPE, text=True, check=True)
    pathlib.Path(f.name).replace(out_file)
    return run.stderr.strip().splitlines()[-1]


def tasks(settings: dict, digest: str) -> list[dict]:
    pairs = settings["games"] // 2
    return [{"index": k, "genes": settings["genes"], "base": settings["genes"], "depth": settings["depth"],
             "tc": None, "seed": settings["seed"], "pair_offset": first, "random_plies": settings["random_plies"],
             "pairs": min(PAIRS_PER_TASK, pairs - first), "pv_sample": match.TUNING_PV_SAMPLE, "engine_hash": digest}
            for k, first in enumerate(range(0, pairs, PAIRS_PER_TASK))]


def play(client, out: pathlib.Path, settings: dict, engine_path) -> str:
    """Plays the games still to play, then writes OUT/positions.txt; returns
    a line of counts."""
    warnings.filterwarnings("ignore", message="Large object")
    from distributed import as_completed
    out.mkdir(parents=True, exist_ok=True)
    saved = out / "settings.json"
    if saved.exists():
        before = json.loads(saved.read_text())
        if before != settings:
            raise ValueError(f"{out} holds games of other settings: {before}")
    else:
        saved.write_text(json.dumps(settings, indent=1) + "\n")
    data, digest = engine.load(engine_path)
    done = {r["index"] for r in runfolder.read_results(out)}
    pgn_folder = out / "pgn"
    pgn_folder.mkdir(exist_ok=True)
    todo = [t for t in tasks(settings, digest) if t["index"] not in done]
    run_id = uuid.uuid4().hex[:8]
    futures = [client.submit(match.play, t, data, key=f"velkor-positions-{run_id}-{t['index']}", retries=1)
               for t in todo]
    started, games, failures = time.monotonic(), 0, 0
    for future in as_completed(futures):
        record = future.result()
        # The games first: a kill between the two writes plays the task again.
        (pgn_folder / f"task-{record['index']:05d}.pgn").write_text(record.pop("pgn") + "\n")
        record.pop("games")
        runfolder.append_result(out, record)
        games += record["wins"] + record["draws"] + record["losses"]
        failures += sum(record["failures"].values()) + sum(record["base_failures"].values())
        minutes = (time.monotonic() - started) / 60
        print(f"{len(done) + games // (2 * PAIRS_PER_TASK)}/{len(done) + len(todo)} tasks, "
              f"{games / minutes:.1f} games/min, failures {failures}", flush=True)
    count = extract(sorted(pgn_folder.glob("*.pgn")), out / "positions.txt")
    return f"{count} (games at depth {settings['depth']}, {settings['random_plies']} random plies after each line)"
