"""A book of openings for matches: distinct positions a few plies from the
start, each kept only when a teacher engine (Debian's stockfish unless told)
scores it inside a band at a fixed depth.

How the moves are drawn: at each ply the teacher scores every legal move at
a shallow depth (MultiPV over all of them, DRAW_DEPTH), and one is drawn
uniformly among those within MARGIN centipawns of the best. A blunder (a
piece left hanging, a pawn given for nothing) is never drawn, so most lines
end near the band and few are thrown away, while any sound move is as likely
as any other: the book holds the main lines and many sidelines, where a
random legal move would leave an uncontrolled edge, and the driver's few
opening lines would repeat.

OUT/settings.json  what the book is (plies, band, teacher and its depth, seed,
                   how the moves are drawn) and how many positions it wants
OUT/results.jsonl  one line a finished task: its index, the lines it tried and
                   the positions it kept with their scores
OUT/book.epd       the book, written when there are enough: the first
                   `positions` distinct positions in task order, one a line,
                   "placement side castling en-passant hmvc H; fmvn F; ce S; acd D;"
                   (ce the teacher's score for the side to move, acd its depth)

Each task plays its lines from generators seeded with (seed, task), and the
teacher searches from a cleared table with one thread, so a task's positions
depend on its inputs alone. A second call runs only the tasks not recorded
(with more `--positions`, it goes on past the first book), and the book is
the same whatever stopped the calls before it.
"""
import json
import math
import pathlib
import time

import numpy as np

from . import label, match, runfolder, tasks

SETTINGS, EPD = "settings.json", "book.epd"
DEFAULTS = {"positions": 4000, "plies": 8, "band": 50, "teacher": label.TEACHER, "teacher_depth": 14, "seed": 1}
DRAW_DEPTH = 6  # of the teacher's scores of every legal move, at each ply
MARGIN = 60  # centipawns below the best move within which a move may be drawn
LINES_PER_TASK = 48  # about 15 s of one core with the defaults
MATE = 100000


class Teacher(label.Teacher):
    """The teacher's scores of lines from the start, every search from a
    cleared table, and the FEN it prints."""

    def search(self, moves: list[str], depth: int, lines: int) -> tuple[dict, str | None]:
        """{move: score for the side to move} of the `lines` best first moves at
        `depth`, and the best move (None when there is no legal move)."""
        self.send(f"setoption name MultiPV value {lines}")
        self.send("ucinewgame")
        self.send("position startpos" + (" moves " + " ".join(moves) if moves else ""))
        self.send(f"go depth {depth}")
        scores = {}
        for line in self.until("bestmove"):
            w = line.split()
            if w[:1] != ["info"] or "pv" not in w or "score" not in w or int(w[w.index("depth") + 1]) != depth \
                    or "lowerbound" in w or "upperbound" in w:
                continue
            k = w.index("score")
            value = int(w[k + 2])
            if w[k + 1] == "mate":
                value = MATE - value if value > 0 else -MATE - value
            scores[w[w.index("pv") + 1]] = value
        best = self.last.split()[1]
        return scores, None if best == "(none)" else best

    def fen(self, moves: list[str]) -> str:
        self.send("position startpos" + (" moves " + " ".join(moves) if moves else ""))
        self.send("d")
        self.send("isready")
        return next(line.split(": ", 1)[1].strip() for line in self.until("readyok") if line.startswith("Fen: "))


def band(settings: dict) -> tuple[int, int]:
    """The scores, as far from 0 either way, that a kept position may have."""
    edge = settings.get("edge")
    return tuple(edge) if edge else (0, settings["band"])


def describe_band(settings: dict) -> str:
    low, high = band(settings)
    return f"one side ahead by {low} to {high} cp" if low else f"within +-{high} cp"


def make_lines(task: dict) -> dict:
    """One task: LINES_PER_TASK lines of `plies` moves drawn from (seed,
    index), each position at their end scored by the teacher at its depth
    and kept inside the band, each once."""
    started = time.monotonic()
    rng = np.random.default_rng([task["seed"], task["index"]])
    low, high = band(task)
    teacher = Teacher(task["teacher"])
    kept, seen, scored = [], set(), 0
    try:
        for _ in range(LINES_PER_TASK):
            moves = []
            for _ in range(task["plies"]):
                scores, best = teacher.search(moves, DRAW_DEPTH, 500)
                if best is None:  # the game has ended
                    break
                top = max(scores.values())
                good = sorted(m for m, s in scores.items() if s >= top - MARGIN)
                moves.append(good[int(rng.integers(len(good)))])
            if len(moves) < task["plies"]:
                continue
            fen = teacher.fen(moves).split()
            key = " ".join(fen[:4])
            if key in seen:
                continue
            seen.add(key)
            scores, best = teacher.search(moves, task["teacher_depth"], 1)
            scored += 1
            if best is None or best not in scores:
                continue
            if low <= abs(scores[best]) <= high:
                kept.append([key, int(fen[4]), int(fen[5]), scores[best], " ".join(moves)])
    finally:
        teacher.close()
    return {**task, "tried": LINES_PER_TASK, "scored": scored, "kept": kept, "teacher_id": teacher.name,
            "worker": match.worker_name(), "seconds": round(time.monotonic() - started, 2)}


