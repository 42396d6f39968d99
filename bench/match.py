#!/usr/bin/python3
"""The tuner's games, timed: the same fixed-depth match through `velkor-tune
verify` on local Dask workers, played once as the tuner played every task
when its pace was first measured (a new driver, the driver of that revision,
and two new engines for each mini-match, every pv checked) and once as it
plays now (one driver a worker, kept with its engines, a quarter of the pvs
checked). Prints plies per minute and the share of all CPU time the engines
used, side by side, and checks that both played the same games.

usage: bench/match.py [--games N] [--depth D] [--workers W] [--engine PATH]
"""
import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
TUNE = ROOT / "tools" / "tune" / "velkor-tune"
# The match driver as the tuner ran it, a task at a time, when its pace was
# first measured (61.5 games a minute at depth 6 here then).
BASELINE_REVISION = "decac9f"
# A string a little off the defaults, so that the two sides' games differ.
GENES = "000111000011011111000111000111001000000001001111001111000011011111000011001011011101"

# Runs the old driver with the options it knew: it checked every pv and had
# no random plies (the bench plays none, so both drivers play the same games).
OLD_DRIVER = """#!/bin/sh
for a; do
  shift
  if [ -n "$skip" ]; then skip=; continue; fi
  case $a in --pv-sample|--random-plies) skip=1; continue;; esac
  set -- "$@" "$a"
done
exec node {driver} "$@"
"""

# The engine, run by a shell that notes its start, and on its end the CPU time
# it used: the same count of the engines' CPU for both drivers, whatever they
# report themselves.
ENGINE = """#!/bin/bash
echo start >> {log}
{engine} "$@"
status=$?
# the shell's own CPU time, then its children's: the engine's
{{ echo end; times; }} >> {log}
exit $status
"""


def engines_cpu(log: pathlib.Path) -> float:
    """The engines' CPU seconds in the log, once every engine started has ended."""
    for _ in range(300):
        lines = log.read_text().splitlines() if log.exists() else []
        starts, ends = lines.count("start"), lines.count("end")
        if starts == ends and len(lines) == starts + 3 * ends:
            break
        time.sleep(0.1)
    else:
        sys.exit(f"{log}: an engine did not end")
    seconds = 0.0
    for i, line in enumerate(lines):
        if line == "end":
            for minutes, secs in re.findall(r"(\d+)m([\d.]+)s", lines[i + 2]):
                seconds += 60 * int(minutes) + float(secs)
    return seconds


def play(args, per_task: str | None, out: pathlib.Path, engine: pathlib.Path, log: pathlib.Path) -> dict:
    command = [sys.executable, str(TUNE), "verify", GENES, "--depth", str(args.depth), "--games", str(args.games),
               "--workers", str(args.workers), "--engine", str(engine), "--out", str(out), "--seed", "7",
               "--random-plies", "0"]
    env = {**os.environ, "VELKOR_TUNE_DRIVER_PER_TASK": per_task or ""}
    log.write_text("")
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
    from velkor_tune import records  # a match's summary counts as a record does
    return {"wall": wall, "cpu": cpu, "plies": summary["plies"], "engines": engines_cpu(log),
            "games": records.games(summary), "results": results, "failures": records.failures(summary)}


def script(path: pathlib.Path, text: str) -> pathlib.Path:
    path.write_text(text)
    path.chmod(0o755)
    return path


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("--games", type=int, default=200)
    p.add_argument("--depth", type=int, default=6)
    p.add_argument("--workers", type=int, default=2)
    p.add_argument("--engine", type=pathlib.Path, default=ROOT / "build" / "release" / "velkor")
    args = p.parse_args()
    rows = {}
    with tempfile.TemporaryDirectory(prefix="velkor-bench-match-") as name:
        space = pathlib.Path(name)
        if subprocess.run(f"git -C {ROOT} archive {BASELINE_REVISION} tools/match | tar -x -C {space}",
                          shell=True).returncode != 0:
            sys.exit(f"the baseline needs revision {BASELINE_REVISION} in this clone's history")
        (space / "node_modules").symlink_to(ROOT / "node_modules")
        old_driver = script(space / "old-driver", OLD_DRIVER.format(driver=space / "tools" / "match" / "match.mjs"))
        log = space / "engines.log"
        engine = script(space / "velkor", ENGINE.format(engine=args.engine.resolve(), log=log))
        # The workers' check of a new engine (its bench) is made here, before
        # either run, so that neither pays for it.
        sys.path.insert(0, str(ROOT / "tools" / "tune"))
        from velkor_tune import engine as engines
        engines.install(*engines.load(engine))
        for row, per_task in ((f"a driver a task ({BASELINE_REVISION})", str(old_driver)), ("kept drivers", None)):
            print(f"{row}: {args.games} games at depth {args.depth}, {args.workers} workers ...", flush=True)
            rows[row] = play(args, per_task, space / row.split()[0], engine, log)
    print(f"\n{'':26}{'games':>7}{'plies':>8}{'wall s':>9}{'plies/min':>11}{'games/min':>11}"
          f"{'CPU s':>8}{'engines':>9}{'failures':>10}")
    for row, r in rows.items():
        print(f"{row:26}{r['games']:7d}{r['plies']:8d}{r['wall']:9.1f}{r['plies'] / r['wall'] * 60:11.0f}"
              f"{r['games'] / r['wall'] * 60:11.1f}{r['cpu']:8.1f}{100 * r['engines'] / r['cpu']:8.1f}%{r['failures']:10d}")
    old, new = rows.values()
    print(f"\nplies per minute: {new['plies'] / new['wall'] / (old['plies'] / old['wall']):.2f} x;"
          f" the engines' share of the CPU: {100 * old['engines'] / old['cpu']:.1f} % -> {100 * new['engines'] / new['cpu']:.1f} %")
    same = old["results"] == new["results"]
    print("the same games' results in both: " + ("yes" if same else "NO"))
    return 0 if same else 1


if __name__ == "__main__":
    sys.exit(main())
