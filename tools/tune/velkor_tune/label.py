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
import subprocess

from . import tasks
from .runfolder import write_atomically

CHUNK = 2000
TEACHER = "/usr/games/stockfish"


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


def parts_folder(out: pathlib.Path) -> pathlib.Path:
    return out.with_name(out.name + ".parts")


def part_name(k: int, chunks: int, depth: int) -> str:
    return f"chunk-{k:05d}-of-{chunks:05d}-depth-{depth}.txt"


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
