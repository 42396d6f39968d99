"""A teacher's expected score for each position: any UCI engine that prints
`wdl` (Debian's stockfish with UCI_ShowWDL), searched to a fixed depth from a
cleared table, so that a label depends on its position alone.

The positions file ("FEN;R" lines) is cut into chunks of a few thousand,
each a Dask task; a finished chunk is written to OUT.parts/ at once, so that
a second call labels only the chunks still missing. The labelled file has
lines "FEN;R;T", T the teacher's expected score for White, (W + D/2) / 1000.
"""
import contextlib
import pathlib
import re
import string
import subprocess

from . import reading, tasks
from .runfolder import read_lines, write_atomically

CHUNK = 2000
TEACHER = "/usr/games/stockfish"
LABELLED, PARTS = ".labelled.txt", ".parts"  # of the labelled file (by default), of its chunks' folder
PART = "chunk-{:05d}-of-{:05d}-depth-{}.txt"  # a labelled chunk: its number, the chunks, the teacher's depth
# PART's names as they are read back: each field, however wide, a group.
PART_READ = re.compile(r"(\d+)".join(re.escape(text) for text, *_ in string.Formatter().parse(PART)))


class Teacher:
    """One teacher process, one position at a time; `name` is its `id name`."""

    def __init__(self, path: str):
        self.process = subprocess.Popen([path], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                        stderr=subprocess.DEVNULL)
        self.send("uci")
        self.name = next((l.split(None, 2)[2].strip() for l in self.until("uciok") if l.startswith("id name ")), path)
        for name, value in (("Threads", 1), ("Hash", 16), ("UCI_ShowWDL", "true")):
            self.send(f"setoption name {name} value {value}")

    def send(self, line: str):
        try:
            self.process.stdin.write(line + "\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            raise RuntimeError(f"the teacher ended (exit {self.process.wait()})") from None

    def until(self, word: str) -> list[str]:
        """The lines before the one that starts with `word`, which is kept in `last`."""
        lines = []
        while True:
            line = self.process.stdout.readline()
            if not line:
                raise RuntimeError(f"the teacher ended (exit {self.process.wait()})")
            if line.split()[:1] == [word]:
                self.last = line
                return lines
            lines.append(line)

    def expected(self, fen: str, depth: int) -> float | None:
        """The expected score of the side to move, or None without a wdl."""
        self.send("ucinewgame")
        self.send(f"position fen {fen}")
        self.send(f"go depth {depth}")
        wdl = None
        for line in self.until("bestmove"):
            words = line.split()
            if "wdl" in words:
                k = words.index("wdl")
                wdl = [int(x) for x in words[k + 1:k + 4]]
        self.send("isready")
        self.until("readyok")
        return None if wdl is None else (wdl[0] + wdl[1] / 2) / sum(wdl)

    def close(self):
        try:
            self.send("quit")
            self.process.wait(timeout=5)
        except (OSError, subprocess.TimeoutExpired):
            self.process.kill()


def label_chunk(chunk: tuple[int, list[str]], teacher: str, depth: int) -> tuple[int, list[str]]:
    """Labels one chunk, (its number, its lines): "FEN;R;T" for each position
    the teacher scores."""
    k, lines = chunk
    out, t = [], Teacher(teacher)
    try:
        for line in lines:
            fen = line.split(";")[0]
            e = t.expected(fen, depth)
            if e is not None:
                white = e if fen.split()[1] == "w" else 1 - e
                out.append(f"{line};{white:.4f}")
    finally:
        t.close()
    return k, out


def labelled(positions: pathlib.Path) -> pathlib.Path:
    return positions.with_suffix(LABELLED)


def parts_folder(out: pathlib.Path) -> pathlib.Path:
    return out.with_name(out.name + PARTS)


def part_name(k: int, chunks: int, depth: int) -> str:
    return PART.format(k, chunks, depth)


def chunk_of(name: str) -> tuple[int, int] | None:
    """The number of a chunk that part_name named, and of how many."""
    m = PART_READ.fullmatch(name)
    return (int(m.group(1)), int(m.group(2))) if m else None


def label(cluster, positions: pathlib.Path, out: pathlib.Path, teacher: str, depth: int) -> str:
    lines = [l for l in positions.read_text().splitlines() if l.strip()]
    parts = parts_folder(out)
    chunks = [lines[k:k + CHUNK] for k in range(0, len(lines), CHUNK)]
    name = lambda k: parts / part_name(k, len(chunks), depth)
    todo = [k for k in range(len(chunks)) if not name(k).exists()]
    if len(todo) == len(chunks) and out.exists() and {l.rsplit(";", 1)[0] for l in out.read_text().splitlines()} \
            == set(lines):  # labelled before, on a machine that kept the parts
        return f"{len(lines)} positions labelled already: {out}"
    parts.mkdir(parents=True, exist_ok=True)
    progress = tasks.Progress(len(lines), len(lines) - sum(len(chunks[k]) for k in todo), unit="positions")
    with contextlib.closing(tasks.as_done(cluster, label_chunk, [(k, chunks[k]) for k in todo], teacher, depth,
                                          name="label", ids=todo, journal=parts / tasks.EVENTS)) as results:
        for k, done in results:
            write_atomically(name(k), "".join(l + "\n" for l in done))
            progress.add(len(chunks[k]))
            progress.say(f"chunk {k + 1}/{len(chunks)}: " + progress.line())
    kept = [l for k in range(len(chunks)) for l in name(k).read_text().splitlines()]
    write_atomically(out, "".join(l + "\n" for l in kept))
    return f"{len(kept)} of {len(lines)} positions labelled by {teacher} at depth {depth}: {out}"


# The campaign page's reading of the labels in a folder (see campaigns.py):
# each labelled file, whole or still in chunks.
KIND = "labels"


def outs(folder: pathlib.Path) -> list[str]:
    names = {p.name[:-len(PARTS)] for p in folder.glob("*" + LABELLED + PARTS) if p.is_dir()}
    return sorted(names | {p.name for p in folder.glob("*" + LABELLED) if p.is_file()})


def holds(folder: pathlib.Path) -> bool:
    return bool(outs(folder))


def parts(folder: pathlib.Path, played: list[dict]) -> list[dict]:
    shown = []
    for name in outs(folder):
        out, chunks = folder / name, parts_folder(folder / name)
        found = [(*c, p) for p in (chunks.iterdir() if chunks.is_dir() else []) if (c := chunk_of(p.name))]
        total = max((n for _, n, _ in found), default=0)
        times = sorted(p.stat().st_mtime for _, _, p in found)
        done = sum(reading.lines(p) for _, _, p in found)
        per_minute = done / len(found) * (len(found) - 1) / (times[-1] - times[0]) * 60 \
            if len(times) >= 2 and times[-1] > times[0] else None
        whole = out.exists() and (not found or out.stat().st_mtime >= times[-1]) and len(found) in (0, total)
        remaining = None if not total else (total - len(found)) * (done / len(found) if found else 0)
        shown.append({"kind": KIND, "final": whole, "file": name, "positions": reading.lines(out) if whole else done,
                      "chunks": len(found), "total_chunks": total, "rate": per_minute,
                      "left": 0 if whole else (remaining / per_minute * 60 if per_minute else None)})
        if (chunks / tasks.EVENTS).exists():
            shown[-1]["faults"] = reading.faults(read_lines(chunks / tasks.EVENTS, repair=False))
    return shown
