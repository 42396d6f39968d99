"""Every game of a PGN file reviewed: each game a Dask task, reviewed on its
worker by the page's own review (client/review.js, through
tools/review/review.mjs) with the native engine, so that the marks are the
page's. A finished game is written to OUT/games/ at once, so that the same
command called again reviews only the games still missing.

OUT/review.json    what is reviewed: the file, its games, the depth, the weights
OUT/games/N.json   one reviewed game (or the reason it could not be)
OUT/annotated.pgn  the games in the file's order, annotated, their headers kept
OUT/summary.json   a list in game order: white and black, each with accuracy,
                   inaccuracies, mistakes and blunders
"""
import contextlib
import hashlib
import json
import pathlib
import re
import subprocess

from . import engine, match, tasks
from .reading import WINDOW, left, read_json
from .runfolder import write_atomically, write_json

SETTINGS, SUMMARY, ANNOTATED, GAMES = "review.json", "summary.json", "annotated.pgn", "games"
SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "review" / "review.mjs"
HEADER = re.compile(r'^\s*\[(\w+)\s+"((?:[^"\\]|\\.)*)"\]\s*$')
MARKS = ("inaccuracies", "mistakes", "blunders")


def defaults() -> dict:
    """The review's own defaults (its depth, its table), which live with it."""
    run = subprocess.run(["node", str(SCRIPT), "--defaults"], capture_output=True, text=True)
    if run.returncode:
        raise ValueError(f"the review script cannot run: {run.stderr.strip() or run.returncode}")
    return json.loads(run.stdout)


def split_games(text: str) -> list[str]:
    """The games of a PGN file, as any site or GUI writes it: a game starts
    at a tag line after some movetext; braces hold comments, which may span
    lines and hold anything."""
    games, current, moves, depth = [], [], False, 0
    for line in text.replace("\r\n", "\n").replace("\r", "\n").split("\n"):
        if depth == 0 and HEADER.match(line) and moves:
            games.append("\n".join(current))
            current, moves = [], False
        current.append(line)
        if depth == 0 and (HEADER.match(line) or line.startswith("%")):
            continue
        for char in line:
            if char == "{":
                depth += 1
            elif char == "}" and depth:
                depth -= 1
        if line.strip():
            moves = True
    if any(l.strip() for l in current):
        games.append("\n".join(current))
    return [g.strip() + "\n" for g in games if g.strip()]


def players(text: str) -> dict:
    tags = {m.group(1): m.group(2) for m in map(HEADER.match, text.splitlines()) if m}
    return {"white": tags.get("White", "?"), "black": tags.get("Black", "?"), "result": tags.get("Result", "*")}


def review_game(task: tuple[int, str], engine_bytes: bytes, settings: dict) -> dict:
    """One game reviewed on this worker: {game, pgn, summary, scores, marks}
    or {game, error}."""
    number, text = task
    path = engine.install(engine_bytes, settings["engine_hash"])
    args = ["node", str(SCRIPT), "--engine", str(path), "--depth", str(settings["depth"])]
    if settings.get("pbil"):
        args += ["--pbil", settings["pbil"]]
    run = subprocess.run(args, input=text, capture_output=True, text=True)
    try:
        out = json.loads(run.stdout)
    except ValueError:
        out = {"error": f"the review script failed (exit {run.returncode}): {run.stderr.strip()[-300:]}"}
    return {"game": number, "worker": match.worker_name(), **players(text), **out}


def game_file(out: pathlib.Path, number: int) -> pathlib.Path:
    return out / GAMES / f"{number:06d}.json"


def summary_entry(record: dict) -> dict:
    side = lambda colour: {"name": record.get(colour, "?"),
                           **(record["summary"][colour] if "summary" in record else
                              {"accuracy": None, **{m: None for m in MARKS}})}
    entry = {"game": record["game"], "result": record.get("result"), "white": side("white"), "black": side("black")}
    if "error" in record:
        entry["error"] = record["error"]
    else:
        entry["plies"] = len(record["marks"])
    return entry


def mean(values):
    values = [v for v in values if v is not None]
    return round(sum(values) / len(values), 1) if values else None


