#!/usr/bin/python3
"""The tuner's games, timed: the same fixed-depth match through `velkor-tune
verify` on local Dask workers, played once as the tuner first played every
task (a new driver and two new engines for each mini-match, every pv
checked) and once as it plays now (one driver a worker, kept with its
engines, a quarter of the pvs checked). Prints plies per minute and the
share of all CPU time the engines used, side by side, and checks that both
played the same games.

usage: bench/match.py [--games N] [--depth D] [--workers W] [--engine PATH]
"""
import argparse
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
TUNE = ROOT / "tools" / "tune" / "velkor-tune"
# A string a little off the defaults, so that the two sides' games differ.
GENES = "000111000011011111000111000111001000000001001111001111000011011111000011001011011101"


def play(args, per_task: bool, out: pathlib.Path) -> dict:
    command = [sys.executable, str(TUNE), "verify", GENES, "--depth", str(args.depth), "--games", str(args.games),
               "--workers", str(args.workers), "--engine", str(args.engine), "--out", str(out), "--seed", "7"]
    env = {**os.environ, "VELKOR_TUNE_DRIVER_PER_TASK": "1" if per_task else ""}
    started = time.monotonic()
    process = subprocess.Popen(command, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    # wait4 gives the CPU time of the whole tree the tuner waited for: its
    # Dask workers, their drivers and the engines.
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - started
    if status != 0:
        sys.exit(f"velkor-tune verify failed:\n{process.stderr.read()[-2000:]}")
    summary = json.loads((out / "summary.json").read_text())
    results = sorted((r["pair_offset"], r["penta"], r["wins"], r["draws"], r["losses"])
                     for r in map(json.loads, (out / "results.jsonl").read_text().splitlines()))
    cpu = usage.ru_utime + usage.ru_stime
    return {"wall": wall, "cpu": cpu, "plies": summary["plies"], "engines": summary["cpu"]["engines"],
            "games": summary["wins"] + summary["draws"] + summary["losses"], "results": results,
            "failures": sum(summary["failures"].values()) + sum(summary["base_failures"].values())}


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("--games", type=int, default=200)
    p.add_argument("--depth", type=int, default=6)
    p.add_argument("--workers", type=int, default=2)
    p.add_argument("--engine", type=pathlib.Path, default=ROOT / "build" / "release" / "velkor")
    args = p.parse_args()
    # The workers' check of a new engine (its bench) is made here, before
    # either run, so that neither pays for it.
    sys.path.insert(0, str(ROOT / "tools" / "tune"))
    from velkor_tune import engine
    engine.install(*engine.load(args.engine))
    rows = {}
    with tempfile.TemporaryDirectory(prefix="velkor-bench-match-") as space:
        for name, per_task in (("a driver a task", True), ("kept drivers", False)):
            print(f"{name}: {args.games} games at depth {args.depth}, {args.workers} workers ...", flush=True)
            rows[name] = play(args, per_task, pathlib.Path(space) / name.replace(" ", "-"))
    print(f"\n{'':18}{'games':>7}{'plies':>8}{'wall s':>9}{'plies/min':>11}{'games/min':>11}"
          f"{'CPU s':>8}{'engines':>9}{'failures':>10}")
    for name, r in rows.items():
        print(f"{name:18}{r['games']:7d}{r['plies']:8d}{r['wall']:9.1f}{r['plies'] / r['wall'] * 60:11.0f}"
              f"{r['games'] / r['wall'] * 60:11.1f}{r['cpu']:8.1f}{100 * r['engines'] / r['cpu']:8.1f}%{r['failures']:10d}")
    old, new = rows.values()
    print(f"\nplies per minute: {new['plies'] / new['wall'] / (old['plies'] / old['wall']):.2f} x;"
          f" the engines' share of the CPU: {100 * old['engines'] / old['cpu']:.1f} % -> {100 * new['engines'] / new['cpu']:.1f} %")
    same = old["results"] == new["results"]
    print("the same games' results in both: " + ("yes" if same else "NO"))
    return 0 if same else 1


if __name__ == "__main__":
    sys.exit(main())
