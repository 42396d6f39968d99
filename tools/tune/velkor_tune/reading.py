"""What every command's reading of its folder for the campaign page shares:
files read without writing anything, one that is not what the tuner writes
named as such, and the figures of tasks played on a cluster (games a
minute, the time left, the workers, what the cluster cost)."""
import json
import pathlib

from . import records

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


def rate(played: list[dict]):
    """Games a minute over the last mini-matches that say when they ended."""
    ended = sorted((r for r in played if isinstance(r.get("finished"), (int, float))), key=lambda r: r["finished"])
    window = ended[-WINDOW:]
    if len(window) < 2 or window[-1]["finished"] <= window[0]["finished"]:
        return None
    return sum(map(records.games, window[1:])) / (window[-1]["finished"] - window[0]["finished"]) * 60


def left(total: int, done: int, per_minute):
    return (total - done) / per_minute * 60 if per_minute and total > done else (0 if total <= done else None)


def limit_text(s: dict) -> str:
    return f"depth {s['depth']}" if s.get("depth") else f"clock {s.get('tc')}"


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
