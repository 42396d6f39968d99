"""The engine as the tuner's workers get it: by content.

The bytes of the binary and their SHA-256 travel with every task. A worker
writes them once into its cache, keyed by the hash, and before the first game
runs `bench` and refuses a binary whose node count is not the engine's own.
"""
import hashlib
import os
import pathlib
import subprocess

# The engine's own bench count, kept with its tests.
BENCH_NODES = int(next(line for line in (pathlib.Path(__file__).resolve().parents[3] / "tests" / "data" / "bench.txt")
                       .read_text().splitlines() if line and not line.startswith("#")))
CACHE = pathlib.Path(os.environ.get("VELKOR_TUNE_CACHE", pathlib.Path.home() / ".cache" / "velkor-tune"))


class EngineRefused(Exception):
    """The binary a task brought is not one the tuner plays with."""


def load(path) -> tuple[bytes, str]:
    data = pathlib.Path(path).read_bytes()
    return data, hashlib.sha256(data).hexdigest()


def bench_nodes(path) -> int | None:
    """The node count the binary's `bench` prints, or None if it prints none."""
    # bench alone on the input: a waiting line would cut its searches short.
    try:
        out = subprocess.run([str(path)], input=b"bench\n", capture_output=True, timeout=600).stdout
    except (OSError, subprocess.TimeoutExpired):
        return None
    for line in out.decode("latin-1").splitlines():
        words = line.split()
        if len(words) > 2 and words[1:3] == ["nodes", "in"] and words[0].isdigit():
            return int(words[0])
    return None


def install(data: bytes, digest: str) -> pathlib.Path:
    """The path of the checked binary with these bytes on this machine."""
    if hashlib.sha256(data).hexdigest() != digest:
        raise EngineRefused(f"engine bytes do not match their hash {digest[:12]}")
    folder = CACHE / digest
    path, checked = folder / "velkor", folder / "bench-ok"
    if checked.exists():
        return path
    folder.mkdir(parents=True, exist_ok=True)
    temp = folder / f"velkor.{os.getpid()}"
    temp.write_bytes(data)
    temp.chmod(0o755)
    os.replace(temp, path)
    nodes = bench_nodes(path)
    if nodes != BENCH_NODES:
        raise EngineRefused(f"engine {digest[:12]}: bench gives {nodes} nodes, not {BENCH_NODES}")
    checked.write_text(f"{nodes}\n")
    return path
