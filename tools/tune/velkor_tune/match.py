"""One mini-match, the unit of work a worker is given: a gene string against
a base string over K pairs of openings, played by the project's match driver.

A task is a pure function of its inputs: the same task gives the same games
at a fixed depth, wherever it runs.
"""
import json
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time

from . import engine

DRIVER = pathlib.Path(__file__).resolve().parents[2] / "match" / "match.mjs"
KINDS = ("crash", "stall", "illegal", "illegalPv", "timeForfeit")
# Both Velkors play with a small table (cleared before every game) and lost
# positions are adjudicated once both engines agree for four moves.
HASH_MB = 16
RESIGN_MOVES, RESIGN_CP = 4, 1000


def driver_command(task: dict, engine_path, pgn, result_json) -> list[str]:
    limit = ["--depth", str(task["depth"])] if task.get("depth") else ["--tc", task["tc"]]
    return ["node", str(DRIVER), "--engine", str(engine_path), "--pbil", task["genes"],
            "--opponents", f"velkor:{task['base']}", "--games", str(2 * task["pairs"]), *limit,
            "--seed", str(task["seed"]), "--pair-offset", str(task.get("pair_offset", 0)),
            "--no-compliance", "--concurrency", "1", "--option", f"Hash={HASH_MB}",
            "--resign-moves", str(RESIGN_MOVES), "--resign-score", str(RESIGN_CP),
            "--pgn", str(pgn), "--json", str(result_json)]


def parse(report: dict) -> dict:
    """What the tuner keeps of the driver's JSON: the tested side's wins, draws,
    losses, pair counts and failures, and the base side's failures."""
    failures = {kind: report["failures"]["velkor"][kind] for kind in KINDS}
    failures["driver"] = report["failures"]["driver"]
    games = report["wins"] + report["draws"] + report["losses"]
    return {
        "wins": report["wins"], "draws": report["draws"], "losses": report["losses"],
        "score": (report["wins"] + report["draws"] / 2) / games if games else 0.0,
        "penta": report["penta"], "failures": failures,
        "base_failures": {kind: report["failures"]["opponents"][kind] for kind in KINDS},
        "games": [{"pair": g["pair"], "opening": g["opening"], "white": g.get("white"),
                   "result": g["result"], "ending": g.get("ending", g["reason"]), "points": g.get("points", 0),
                   "plies": g.get("plies", 0)} for g in report["results"]],
    }


def worker_name() -> str:
    try:
        from distributed import get_worker
        return get_worker().address
    except (ImportError, ValueError):
        return socket.gethostname()


def play(task: dict, engine_bytes: bytes) -> dict:
    """Plays the task's games; returns the task with its results, the PGN text
    and the worker that played it."""
    started = time.monotonic()
    path = engine.install(engine_bytes, task["engine_hash"])
    folder = pathlib.Path(tempfile.mkdtemp(prefix="velkor-match-"))
    try:
        pgn, result_json = folder / "games.pgn", folder / "result.json"
        run = subprocess.run(driver_command(task, path, pgn, result_json), capture_output=True, text=True,
                             timeout=3600)
        # Exit 1 is a match with a failure of the tested side, which the JSON counts.
        if run.returncode not in (0, 1) or not result_json.exists():
            raise RuntimeError(f"match driver exited with {run.returncode}: {run.stderr.strip()[-2000:]}")
        result = parse(json.loads(result_json.read_text()))
        result["pgn"] = pgn.read_text() if pgn.exists() else ""
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    return {**task, **result, "worker": worker_name(), "seconds": round(time.monotonic() - started, 2)}
