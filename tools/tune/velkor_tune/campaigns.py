"""What a campaign folder holds, read without writing anything: the parts
the tuner's commands leave there (self-play positions, labels, fits, a match,
a PBIL or an SPSA run), each with its figures, whether it has ended, and the
workers that played its games. A part whose files cannot be read (cut short,
not JSON, not the tuner's) is reported as such, with the others."""
import hashlib
import json
import os
import pathlib
import re
import time

from . import book, genes, pbil, positions, records, report, review, spsa, stats, verify
from .positions import POSITIONS, SETTINGS as POSITIONS_SETTINGS
from .runfolder import RESULTS, STATE, read_lines, read_results
from .tasks import EVENTS

SKIPPED = {"pgn", "logs", "games"}  # folders of games and transcripts: no campaign's figures
PART = re.compile(r"chunk-(\d+)-of-(\d+)-depth-\d+\.txt$")
WINDOW = 50  # the last mini-matches that give a rate


class Unreadable(Exception):
    """A file of the folder that is not what the tuner writes."""


def read_json(path: pathlib.Path):
    try:
        return json.loads(path.read_text())
    except UnicodeDecodeError:
        raise Unreadable(f"{path.name} is not text") from None
    except ValueError as e:
        raise Unreadable(f"{path.name} is not whole JSON (cut short, or being written?): {e}") from None


def lines(path: pathlib.Path) -> int:
    with open(path, "rb") as f:
        return sum(1 for _ in f)


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


def rate(played: list[dict]):
    """Games a minute over the last mini-matches that say when they ended."""
    ended = sorted((r for r in played if isinstance(r.get("finished"), (int, float))), key=lambda r: r["finished"])
    window = ended[-WINDOW:]
    if len(window) < 2 or window[-1]["finished"] <= window[0]["finished"]:
        return None
    return sum(map(records.games, window[1:])) / (window[-1]["finished"] - window[0]["finished"]) * 60


def left(total: int, done: int, per_minute):
    return (total - done) / per_minute * 60 if per_minute and total > done else (0 if total <= done else None)


def workers(played: list[dict]) -> list[dict]:
    rows = {}
    for r in played:
        row = rows.setdefault(r.get("worker", "?"), {"worker": r.get("worker", "?"), "tasks": 0, "games": 0,
                                                    "failures": 0, "last": None, "finished": None})
        row["tasks"] += 1
        row["games"] += records.games(r)
        row["failures"] += records.failures(r)
        if row["finished"] is None or r.get("finished", 0) >= row["finished"]:
            row["finished"] = r.get("finished")
            row["last"] = f"+{r['wins']} ={r['draws']} -{r['losses']}"
    return sorted(rows.values(), key=lambda w: w["worker"])


def faults(events: list[dict]) -> dict:
    """What the cluster cost a part, from its events.jsonl: workers lost,
    tasks begun again and the play their lost attempts had done (where
    known), the scheduler's absences and how long they lasted (one still
    open: since when), and since when no worker has served, if none does."""
    f = {"lost_workers": 0, "reruns": 0, "lost_play": 0.0, "absences": 0, "away": 0.0, "away_since": None,
         "idle_since": None, "lend": None}
    for e in events:
        kind, at = e.get("event"), e.get("at", 0)
        if f["away_since"] is not None and kind != "scheduler-lost":  # a call after one stopped while it waited
            f["away"] += e.get("away", at - f["away_since"]) if kind in ("scheduler-back", "scheduler-gave-up") \
                else at - f["away_since"]
            f["away_since"] = None
        if kind == "worker-lost":
            f["lost_workers"] += 1
        elif kind == "rerun":
            f["reruns"] += 1
            f["lost_play"] += e.get("lost") or 0
        elif kind == "scheduler-lost":
            f["absences"] += 1
            f["away_since"] = at
        elif kind == "no-workers":
            f["idle_since"], f["lend"] = e.get("since", at), e.get("lend")
        elif kind in ("workers-back", "started"):
            f["idle_since"] = None
    return f