def distinct(records: list[dict]) -> list[list]:
    """The kept positions of the tasks in order, each position once."""
    seen, out = set(), []
    for r in records:
        for p in r["kept"]:
            if p[0] not in seen:
                seen.add(p[0])
                out.append(p)
    return out


def prefix(done: dict) -> list[dict]:
    """The records of tasks 0, 1, 2, ... up to the first one missing."""
    out = []
    while len(out) in done:
        out.append(done[len(out)])
    return out


def epd_line(p: list, depth: int) -> str:
    key, hmvc, fmvn, score, _ = p
    return f"{key} hmvc {hmvc}; fmvn {fmvn}; ce {score}; acd {depth};"


def start(out: pathlib.Path, settings: dict) -> dict:
    """The book's settings, written at the first call; a second call must
    want the same book (it may want more or fewer positions of it)."""
    out.mkdir(parents=True, exist_ok=True)
    settings = {**settings, "draw_depth": DRAW_DEPTH, "margin": MARGIN, "lines_per_task": LINES_PER_TASK}
    path = out / SETTINGS
    if path.exists():
        before = json.loads(path.read_text())
        differ = {k for k in before.keys() | settings.keys() if k != "positions" and before.get(k) != settings.get(k)}
        if differ:
            raise ValueError(f"{out} holds a book of other settings ({', '.join(sorted(differ))}): {before}")
    runfolder.write_json(path, settings)
    return settings


def make(cluster, out: pathlib.Path, settings: dict) -> str:
    """Runs tasks until the first ones hold `positions` distinct positions,
    then writes OUT/book.epd; returns a line of counts."""
    s = start(out, settings)
    want = s["positions"]
    workers = max(1, cluster.workers())
    task = lambda k: {"index": k, **{f: s.get(f) for f in ("seed", "plies", "band", "edge", "teacher", "teacher_depth")}}
    done, started = {}, time.monotonic()
    while len(distinct(prefix(done))) < want:
        progress = tasks.Progress(want, unit="positions")
        # As many tasks as the rate so far says the book still needs, and a few more.
        recorded = {r["index"]: r for r in runfolder.read_results(out)}
        have = len(distinct(prefix(recorded)))
        kept, tried = sum(len(r["kept"]) for r in recorded.values()), sum(r["tried"] for r in recorded.values())
        rate = kept / tried if kept else 0.3
        todo = [k for k in range(len(prefix(recorded)), max(recorded, default=-1) + 1) if k not in recorded]
        more = math.ceil(1.1 * (want - have) / (rate * LINES_PER_TASK)) + workers
        last = max(recorded, default=-1)
        work = [task(k) for k in todo + list(range(last + 1, last + 1 + max(0, more - len(todo))))]
        done = tasks.play(cluster, out, [task(k) for k in recorded] + work, (), progress, name="book",
                          key=lambda t: t["index"], same=("plies", "band", "edge", "teacher_depth", "seed"),
                          function=make_lines, units=lambda r: len(r["kept"]), failed=lambda r: 0,
                          enough=lambda d: len(distinct(prefix(d))) >= want)
    records = prefix(done)
    book = distinct(records)[:want]
    used = records[:next(k for k in range(len(records)) if len(distinct(records[:k + 1])) >= want) + 1]
    runfolder.write_atomically(out / EPD, "".join(epd_line(p, s["teacher_depth"]) + "\n" for p in book))
    teachers = sorted({r["teacher_id"] for r in used})
    lines = sum(r["tried"] for r in used)
    return (f"{len(book)} positions of {s['plies']} plies {describe_band(s)} by {', '.join(teachers)} at depth "
            f"{s['teacher_depth']}, from {lines} lines in {len(used)} tasks ({time.monotonic() - started:.0f} s here):"
            f" {out / EPD}")


# The campaign page's reading of a book's folder (see campaigns.py): its
# settings.json tells it from a folder of self-play positions, and it shows nothing.
KIND = "book"


def holds(folder: pathlib.Path) -> bool:
    try:
        settings = json.loads((folder / SETTINGS).read_text())
    except (OSError, ValueError):
        return False
    return isinstance(settings, dict) and "teacher_depth" in settings


def parts(folder: pathlib.Path, played: list[dict]) -> list[dict]:
    return []
