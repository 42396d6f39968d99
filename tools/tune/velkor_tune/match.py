"""One mini-match, the unit of work a worker is given: a gene string against
a base string over K pairs of openings, played by the project's match driver.

A task is a pure function of its inputs: the same task gives the same games
at a fixed depth, wherever it runs. Each worker process keeps one driver
(`match.mjs --serve`) and with it the engines, from one task to the next:
a new game begins with `ucinewgame`, which clears the engine's table, so a
kept engine plays the same games as a new one.
"""
import atexit
import concurrent.futures
import dataclasses
import functools
import hashlib
import json
import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time

from . import cluster, engine

DRIVER = pathlib.Path(__file__).resolve().parents[2] / "match" / "match.mjs"
# The game pairs of one task of a match or of self-play: a few minutes at
# the depths the tuner plays, so that a stop loses little.
PAIRS_PER_TASK = 4
# A match's last pairs go a pair a task, so that its workers end together
# rather than all but one waiting for the last long task.
TAIL_PAIRS = 2 * PAIRS_PER_TASK
# Both Velkors play with a small table (cleared before every game) and lost
# positions are adjudicated once both engines agree for four moves.
HASH_MB = 16
# The pvs of every 4th search are replayed by the referee in tuning games: a
# quarter of the cost, and an engine that prints illegal pvs is still caught
# within a game. `make soak` checks every one.
TUNING_PV_SAMPLE = 4
RESIGN_MOVES, RESIGN_CP = 4, 1000


@dataclasses.dataclass(frozen=True)
class MatchTask:
    """A mini-match as every command builds it: `genes` against `base` over
    `pairs` pairs of openings from `pair_offset` of the seed's order, at a
    depth or a clock, from a book (its travel name) or the driver's lines,
    with `random_plies` after each opening and the pvs of every `pv_sample`th
    search checked. The fields every task has, given once."""
    genes: str
    base: str
    pairs: int
    depth: int | None
    tc: str | None
    seed: int
    engine_hash: str
    pair_offset: int = 0
    random_plies: int = 0
    book: str | None = None
    pv_sample: int = TUNING_PV_SAMPLE

    def as_dict(self, **tags) -> dict:
        """The task as it travels to a worker and is recorded, with the
        command's own tags (a generation and candidate, a batch, an index)."""
        return {**tags, **dataclasses.asdict(self)}


def task_pairs(pairs: int) -> list[tuple[int, int]]:
    """The first pair and the number of pairs of each task of a match of
    `pairs` pairs."""
    whole = max(0, pairs - TAIL_PAIRS)
    return [(first, min(PAIRS_PER_TASK, whole - first)) for first in range(0, whole, PAIRS_PER_TASK)] + \
        [(first, 1) for first in range(whole, pairs)]


def book(path) -> tuple[bytes, str, bool]:
    """A book's bytes, the name it travels under to the workers (its SHA-256
    and its extension, which tells the driver how to read it) and whether it
    holds positions rather than lines of moves, once the driver has read and
    checked every opening in it (once a command for the same file)."""
    key = book_key(path)
    return CHECKING[key].result() if key in CHECKING else checked_book(*key)


def check_book_soon(path):
    """Starts book(path)'s reading and checking, which book() then takes:
    the driver checks the book while the command starts its cluster."""
    key = book_key(path)
    if key not in CHECKING:
        CHECKING[key] = concurrent.futures.ThreadPoolExecutor(1).submit(checked_book, *key)


CHECKING = {}  # the checks started by check_book_soon, by book_key


def book_key(path) -> tuple[str, int, int]:
    stat = os.stat(path)
    return str(path), stat.st_mtime_ns, stat.st_size


@functools.lru_cache(maxsize=None)
def checked_book(path: str, _mtime_ns: int, _size: int) -> tuple[bytes, str, bool]:
    run = subprocess.run(["node", str(DRIVER), "--openings", str(path), "--check-openings"], capture_output=True,
                         text=True)
    if run.returncode:
        raise ValueError(run.stderr.strip().removeprefix("match: ") or f"the driver cannot read the book {path}")
    data = pathlib.Path(path).read_bytes()
    return data, hashlib.sha256(data).hexdigest() + pathlib.Path(path).suffix, " positions in " in run.stdout


def book_path(data: bytes, name: str) -> pathlib.Path:
    """The book with these bytes on this machine, written once into the cache."""
    if hashlib.sha256(data).hexdigest() != name.split(".")[0]:
        raise ValueError(f"book bytes do not match their name {name}")
    path = engine.CACHE / "books" / name
    if not path.exists():
        path.parent.mkdir(parents=True, exist_ok=True)
        temp = path.with_name(f"{name}.{os.getpid()}")
        temp.write_bytes(data)
        os.replace(temp, path)
    return path