def review(cluster, games_file: pathlib.Path, out: pathlib.Path, engine_path, depth: int, pbil: str | None) -> str:
    text = pathlib.Path(games_file).read_text(encoding="utf-8", errors="replace")
    games = split_games(text)
    if not games:
        raise ValueError(f"{games_file} holds no game")
    data, digest = engine.load(engine_path)
    settings = {"games_file": str(games_file), "games_sha256": hashlib.sha256(text.encode()).hexdigest(),
                "games": len(games), "depth": depth, "pbil": pbil, "engine_hash": digest}
    if (out / SETTINGS).exists():
        before = json.loads((out / SETTINGS).read_text())
        differs = [k for k in ("games_sha256", "depth", "pbil", "engine_hash") if before.get(k) != settings[k]]
        if differs:
            raise ValueError(f"{out} holds a review of other games or settings ({', '.join(differs)}): "
                             "give another --out")
    (out / GAMES).mkdir(parents=True, exist_ok=True)
    write_json(out / SETTINGS, settings)
    todo = [(n, g) for n, g in enumerate(games, 1) if not game_file(out, n).exists()]
    progress = tasks.Progress(len(games), len(games) - len(todo), unit="games")
    if len(todo) < len(games):
        progress.say(f"{len(games) - len(todo)} of {len(games)} games reviewed in {out} already")
    # Each game once, through whatever the cluster loses on the way; the
    # events of the cluster go to the folder's journal, for the campaign page.
    with contextlib.closing(tasks.as_done(cluster, review_game, todo, data, settings, name="review",
                                          ids=[n for n, _ in todo], journal=out / tasks.EVENTS)) as results:
        for record in results:
            write_atomically(game_file(out, record["game"]), json.dumps(record) + "\n")
            failed = "error" in record
            progress.add(1, 1 if failed else 0)
            progress.say(f"game {record['game']}: " + (f"not reviewed: {record['error']}" if failed else
                         f"{record['white']} {record['summary']['white']['accuracy']} %, "
                         f"{record['black']} {record['summary']['black']['accuracy']} %") + "; " + progress.line())
    records = [json.loads(game_file(out, n).read_text()) for n in range(1, len(games) + 1)]
    write_atomically(out / ANNOTATED, "\n".join(r["pgn"] for r in records if "pgn" in r))
    entries = [summary_entry(r) for r in records]
    write_json(out / SUMMARY, entries)
    failed = [r for r in records if "error" in r]
    lines = [f"game {r['game']} not reviewed: {r['error']}" for r in failed]
    white = mean(e["white"]["accuracy"] for e in entries)
    black = mean(e["black"]["accuracy"] for e in entries)
    lines.append(f"{len(games) - len(failed)} of {len(games)} games reviewed at depth {depth}"
                 f" (mean accuracy White {white} %, Black {black} %): {out / ANNOTATED}, {out / SUMMARY}")
    return "\n".join(lines)


# The campaign page's reading of a review's folder (see campaigns.py).
KIND = "review"


def holds(folder: pathlib.Path) -> bool:
    return (folder / SETTINGS).exists()


def parts(folder: pathlib.Path, played: list[dict]) -> list[dict]:
    """Games done of the whole, games a minute over the files of the
    reviewed games, the time left, the mean accuracies."""
    s = read_json(folder / SETTINGS)
    found = sorted((folder / GAMES).glob("*.json"))
    done = [read_json(p) for p in found]
    times = sorted(p.stat().st_mtime for p in found)[-WINDOW:]
    per_minute = (len(times) - 1) / (times[-1] - times[0]) * 60 if len(times) >= 2 and times[-1] > times[0] else None
    final = len(done) >= s["games"] and (folder / SUMMARY).exists()
    reviewed = [r for r in done if "summary" in r]
    side = lambda colour: mean(r["summary"][colour]["accuracy"] for r in reviewed)
    marks = {m: sum(r["summary"][c][m] for r in reviewed for c in ("white", "black")) for m in MARKS}
    return [{"kind": KIND, "final": final, "games": len(done), "total": s["games"], "depth": s["depth"],
             "rate": per_minute, "left": 0 if final else left(s["games"], len(done), per_minute),
             "white": side("white"), "black": side("black"), "marks": marks,
             "failures": len(done) - len(reviewed), "file": pathlib.Path(s["games_file"]).name}]