def match_part(folder: pathlib.Path, played: list[dict]) -> dict:
    settings = read_json(folder / verify.SETTINGS) if (folder / verify.SETTINGS).exists() else {}
    summary = read_json(folder / verify.SUMMARY) if (folder / verify.SUMMARY).exists() else None
    t = records.Totals.of(played)
    bounds = settings.get("sprt") or (summary and summary.get("sprt") and
                                      [summary["sprt"]["elo0"], summary["sprt"]["elo1"]])
    final = summary is not None and [summary[k] for k in ("wins", "draws", "losses")] == [t.wins, t.draws, t.losses]
    per_minute = t.games / summary["minutes"] if final and summary.get("minutes") else rate(played)
    total = settings.get("games") or (summary and t.games) or t.games
    part = {"kind": "match", "final": final, "genes": (summary or settings or played[0]).get("genes"),
            "base": (summary or settings or played[0]).get("base"), "games": t.games, "total": total,
            **t.as_dict(), "kinds": t.kinds(), "rate": per_minute,
            "left": None if final else left(total, t.games, per_minute),
            "limit": limit_text(summary or settings or played[0]),
            "block": t.stat_block(bounds, per_minute)}
    if sum(t.penta):
        part["elo"] = stats.summary(t.penta)
    if bounds:
        part["sprt"] = stats.sprt(t.penta, *bounds)
        if part["sprt"]["verdict"] != "running" and not final:
            part["left"] = 0
    return part


def limit_text(s: dict) -> str:
    return f"depth {s['depth']}" if s.get("depth") else f"clock {s.get('tc')}"


def positions_part(folder: pathlib.Path, played: list[dict]) -> dict:
    s = read_json(folder / POSITIONS_SETTINGS)
    total_tasks = len(positions.game_tasks(s, ""))
    done = {r["index"] for r in played if "index" in r}
    games = sum(map(records.games, played))
    per_minute = rate(played)
    final = len(done) >= total_tasks and (folder / POSITIONS).exists()
    return {"kind": "positions", "final": final, "games": games, "total": s["games"], "tasks": len(done),
            "total_tasks": total_tasks, "limit": limit_text(s), "rate": per_minute,
            "left": 0 if final else left(s["games"], games, per_minute),
            "positions": lines(folder / POSITIONS) if (folder / POSITIONS).exists() else None,
            "failures": sum(map(records.failures, played))}


def label_parts(folder: pathlib.Path) -> list[dict]:
    parts = []
    names = {p.name[:-len(".parts")] for p in folder.glob("*.labelled.txt.parts") if p.is_dir()}
    names |= {p.name for p in folder.glob("*.labelled.txt") if p.is_file()}
    for name in sorted(names):
        out, chunks = folder / name, folder / (name + ".parts")
        found = [(int(m.group(1)), int(m.group(2)), p) for p in (chunks.iterdir() if chunks.is_dir() else [])
                 if (m := PART.match(p.name))]
        total = max((n for _, n, _ in found), default=0)
        times = sorted(p.stat().st_mtime for _, _, p in found)
        labelled = sum(lines(p) for _, _, p in found)
        per_minute = labelled / len(found) * (len(found) - 1) / (times[-1] - times[0]) * 60 \
            if len(times) >= 2 and times[-1] > times[0] else None
        whole = out.exists() and (not found or out.stat().st_mtime >= times[-1]) and len(found) in (0, total)
        positions = lines(out) if whole else labelled
        remaining = None if not total else (total - len(found)) * (labelled / len(found) if found else 0)
        parts.append({"kind": "labels", "final": whole, "file": name, "positions": positions, "chunks": len(found),
                      "total_chunks": total, "rate": per_minute,
                      "left": 0 if whole else (remaining / per_minute * 60 if per_minute else None)})
        if (chunks / EVENTS).exists():
            parts[-1]["faults"] = faults(read_lines(chunks / EVENTS, repair=False))
    return parts


def fit_parts(folder: pathlib.Path) -> list[dict]:
    parts = []
    for path in sorted(folder.glob("fit-*.txt")):
        text = path.read_text(errors="replace").splitlines()
        if not text:
            raise Unreadable(f"{path.name} is empty")
        parts.append({"kind": "fit", "final": True, "file": path.name, "losses": text[0], "genes": text[-1]})
    return parts


def pbil_part(state: dict) -> dict:
    s, history = state["settings"], state["history"]
    return {"kind": "pbil", "final": state["generation"] >= s["generations"], "generation": state["generation"],
            "generations": s["generations"], "bits": [h["probabilities"] for h in history] + [state["probabilities"]],
            "fitness": [{"best": h["fitness"][h["best"]], "best_error": h["errors"][h["best"]], "mean": h["mean"],
                         "mean_error": h["mean_error"]} for h in history],
            "entropy": pbil.entropy(pbil.State(state["probabilities"])),
            "genes": pbil.consensus(state["probabilities"]),
            "expected": [round(float(m), 2) for m in report.gene_moments(state["probabilities"])[0]],
            "games": sum(h["games"] for h in history), "limit": limit_text(s)}


