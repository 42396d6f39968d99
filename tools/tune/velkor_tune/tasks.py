"""The loop of every command that plays or labels: its tasks fanned out to
Dask, each result taken as it comes, recorded at once and counted in one
progress line; tasks already recorded in the folder are not played again,
so a command called again after a stop carries on.

A cluster lent for hours is mortal, and this loop is where every command
rides out its faults; a command that hands its tasks to `play` (results in
a folder's results.jsonl) or to `as_done` gets it all:
- a worker lost: Dask plays its task again on another; said in a line.
- the scheduler gone: said in a line and waited for (cluster.Cluster); every
  task not yet taken is submitted again to the one that comes back.
- each task's result taken once, whatever arrives twice.
- no worker for a while: said, with the command that lends one.
- a task that fails: one line, what failed and where.
The folder's events.jsonl keeps these, a line each: every task's start and
its worker, the workers lost, the tasks begun again with the play their
lost attempt had done, and the scheduler's absences; the campaign page
counts them."""
import contextlib
import json
import math
import sys
import time
import uuid
import warnings

from . import cluster as clusters, match, records
from .cluster import clock, say
from .runfolder import append_line, append_result, read_lines, read_results

EVENTS = "events.jsonl"
STARTS = "velkor-tune-starts"  # the topic of the workers' word that a task has begun
TICK = 0.2  # seconds between two looks at the tasks while none ends
FETCH = 5.0  # seconds to fetch a result before looking at the others (its worker may have gone with it)


class TaskFailed(Exception):
    """A task that raised twice (Dask tries it again once), or that ended
    every worker that ran it."""


def begin(function, run: str, index: int, task, *args):
    """A task on its worker: word to the client that it has begun, and
    where, then the task."""
    with contextlib.suppress(ImportError, ValueError):
        from distributed import get_worker
        worker = get_worker()
        worker.log_event(STARTS, {"run": run, "index": index, "worker": worker.address})
    return function(task, *args)


def one_line(error: BaseException) -> str:
    text = " ".join(f"{type(error).__name__}: {error}".split())
    return text if len(text) <= 400 else text[:150] + " ... " + text[-250:]


class Journal:
    """A folder's events.jsonl (none: nothing kept), each line with the call
    (`run`) that wrote it."""

    def __init__(self, path, run: str):
        self.path, self.run = path, run

    def write(self, event: str, **fields):
        if self.path:
            append_line(self.path, {"at": round(time.time(), 3), "event": event, "run": self.run, **fields})

    def begun(self) -> dict[str, float]:
        """The tasks (as JSON) that began in calls before this one, each with
        the play it had done at least: until the last event its call wrote."""
        events = read_lines(self.path) if self.path else []
        last = {}
        for e in events:
            last[e.get("run")] = e.get("at", 0)
        return {json.dumps(e["task"]): last[e.get("run")] - e.get("at", 0) for e in events
                if e.get("event") == "started"}


class Watch:
    """What the cluster does with a call's tasks, from the workers' words and
    the scheduler's events: where each task began, which began again and
    why, the workers lost, and how long no worker has served."""

    def __init__(self, cluster, journal: Journal, ids: list, run: str):
        self.cluster, self.journal, self.ids, self.run = cluster, journal, ids, run
        self.earlier = journal.begun()
        self.began = {}  # task index: (worker, when) of its present attempt
        self.lost = {}  # task index: (why, seconds played) of an attempt lost
        self.inbox = []
        self.workers = set()
        self.idle_since, self.told = None, None

    def listen(self):
        """Hears the workers' words and the scheduler's events, and counts
        its workers once: the events tell of every one that comes or goes
        after that, where asking the scheduler again and again would wait
        for it while it is gone."""
        for topic in (STARTS, "all"):
            self.cluster.client.subscribe_topic(topic, self.inbox.append)
        try:
            self.workers = set(self.cluster.client.scheduler_info().get("workers", {}))
        except (OSError, TimeoutError):  # gone already: the loop will wait for it
            self.workers = set()

    def deaf(self):
        for topic in (STARTS, "all"):
            self.cluster.client.unsubscribe_topic(topic)

    def started(self, index: int, worker: str):
        now, task = time.monotonic(), json.loads(self.ids[index])
        if index in self.began:  # again, with no word why: a retry after it raised
            self.lost.setdefault(index, ("again", now - self.began[index][1]))
        if index in self.lost:
            why, seconds = self.lost.pop(index)
            self.journal.write("rerun", task=task, worker=worker, why=why,
                               lost=round(seconds, 1) if math.isfinite(seconds) else None)
        elif self.ids[index] in self.earlier:
            self.journal.write("rerun", task=task, worker=worker, why="an earlier call stopped",
                               lost=round(self.earlier[self.ids[index]], 1))
        self.earlier.pop(self.ids[index], None)
        self.began[index] = (worker, now)
        self.journal.write("started", task=task, worker=worker)

    def worker_lost(self, worker: str, pending):
        now = time.monotonic()
        playing = [i for i, (w, _) in self.began.items() if w == worker and i in pending]
        for i in playing:
            self.lost[i] = ("worker lost", now - self.began.pop(i)[1])
        self.journal.write("worker-lost", worker=worker, tasks=[json.loads(self.ids[i]) for i in playing])
        say(f"the worker {worker} is gone" + ("; the task it played goes to another" if playing else ""))

    def ended(self, index: int):
        self.began.pop(index, None)
        self.lost.pop(index, None)

    def look(self, pending):
        """The words and events come in since the last look; whether the
        scheduler has had no worker for a while."""
        while self.inbox:
            _, message = self.inbox.pop(0)
            if not isinstance(message, dict):
                continue
            if message.get("run") == self.run and message.get("index") in range(len(self.ids)):
                self.started(message["index"], message.get("worker", "?"))
            elif message.get("action") == "remove-worker":
                self.workers.discard(message.get("worker"))
                self.worker_lost(message.get("worker", "?"), pending)
            elif message.get("action") == "add-worker":
                self.workers.add(message.get("worker"))
        if self.cluster.scheduler:
            self.idle()

    def idle(self):
        now, scheduler = time.monotonic(), self.cluster.scheduler
        if self.workers:
            if self.told is not None:
                say(f"a worker serves {scheduler} again, after {clock(now - self.idle_since)} without one")
                self.journal.write("workers-back", idle=round(now - self.idle_since, 1))
            self.idle_since, self.told = None, None
            return
        if self.idle_since is None:
            self.idle_since = now
        elif now - self.idle_since >= clusters.IDLE and (self.told is None or now - self.told >= 10 * clusters.IDLE):
            lend = clusters.LEND.format(scheduler)
            say(f"no worker has served the scheduler at {scheduler} for {clock(now - self.idle_since)}:"
                f" lend one with {lend}")
            if self.told is None:
                self.journal.write("no-workers", scheduler=scheduler, lend=lend,
                                   since=round(time.time() - (now - self.idle_since), 3))
            self.told = now

    def absent(self, pending) -> float:
        """The scheduler gone: waits for it (cluster.Gone after the limit);
        the attempts it took with it are lost. Returns the seconds waited."""
        now = time.monotonic()
        for i in pending:
            if i in self.began:
                self.lost[i] = ("scheduler lost", now - self.began[i][1])
        self.began.clear()
        self.inbox.clear()
        self.journal.write("scheduler-lost", scheduler=self.cluster.scheduler)
        try:
            waited = self.cluster.reconnect()
        except clusters.Gone:
            self.journal.write("scheduler-gave-up", away=round(time.monotonic() - now, 1))
            raise
        self.journal.write("scheduler-back", away=round(waited, 1))
        self.idle_since, self.told = None, None
        return waited


