"""Where the games run: a local Dask cluster of single-threaded worker
processes (one a core unless told), or the cluster behind a scheduler.

A cluster's scheduler goes away now and then (a reboot, an upgrade) and
comes back knowing nothing: a Cluster waits for it, saying how long it has
waited, up to a limit, and then opens a new client; tasks.as_done submits
again what was not recorded. `lend` keeps a machine's workers serving a
scheduler through its restarts: Dask's workers end when their scheduler
does, and are started again here, to wait for it."""
import contextlib
import importlib
import logging
import math
import os
import re
import signal
import subprocess
import sys
import tempfile
import time

PACKAGE_PARENT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
# A local cluster's housekeeping, less eager than Dask's defaults, which
# took a tenth of a core at rest from the engines beside it: no statistical
# profile of the running tasks, and the event-loop, memory and system checks
# once a second or two rather than every 20 to 500 ms.
QUIET = {
    "distributed.worker.profile.enabled": False,
    "distributed.admin.tick.interval": "1s",
    "distributed.worker.memory.monitor-interval": "1s",
    "distributed.admin.system-monitor.interval": "2s",
    "distributed.scheduler.work-stealing-interval": "1s",
}
WAIT_MINUTES = 10.0  # how long a command waits for its scheduler to come back, unless told
EVERY = 10.0  # seconds between the lines of a wait
TRY = 3.0  # seconds of one attempt to reach the scheduler
# Seconds without a worker before a command says so (the tests shorten it).
IDLE = float(os.environ.get("VELKOR_TUNE_IDLE", 60))
# A local cluster of no more workers than cores names its cores here for its
# workers: each keeps its games (its driver and engines) on one core, as a
# dedicated runner keeps a game's engines on one, and two games never push
# each other off their cores.
CORES = "VELKOR_TUNE_CORES"
LEND = "make tune-worker SCHEDULER={}"  # what lends a machine's cores to a scheduler
SILENT = logging.CRITICAL + 10  # a logging level above every message
LOG_LINE = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d,\d+ - ")  # how each line of Dask's log begins


class Gone(Exception):
    """The scheduler did not come back within the limit."""


def clock(seconds: float) -> str:
    """Seconds as H:MM:SS, "?" when not known."""
    if not math.isfinite(seconds):
        return "?"
    seconds = int(max(0, seconds))
    return f"{seconds // 3600}:{seconds // 60 % 60:02d}:{seconds % 60:02d}"


def say(text: str):
    print(text, flush=True)


def quiet_dask():
    """Dask's own logging, which prints tracebacks of a lost connection, kept
    from the user: the tuner says what happened in its own lines."""
    importlib.import_module("distributed")  # its loggers, each with its own level
    for name in ["tornado", "asyncio", *list(logging.root.manager.loggerDict)]:
        if name.split(".")[0] in ("distributed", "tornado", "asyncio"):
            logging.getLogger(name).setLevel(SILENT)


class Cluster:
    """The client of a command's tasks. `scheduler` is None for a local
    cluster, which goes only when the command does."""

    def __init__(self, client, scheduler: str | None = None, wait: float = WAIT_MINUTES * 60):
        self.client, self.scheduler, self.wait = client, scheduler, wait

    def workers(self) -> int:
        return len(self.client.scheduler_info().get("workers", {}))

    def lost(self) -> bool:
        """Whether the connection to the scheduler has gone."""
        return self.client.status != "running"

    def drop(self):
        """Closes the client, whatever state its connection is in."""
        with contextlib.suppress(Exception):
            self.client.close(timeout=TRY)

    def reconnect(self) -> float:
        """Waits for the scheduler, up to the limit, with a line every EVERY
        seconds; opens a new client and returns the seconds waited."""
        if not self.scheduler:
            raise Gone("the local cluster's scheduler ended")
        self.drop()
        started = time.monotonic()
        say(f"the scheduler at {self.scheduler} has gone: waiting for it to come back, up to {clock(self.wait)}")
        self.client = wait_for(self.scheduler, self.wait, started)
        return time.monotonic() - started


def open_client(scheduler: str):
    from distributed import Client
    return Client(scheduler, timeout=TRY, set_as_default=False)