def spsa_part(state: dict) -> dict:
    s = state["settings"]
    per_batch = s["pairs"] * s["batch"]
    return {"kind": "spsa", "final": state["batch"] >= spsa.batches(s), "batch": state["batch"],
            "batches": spsa.batches(s), "thetas": state["path"], "theta": state["theta"],
            "c": [spsa.schedule(s, max(1, b * per_batch))[0] for b in range(len(state["path"]))],
            "genes": spsa.answer(state), "games": state["games"], "failures": state["failures"],
            "limit": limit_text(s)}


def review_part(folder: pathlib.Path) -> dict:
    """A review of a PGN file: games done of the whole, games a minute over
    the files of the reviewed games, the time left, the mean accuracies."""
    s = read_json(folder / review.SETTINGS)
    found = sorted((folder / review.GAMES).glob("*.json"))
    done = [read_json(p) for p in found]
    times = sorted(p.stat().st_mtime for p in found)[-WINDOW:]
    per_minute = (len(times) - 1) / (times[-1] - times[0]) * 60 if len(times) >= 2 and times[-1] > times[0] else None
    final = len(done) >= s["games"] and (folder / review.SUMMARY).exists()
    reviewed = [r for r in done if "summary" in r]
    side = lambda colour: review.mean(r["summary"][colour]["accuracy"] for r in reviewed)
    marks = {m: sum(r["summary"][c][m] for r in reviewed for c in ("white", "black")) for m in review.MARKS}
    return {"kind": "review", "final": final, "games": len(done), "total": s["games"], "depth": s["depth"],
            "rate": per_minute, "left": 0 if final else left(s["games"], len(done), per_minute),
            "white": side("white"), "black": side("black"), "marks": marks,
            "failures": len(done) - len(reviewed), "file": pathlib.Path(s["games_file"]).name}


def guarded(kind: str, read) -> list[dict]:
    """The parts read(), or one that names what could not be read."""
    try:
        got = read()
        return got if isinstance(got, list) else [got]
    except Unreadable as e:
        return [{"kind": kind, "final": False, "error": str(e)}]
    except (KeyError, IndexError, TypeError, ValueError, AttributeError, ZeroDivisionError, OSError) as e:
        return [{"kind": kind, "final": False, "error": f"not as the tuner writes it ({type(e).__name__}: {e})"}]


def run_part(state) -> dict:
    if not isinstance(state, dict):
        raise Unreadable(f"{STATE} is not an object")
    return spsa_part(state) if state.get("kind") == "spsa" else pbil_part(state)


def is_book(folder: pathlib.Path) -> bool:
    """A folder of `velkor-tune book`, which has no part to show."""
    try:
        return "teacher_depth" in json.loads((folder / book.SETTINGS).read_text())
    except (OSError, ValueError):
        return False


def parts(folder: pathlib.Path) -> list[dict]:
    """The parts of one folder (not its sub-folders), each with `final`, or
    with `error` where its files cannot be read."""
    if is_book(folder):
        return []
    if (folder / review.SETTINGS).exists():
        return guarded("review", lambda: review_part(folder))
    played = records.once(read_results(folder, repair=False))
    if (folder / STATE).exists():
        found = guarded("run", lambda: run_part(read_json(folder / STATE)))
    elif (folder / POSITIONS_SETTINGS).exists():
        found = guarded("positions", lambda: positions_part(folder, played))
    elif (folder / verify.SUMMARY).exists() or (folder / verify.SETTINGS).exists() or played:
        found = guarded("match", lambda: match_part(folder, played))
    else:
        found = []
    if found and played and "error" not in found[0]:
        found[0]["workers"] = guarded("workers", lambda: [workers(played)])[0]
    if found and (folder / EVENTS).exists() and "error" not in found[0]:
        found[0]["faults"] = f = guarded("faults", lambda: [faults(read_lines(folder / EVENTS, repair=False))])[0]
        if "left" in found[0] and (f.get("away_since") or f.get("idle_since")):
            found[0]["left"] = None  # nothing plays: no time left to tell
    return found + guarded("labels", lambda: label_parts(folder)) + guarded("fit", lambda: fit_parts(folder))


def folders(root: pathlib.Path) -> list[pathlib.Path]:
    """Every folder under root (itself included) that holds a part, never
    following a link out of it."""
    found = []
    for where, dirs, files in os.walk(root):
        dirs[:] = sorted(d for d in dirs if d not in SKIPPED and not d.endswith(".parts")
                         and not os.path.islink(os.path.join(where, d)))
        names = set(files) | {d + ".parts" for d in dirs}
        if names & {STATE, RESULTS, POSITIONS_SETTINGS, verify.SUMMARY, verify.SETTINGS, review.SETTINGS} or any(
                n.endswith(".labelled.txt") or n.startswith("fit-") for n in files):
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
