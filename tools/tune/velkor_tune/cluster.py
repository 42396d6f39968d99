"""Where the games run: a local Dask cluster of single-threaded worker
processes (one a core unless told), or the cluster behind a scheduler."""
import contextlib
import os
import tempfile

PACKAGE_PARENT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


@contextlib.contextmanager
def connect(workers: int | None = None, scheduler: str | None = None):
    from distributed import Client, LocalCluster
    if scheduler:
        with Client(scheduler) as client:
            yield client
        return
    # Worker processes import this package; they inherit the path through the environment.
    os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [PACKAGE_PARENT, os.environ.get("PYTHONPATH")]))
    with tempfile.TemporaryDirectory(prefix="velkor-dask-") as space, \
            LocalCluster(n_workers=workers or os.cpu_count() or 1, threads_per_worker=1, processes=True,
                         dashboard_address=":0", local_directory=space) as cluster, \
            Client(cluster) as client:
        yield client
