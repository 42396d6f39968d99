"""The loop of every command that plays or labels: its tasks fanned out to
Dask, each result taken as it comes, recorded at once and counted in one
progress line; tasks already recorded in the folder are not played again,
so a command called again after a stop carries on."""
import contextlib
import math
import sys
import time
import uuid
import warnings

from . import match, records
from .runfolder import append_result, read_results


def as_done(client, function, tasks: list, *args, name: str):
    """Yields function(task, *args) of every task as each one ends; the tasks
    not yet ended are cancelled when the caller stops early."""
    # The engine's bytes travel with each task; Dask warns of every one.
    warnings.filterwarnings("ignore", message="Large object")
    from distributed import as_completed
    run_id = uuid.uuid4().hex[:8]
    futures = [client.submit(function, task, *args, key=f"velkor-{name}-{run_id}-{k}", retries=1)
               for k, task in enumerate(tasks)]
    try:
        for future in as_completed(futures):
            yield future.result()
    finally:
        client.cancel([f for f in futures if not f.done()])


def clock(seconds: float) -> str:
    if not math.isfinite(seconds):
        return "?"
    seconds = int(max(0, seconds))
    return f"{seconds // 3600}:{seconds // 60 % 60:02d}:{seconds % 60:02d}"


class Progress:
    """Units (games or positions) of a command: done of the whole, the rate
    since this process started, the time left and the failures so far."""

    def __init__(self, total: int, done: int = 0, failures: int = 0, unit: str = "games", stream=None):
        self.total, self.done, self.failures, self.unit = total, done, failures, unit
        self.stream = stream or sys.stdout
        self.started, self.here = time.monotonic(), 0

    def add(self, units: int, failures: int = 0, here: bool = True):
        """Counts units done, by this process unless `here` is off."""
        self.done, self.failures = self.done + units, self.failures + failures
        self.here += units if here else 0

    @property
    def rate(self) -> float:
        """Units a minute since this process started."""
        minutes = (time.monotonic() - self.started) / 60
        return self.here / minutes if minutes > 0 else 0.0

    def line(self) -> str:
        left = (self.total - self.done) / self.rate * 60 if self.rate else math.inf
        return (f"{self.done}/{self.total} {self.unit}, {self.rate:.1f} {self.unit}/min, left {clock(left)},"
                f" failures {self.failures}")

    def say(self, text: str):
        print(text, file=self.stream, flush=True)


def keep(out, record: dict, pgn=None):
    """Records a finished mini-match: its games first (a kill between the two
    writes plays the task again rather than losing them), then its line."""
    text = record.pop("pgn", "")
    record.pop("per_game", None)
    if pgn is not None:
        with open(pgn, "a") as f:
            f.write(text + "\n\n")
    record["finished"] = time.time()
    append_result(out, record)


def play(client, out, tasks: list[dict], inputs: tuple, progress: Progress, *, name: str, key, same=(), pgn=None,
         after=None, enough=None, function=match.play, units=records.games, failed=records.failures) -> dict:
    """Runs the tasks whose results OUT does not hold yet (a result counts for
    the task of the same key when the fields `same` agree too), each as
    function(task, *inputs) (a mini-match unless told); returns the record of
    every task run, by key. `units(record)` and `failed(record)` count it in
    the progress line (games and failures unless told); `pgn(task)` names the
    file of its games; `after(record, done)` adds to the progress line;
    `enough(done)` tells when to stop, before any task too."""
    wanted = {key(t): t for t in tasks}
    done = {}
    for r in read_results(out):
        k = key(r)
        if k in wanted and k not in done and all(r.get(f) == wanted[k].get(f) for f in same):
            done[k] = r
    todo = [t for t in tasks if key(t) not in done]
    if done:
        progress.add(sum(map(units, done.values())), sum(map(failed, done.values())), here=False)
        progress.say(f"{len(done)} of these {len(tasks)} tasks recorded in {out} already")
    if enough and enough(done):
        return done
    # Closed on the way out, a Ctrl-C too, so that the tasks still running are
    # cancelled while the client is still there to cancel them.
    with contextlib.closing(as_done(client, function, todo, *inputs, name=name)) as results:
        for record in results:
            keep(out, record, pgn(record) if pgn else None)
            done[key(record)] = record
            progress.add(units(record), failed(record))
            progress.say(progress.line() + (after(record, done) if after else ""))
            if enough and enough(done):
                break
    return done
