"""Where the games run: a local Dask cluster of single-threaded worker
processes (one a core unless told), or the cluster behind a scheduler."""
import contextlib
import os
import tempfile

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


@contextlib.contextmanager
def connect(workers: int | None = None, scheduler: str | None = None):
    import dask
    from distributed import Client, LocalCluster
    if scheduler:
        with Client(scheduler) as client:
            yield client
        return
    # Worker processes import this package; they inherit the path through the environment.
    os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [PACKAGE_PARENT, os.environ.get("PYTHONPATH")]))
    with dask.config.set(QUIET), tempfile.TemporaryDirectory(prefix="velkor-dask-") as space, \
            LocalCluster(n_workers=workers or os.cpu_count() or 1, threads_per_worker=1, processes=True,
                         dashboard_address=":0", local_directory=space) as cluster, \
            Client(cluster) as client:
        yield client