def wait_for(scheduler: str, limit: float, started: float):
    """A client of the scheduler as soon as it answers; Gone after `limit` seconds."""
    told = started
    while True:
        try:
            return open_client(scheduler)
        except (OSError, TimeoutError):
            pass
        waited = time.monotonic() - started
        if waited >= limit:
            raise Gone(f"the scheduler at {scheduler} has not answered for {clock(waited)}: start it again"
                       " (make tune-scheduler) or name another with --scheduler")
        if time.monotonic() - told >= EVERY:
            told = time.monotonic()
            say(f"waiting for the scheduler at {scheduler}: {clock(waited)} of {clock(limit)}")
        time.sleep(min(1.0, max(0.0, limit - waited)))


@contextlib.contextmanager
def connect(workers: int | None = None, scheduler: str | None = None, wait_minutes: float | None = None):
    import dask
    from distributed import Client, LocalCluster
    quiet_dask()
    if scheduler:
        wait = WAIT_MINUTES * 60 if wait_minutes is None else wait_minutes * 60
        started = time.monotonic()
        try:
            client = open_client(scheduler)
        except (OSError, TimeoutError):
            say(f"no scheduler answers at {scheduler}: waiting for it, up to {clock(wait)}")
            client = wait_for(scheduler, wait, started)
        cluster = Cluster(client, scheduler, wait)
        try:
            yield cluster
        finally:
            cluster.drop()
        return
    # Worker processes import this package; they inherit the path through the environment.
    os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [PACKAGE_PARENT, os.environ.get("PYTHONPATH")]))
    cores = sorted(os.sched_getaffinity(0)) if hasattr(os, "sched_getaffinity") else []
    if (workers or os.cpu_count() or 1) <= len(cores):
        os.environ[CORES] = ",".join(map(str, cores))
    else:
        os.environ.pop(CORES, None)
    with dask.config.set(QUIET), tempfile.TemporaryDirectory(prefix="velkor-dask-") as space, \
            LocalCluster(n_workers=workers or os.cpu_count() or 1, threads_per_worker=1, processes=True,
                         dashboard_address=":0", local_directory=space, silence_logs=SILENT) as cluster, \
            Client(cluster) as client:
        yield Cluster(client)


def own_core():
    """Keeps the calling thread of a local cluster's worker, and the
    processes it starts from then on, on the worker's own core."""
    try:
        from distributed import get_worker
        name = get_worker().name
    except (ImportError, ValueError):
        return
    cores = os.environ.get(CORES)
    if cores and isinstance(name, int):
        cores = cores.split(",")
        os.sched_setaffinity(0, {int(cores[name % len(cores)])})


def lend(scheduler: str, workers: int):
    """This machine's workers serving the scheduler until stopped, started
    again whenever they end (their scheduler went away: they wait for the
    next one), never more often than every few seconds."""
    env = {**os.environ, "PYTHONPATH": os.pathsep.join(filter(None, [PACKAGE_PARENT, os.environ.get("PYTHONPATH")]))}
    command = [sys.executable, "-m", "distributed.cli.dask_worker", scheduler, "--nworkers", str(workers),
               "--nthreads", "1", "--no-dashboard"]
    say(f"lending {workers} worker{'s' * (workers != 1)} to {scheduler}, started again whenever they end (Ctrl-C stops)")
    pause = 1.0
    while True:
        began = time.monotonic()
        # Apart from this process's group, so that a Ctrl-C here ends them through Dask's own way out.
        process = subprocess.Popen(command, env=env, start_new_session=True, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True, errors="replace")
        try:
            for line in process.stdout:
                if LOG_LINE.match(line):  # Dask's log, a line an event; the tracebacks it adds are left out
                    sys.stderr.write(line)
            code = process.wait()
        except KeyboardInterrupt:
            stop(process)
            raise
        # Dask's workers end with their scheduler; an end soon after the start (no
        # scheduler will have them) waits longer each time, up to half a minute.
        pause = min(30.0, pause * 2) if time.monotonic() - began < 10 else 1.0
        say(f"the workers ended (exit {code}; has the scheduler at {scheduler} gone?): starting them again in"
            f" {pause:.0f} s, to wait for it")
        time.sleep(pause)


def stop(process):
    """Ends the workers as Dask ends them on a signal, and for good after a while."""
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(timeout=30)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
