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

from . import engine, match, reading, records, runfolder, tasks

POSITIONS_TOOL = pathlib.Path(__file__).resolve().parents[2] / "match" / "positions.mjs"
SETTINGS = "settings.json"
POSITIONS = "positions.txt"
GAMES = runfolder.PGN


def extract(pgn_files, out_file: pathlib.Path) -> str:
    """Quiet positions of PGN files into out_file; returns the tool's count line."""
    run = subprocess.run(["node", str(POSITIONS_TOOL), *map(str, pgn_files)], capture_output=True, text=True,
                         check=True)
    runfolder.write_atomically(out_file, run.stdout)
    return run.stderr.strip().splitlines()[-1]


def game_tasks(settings: dict, digest: str, book_name=None) -> list[dict]:
    pairs = settings["games"] // 2
    return [match.MatchTask(genes=settings["genes"], base=settings["genes"], pairs=min(match.PAIRS_PER_TASK, pairs - first),
                            depth=settings["depth"], tc=None, seed=settings["seed"], engine_hash=digest,
                            pair_offset=first, random_plies=settings["random_plies"], book=book_name).as_dict(index=k)
            for k, first in enumerate(range(0, pairs, match.PAIRS_PER_TASK))]


def play(cluster, out: pathlib.Path, settings: dict, engine_path) -> str:
    """Plays the games still to play, then writes OUT/positions.txt; returns
    a line of counts."""
    out.mkdir(parents=True, exist_ok=True)
    saved = out / SETTINGS
    if saved.exists():
        before = json.loads(saved.read_text())
        if before != settings:
            raise ValueError(f"{out} holds games of other settings: {before}")
    else:
        runfolder.write_json(saved, settings)
    data, digest = engine.load(engine_path)
    book_bytes, book_name, _ = match.book(runfolder.book_file(settings)) if settings.get("book") else (None,) * 3
    pgn_folder = out / GAMES
    pgn_folder.mkdir(exist_ok=True)
    pgn = lambda t: pgn_folder / f"task-{t['index']:05d}.pgn"
    work = game_tasks(settings, digest, book_name)
    recorded = {r["index"] for r in runfolder.read_results(out)}
    for t in work:
        if t["index"] not in recorded:  # games of a task stopped before its line was written
            pgn(t).unlink(missing_ok=True)
    tasks.play(cluster, out, work, (data, book_bytes), tasks.Progress(settings["games"]), name="positions",
               key=lambda t: t["index"], pgn=pgn)
    if not (recorded >= {t["index"] for t in work} and (out / POSITIONS).exists()):
        count = extract(sorted(pgn_folder.glob("*.pgn")), out / POSITIONS)
    else:  # every game was recorded before, and its positions read: the games may be elsewhere
        count = f"{len((out / POSITIONS).read_text().splitlines())} positions, as before"
    openings = f"the book {settings['book']}" if settings.get("book") else "the driver's opening lines"
    return f"{count} (games at depth {settings['depth']} from {openings}, {settings['random_plies']} random plies after each)"


# The campaign page's reading of a folder of self-play positions (see campaigns.py).
KIND = "positions"


def holds(folder: pathlib.Path) -> bool:
    return (folder / SETTINGS).exists()


def parts(folder: pathlib.Path, played: list[dict]) -> list[dict]:
    s = reading.read_json(folder / SETTINGS)
    total_tasks = len(game_tasks(s, ""))
    done = {r["index"] for r in played if "index" in r}
    games = sum(map(records.games, played))
    per_minute = reading.rate(played)
    final = len(done) >= total_tasks and (folder / POSITIONS).exists()
    return [{"kind": KIND, "final": final, "games": games, "total": s["games"], "tasks": len(done),
             "total_tasks": total_tasks, "limit": reading.limit_text(s), "rate": per_minute,
             "left": 0 if final else reading.left(s["games"], games, per_minute),
             "positions": reading.lines(folder / POSITIONS) if (folder / POSITIONS).exists() else None,
             "failures": sum(map(records.failures, played))}]