def as_done(cluster, function, tasks: list, *args, name: str, ids=None, journal=None):
    """Yields function(task, *args) of every task as each one ends, each
    task once, through whatever the cluster loses on the way; the tasks not
    yet ended are cancelled when the caller stops early. `ids` name the
    tasks in the folder's `journal`, an events.jsonl (their indices unless
    told; no journal unless told)."""
    from distributed import CancelledError
    from distributed.scheduler import KilledWorker
    # The engine's bytes travel with each task; Dask warns of every one.
    warnings.filterwarnings("ignore", message="Large object")
    run = uuid.uuid4().hex[:8]
    ids = [json.dumps(i) for i in (range(len(tasks)) if ids is None else ids)]
    watch = Watch(cluster, Journal(journal, run), ids, run)
    pending, attempts = {}, {}

    def submit(indices):
        for i in indices:
            attempts[i] = attempts.get(i, 0) + 1
            pending[i] = cluster.client.submit(begin, function, run, i, tasks[i], *args, retries=1, pure=False,
                                               key=f"velkor-{name}-{run}-{i}-{attempts[i]}")

    watch.listen()
    submit(range(len(tasks)))
    try:
        while pending:
            # The words first: a task's start comes before its end.
            watch.look(pending)
            took = False
            for i, future in list(pending.items()):
                if future.status == "finished":
                    try:
                        result = future.result(timeout=FETCH)
                    except (CancelledError, OSError, TimeoutError):
                        continue  # the scheduler, or the worker that held the result, went as it came
                    del pending[i]
                    watch.ended(i)
                    took = True
                    yield result
                elif future.status == "error":
                    error = future.exception()
                    if isinstance(error, KilledWorker) and attempts[i] < 3:
                        watch.lost.setdefault(i, ("worker lost", math.nan))
                        submit([i])
                        continue
                    where = f" on {watch.began[i][0]}" if i in watch.began else ""
                    raise TaskFailed(f"task {json.loads(ids[i])} of {name} failed{where}: {one_line(error)}")
            if pending and (cluster.lost() or any(f.status == "cancelled" for f in pending.values())):
                waited = watch.absent(pending)
                say(f"the scheduler at {cluster.scheduler} is back after {clock(waited)}: submitting again the"
                    f" {len(pending)} task{'s' * (len(pending) != 1)} not recorded")
                watch.listen()
                submit(list(pending))
                continue
            if not took:
                time.sleep(TICK)
    finally:
        if not cluster.lost():
            with contextlib.suppress(Exception):
                cluster.client.cancel(list(pending.values()))
                watch.deaf()


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


def play(cluster, out, tasks: list[dict], inputs: tuple, progress: Progress, *, name: str, key, same=(), pgn=None,
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
    todo = list({key(t): t for t in tasks if key(t) not in done}.values())  # each task once
    if done:
        progress.add(sum(map(units, done.values())), sum(map(failed, done.values())), here=False)
        progress.say(f"{len(done)} of these {len(tasks)} tasks recorded in {out} already")
    if enough and enough(done):
        return done
    # Closed on the way out, a Ctrl-C too, so that the tasks still running are
    # cancelled while the client is still there to cancel them.
    with contextlib.closing(as_done(cluster, function, todo, *inputs, name=name, ids=[key(t) for t in todo],
                                    journal=out / EVENTS)) as results:
        for record in results:
            if key(record) in done:  # recorded once, whatever arrives twice
                continue
            keep(out, record, pgn(record) if pgn else None)
            done[key(record)] = record
            progress.add(units(record), failed(record))
            progress.say(progress.line() + (after(record, done) if after else ""))
            if enough and enough(done):
                break
    return done
