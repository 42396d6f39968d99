"""The files of a tuner's folder, written so that a kill never leaves one
half-written: state replaced atomically, results appended a whole line at a
time and a cut last line dropped on reading."""
import hashlib
import json
import os
import pathlib
import shutil

from . import engine

STATE, RESULTS, ENGINE = "state.json", "results.jsonl", "velkor"
PGN = "pgn"  # a folder of the games played, a file a task or a generation
REPO = pathlib.Path(__file__).resolve().parents[3]


def keep_engine(out: pathlib.Path, engine_path) -> str:
    """Copies the engine a run plays into its folder; returns its hash."""
    shutil.copyfile(engine_path, out / ENGINE)
    (out / ENGINE).chmod(0o755)
    return engine.load(out / ENGINE)[1]


def kept_engine(out: pathlib.Path, state: dict) -> bytes:
    """The bytes of the run's engine, refused if they are not those it started with."""
    if not (out / ENGINE).exists():
        raise ValueError(f"{out / ENGINE}: no engine kept (a finished campaign keeps none); to play on, build the"
                         f" commit the run started from and copy its build/release/velkor there (sha256"
                         f" {state['engine_hash'][:12]}...)")
    data, digest = engine.load(out / ENGINE)
    if digest != state["engine_hash"]:
        raise ValueError(f"{out / ENGINE} is not the engine this run started with")
    return data


def from_top(path: pathlib.Path) -> str:
    """A path as a folder records it: from the repository's top when inside
    it, so that a checkout elsewhere finds it."""
    path = pathlib.Path(path).resolve()
    return str(path.relative_to(REPO)) if path.is_relative_to(REPO) else str(path)


def book_file(settings: dict) -> pathlib.Path:
    """The path of a run's book, recorded from the repository's top when inside it."""
    return REPO / settings["book"]  # an absolute path stays as it is


def kept_book(settings: dict) -> bytes | None:
    """The bytes of the book a run plays (`book`, its path, read again on every
    call), refused if they are not those it started with (`book_name`)."""
    if not settings.get("book"):
        return None
    path = book_file(settings)
    data = path.read_bytes()
    if hashlib.sha256(data).hexdigest() + path.suffix != settings["book_name"]:
        raise ValueError(f"{path} is not the book this run started with ({settings['book_name']})")
    return data


def load_state(out: pathlib.Path) -> dict:
    return json.loads((out / STATE).read_text())


def write_atomically(path: pathlib.Path, text: str):
    """The one way the tuner writes a file: whole or not at all."""
    temp = path.with_name(path.name + ".tmp")
    with open(temp, "w") as f:
        f.write(text)
        f.flush()
        os.fsync(f.fileno())
    os.replace(temp, path)


def write_json(path: pathlib.Path, value):
    write_atomically(path, json.dumps(value, indent=1) + "\n")


def read_lines(path: pathlib.Path, repair: bool = True) -> list[dict]:
    """The whole lines of a file of JSON objects, one a line. A last line cut
    short by a kill is dropped, and from the file too unless `repair` is off
    (a reader that only looks), so that appending goes on after whole lines."""
    if not path.exists():
        return []
    records, good = [], 0
    with open(path, "rb") as f:
        for line in f:
            try:
                record = json.loads(line)
            except ValueError:
                break
            if not isinstance(record, dict):
                break
            records.append(record)
            good += len(line)
    if repair and good != path.stat().st_size:
        with open(path, "r+b") as f:
            f.truncate(good)
    return records


def read_results(out: pathlib.Path, repair: bool = True) -> list[dict]:
    """The recorded lines of a folder."""
    return read_lines(out / RESULTS, repair)


def append_line(path: pathlib.Path, record: dict):
    with open(path, "a") as f:
        f.write(json.dumps(record, separators=(",", ":")) + "\n")
        f.flush()
        os.fsync(f.fileno())


def append_result(out: pathlib.Path, record: dict):
    append_line(out / RESULTS, record)