def driver_args(task: dict, engine_path, pgn, result_json, book_file=None) -> list[str]:
    """The driver's options for the task's games, from the driver's opening
    lines or from `book_file` (a MatchTask's dict)."""
    limit = ["--depth", str(task["depth"])] if task.get("depth") else ["--tc", task["tc"]]
    openings = ["--openings", str(book_file)] if book_file else []
    return ["--engine", str(engine_path), "--pbil", task["genes"], *openings,
            "--opponents", f"velkor:{task['base']}", "--games", str(2 * task["pairs"]), *limit,
            "--seed", str(task["seed"]), "--pair-offset", str(task["pair_offset"]),
            "--random-plies", str(task["random_plies"]), "--pv-sample", str(task["pv_sample"]),
            "--no-compliance", "--concurrency", "1", "--option", f"Hash={HASH_MB}",
            "--resign-moves", str(RESIGN_MOVES), "--resign-score", str(RESIGN_CP),
            "--pgn", str(pgn), "--json", str(result_json)]


class Driver:
    """The worker process's match driver in serve mode, started on first use
    and again after it died; it ends when its input does, with this process."""

    def __init__(self):
        self.process, self.log = None, None

    def play(self, args: list[str]):
        if self.process is None or self.process.poll() is not None:
            cluster.own_core()
            self.log = tempfile.NamedTemporaryFile(prefix="velkor-driver-", suffix=".log", delete=False)
            self.process = subprocess.Popen(["node", str(DRIVER), "--serve"], stdin=subprocess.PIPE,
                                            stdout=subprocess.PIPE, stderr=self.log, text=True)
        try:
            self.process.stdin.write(json.dumps(args) + "\n")
            self.process.stdin.flush()
            line = self.process.stdout.readline()
        except BrokenPipeError:
            line = ""
        if not line:
            self.process.wait()
            raise RuntimeError(f"match driver exited with {self.process.returncode}: {self.errors()}")
        answer = json.loads(line)
        if "error" in answer:
            raise RuntimeError(f"match driver refused the task: {answer['error']}")

    def errors(self) -> str:
        return pathlib.Path(self.log.name).read_text(errors="replace").strip()[-2000:] if self.log else ""

    def close(self):
        if self.process and self.process.poll() is None:
            self.process.stdin.close()
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.process.kill()
        if self.log:
            os.unlink(self.log.name)
        self.process, self.log = None, None


DRIVER_PROCESS = Driver()
atexit.register(DRIVER_PROCESS.close)


def parse(report: dict) -> dict:
    """What the tuner keeps of the driver's JSON: the tested side's wins, draws,
    losses, pair counts and failures by kind (the driver's kinds, and its own
    errors), the base side's failures, and each game in `per_game`."""
    failures = dict(report["failures"]["velkor"])
    failures["driver"] = report["failures"]["driver"]
    games = report["wins"] + report["draws"] + report["losses"]
    return {
        "wins": report["wins"], "draws": report["draws"], "losses": report["losses"],
        "cpu": report.get("cpu", {}), "plies": sum(g.get("plies", 0) for g in report["results"]),
        "score": (report["wins"] + report["draws"] / 2) / games if games else 0.0,
        "penta": report["penta"], "failures": failures, "base_failures": dict(report["failures"]["opponents"]),
        "per_game": [{"pair": g["pair"], "opening": g["opening"], "white": g.get("white"),
                      "result": g["result"], "ending": g.get("ending", g["reason"]), "points": g.get("points", 0),
                      "plies": g.get("plies", 0)} for g in report["results"]],
    }


def worker_name() -> str:
    try:
        from distributed import get_worker
        return get_worker().address
    except (ImportError, ValueError):
        return socket.gethostname()


def play(task: dict, engine_bytes: bytes, book_bytes: bytes | None = None) -> dict:
    """Plays the task's games, from the book named by its `book` when it has
    one; returns the task with its results, the PGN text and the worker that
    played it."""
    started = time.monotonic()
    path = engine.install(engine_bytes, task["engine_hash"])
    book_file = book_path(book_bytes, task["book"]) if task.get("book") else None
    folder = pathlib.Path(tempfile.mkdtemp(prefix="velkor-match-"))
    try:
        pgn, result_json = folder / "games.pgn", folder / "result.json"
        DRIVER_PROCESS.play(driver_args(task, path, pgn, result_json, book_file))
        result = parse(json.loads(result_json.read_text()))
        result["pgn"] = pgn.read_text() if pgn.exists() else ""
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    return {**task, **result, "worker": worker_name(), "seconds": round(time.monotonic() - started, 2)}
