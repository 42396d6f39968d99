"""What a campaign folder holds, read without writing anything: the parts
the tuner's commands leave there (self-play positions, labels, fits, a match,
a PBIL or an SPSA run, a review), each read by its command's own module, with
its figures, whether it has ended, and the workers that played its games. A
part whose files cannot be read (cut short, not JSON, not the tuner's) is
reported as such, with the others.

A command whose folder the page shows offers, in its module:
  KIND                   the kind of its part, which names it when it cannot be read
  holds(folder)          whether the folder holds its part, from its files' names
                         (and a state's kind), never failing
  parts(folder, played)  its parts there, each with `final`, given the tasks the
                         folder's results.jsonl records (none to those of ALONE);
                         reading.Unreadable for a file that is not what it writes
and GAMES where it keeps a sub-folder of games, which holds no part."""
import hashlib
import os
import pathlib
import time

from . import book, fit, genes, label, positions, records, review, run, spsa, verify
from .reading import Unreadable, faults, workers
from .runfolder import read_lines, read_results
from .tasks import EVENTS

# The commands whose folders the page shows, asked in this order; a new one
# is its module's holds() and parts(), and its place here.
ALONE = (book, review)  # a folder one of these holds shows its part and nothing else
PLAYED = (spsa, run, positions, verify)  # the first that holds a folder shows its games, their workers and faults
BESIDE = (label, fit)  # files that stand beside those of any of the others
COMMANDS = ALONE + PLAYED + BESIDE
SKIPPED = {"logs", *(c.GAMES for c in COMMANDS if hasattr(c, "GAMES"))}  # games and transcripts: no figures


def version(folder: pathlib.Path) -> str:
    """Changes when any file of the folder or its sub-folders changes."""
    h = hashlib.sha1()
    for where, dirs, files in os.walk(folder):
        dirs[:] = sorted(d for d in dirs if d not in SKIPPED)
        for name in sorted(files):
            try:
                st = os.stat(os.path.join(where, name))
            except OSError:
                continue
            h.update(f"{where}/{name} {st.st_mtime_ns} {st.st_size}\n".encode())
    return h.hexdigest()[:16]


def guarded(kind: str, read) -> list[dict]:
    """The parts read(), or one that names what could not be read."""
    try:
        return read()
    except Unreadable as e:
        return [{"kind": kind, "final": False, "error": str(e)}]
    except (KeyError, IndexError, TypeError, ValueError, AttributeError, ZeroDivisionError, OSError) as e:
        return [{"kind": kind, "final": False, "error": f"not as the tuner writes it ({type(e).__name__}: {e})"}]


def parts(folder: pathlib.Path) -> list[dict]:
    """The parts of one folder (not its sub-folders), each with `final`, or
    with `error` where its files cannot be read."""
    for command in ALONE:
        if command.holds(folder):
            return with_faults(folder, guarded(command.KIND, lambda: command.parts(folder, [])))
    played = records.once(read_results(folder, repair=False))
    main = next((c for c in PLAYED if c.holds(folder)), None)
    found = guarded(main.KIND, lambda: main.parts(folder, played)) if main else []
    if found and played and "error" not in found[0]:
        found[0]["workers"] = guarded("workers", lambda: [workers(played)])[0]
    return with_faults(folder, found) + \
        [p for c in BESIDE if c.holds(folder) for p in guarded(c.KIND, lambda: c.parts(folder, played))]


def with_faults(folder: pathlib.Path, found: list[dict]) -> list[dict]:
    """The parts, the first with what the cluster cost it (the folder's
    events.jsonl), if it has any."""
    if found and (folder / EVENTS).exists() and "error" not in found[0]:
        found[0]["faults"] = f = guarded("faults", lambda: [faults(read_lines(folder / EVENTS, repair=False))])[0]
        if "left" in found[0] and (f.get("away_since") or f.get("idle_since")):
            found[0]["left"] = None  # nothing plays: no time left to tell
    return found


def folders(root: pathlib.Path) -> list[pathlib.Path]:
    """Every folder under root (itself included) that holds a part, never
    following a link out of it."""
    found = []
    for where, dirs, _ in os.walk(root):
        dirs[:] = sorted(d for d in dirs if d not in SKIPPED and not os.path.islink(os.path.join(where, d)))
        if any(c.holds(pathlib.Path(where)) for c in COMMANDS):
            found.append(pathlib.Path(where))
    return found


def view(folder: pathlib.Path, name: str) -> dict:
    """A campaign's page: the parts of the folder and of every folder in it."""
    sections = []
    for sub in folders(folder):
        rel = sub.relative_to(folder).as_posix()
        for p in parts(sub):
            sections.append({"path": "" if rel == "." else rel, **p})
    return {"name": name, "sections": sections, "final": bool(sections) and all(s["final"] for s in sections),
            "genes": {"names": genes.GENE_NAMES, "defaults": genes.DEFAULTS, "low": genes.LOW, "high": genes.HIGH,
                      "size": genes.GENE_SIZE},
            "read": time.time()}
