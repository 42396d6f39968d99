#!/usr/bin/python3
"""The tuner's pace against a dedicated runner's, on the same work: a
fixed-depth match of the shipped tuned string against the defaults through
`velkor-tune verify` on local Dask workers, from its book, then the same
games replayed search for search by the leanest runner there can be
(bench/runner.cpp: pipes, a counter, no rules to judge), with as many games
at once as the tuner had workers. Prints plies per minute and the share of
all CPU time the engines used, side by side, the tuner's pace as a ratio of
the runner's, and whether the runner's engines answered every search with
the tuner's move (the same work).

usage: bench/match.py [--games N] [--depth D] [--workers W] [--engine PATH] [--runner PATH]
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
TUNED = ROOT / "tools" / "tune" / "tuned.txt"
sys.path.insert(0, str(ROOT / "tools" / "tune"))
from velkor_tune import engine as engines, genes, match, records  # noqa: E402

# The engine, run by a shell that notes its start, and on its end the CPU time
# it used: the same count of the engines' CPU in both runs, whatever the
# runners report themselves.
ENGINE = """#!/bin/bash
echo start >> {log}
{engine} "$@"
status=$?
# the shell's own CPU time, then its children's: the engine's
{{ echo end; times; }} >> {log}
exit $status
"""

# The games of a PGN file as the runner reads them: White ("a" for the
# tested string), the start and the moves, from the review's own reader.
GAMES = """
import { readFileSync } from 'node:fs';
import { readGame } from '%s';
const text = readFileSync(process.argv[1], 'utf8');
for (const game of text.split(/\\n(?=\\[Event )/).filter((g) => g.trim())) {
  const { headers, startFen, moves } = readGame(game);
  const white = headers.find(([key]) => key === 'White')[1];
  console.log([white === process.argv[2] ? 'a' : 'b', startFen ?? 'startpos', moves.map((m) => m.uci).join(' ')].join('|'));
}
""" % (ROOT / "client" / "review.js")


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


def timed(command, log: pathlib.Path, given: str | None = None, **popen) -> tuple[subprocess.Popen, float, float, float]:
    """Runs the command to its end, `given` on its input: the process, its wall seconds, the CPU
    seconds of its whole tree (wait4 counts every process it waited for:
    Dask workers, drivers, engines) and the engines' CPU seconds."""
    log.write_text("")
    started = time.monotonic()
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL if given is None else subprocess.PIPE, **popen)
    if given is not None:
        process.stdin.write(given)
        process.stdin.close()
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    return process, time.monotonic() - started, usage.ru_utime + usage.ru_stime, engines_cpu(log)


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("--games", type=int, default=400)  # a verification's own default
    p.add_argument("--depth", type=int, default=6)
    p.add_argument("--workers", type=int, default=2)
    p.add_argument("--engine", type=pathlib.Path, default=ROOT / "build" / "release" / "velkor")
    p.add_argument("--runner", type=pathlib.Path, default=ROOT / "build" / "release" / "velkor_runner")
    args = p.parse_args()
    tested = TUNED.read_text().split()[0]
    rows = {}
    with tempfile.TemporaryDirectory(prefix="velkor-bench-match-") as name:
        space = pathlib.Path(name)
        log = space / "engines.log"
        engine = space / "velkor"
        engine.write_text(ENGINE.format(engine=args.engine.resolve(), log=log))
        engine.chmod(0o755)
        # The workers' check of a new engine (its bench) is made here, before
        # the run, so that the tuner does not pay for it.
        engines.install(*engines.load(engine))
        print(f"velkor-tune verify: {args.games} games at depth {args.depth}, {args.workers} workers ...", flush=True)
        out = space / "verify"
        run, wall, cpu, used = timed(
            [sys.executable, str(TUNE), "verify", tested, "--depth", str(args.depth), "--games", str(args.games),
             "--workers", str(args.workers), "--engine", str(engine), "--out", str(out), "--seed", "7"],
            log, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        if run.returncode != 0:
            sys.exit(f"velkor-tune verify failed:\n{run.stderr.read()[-2000:]}")
        summary = json.loads((out / "summary.json").read_text())
        rows["velkor-tune verify"] = {"games": records.games(summary), "plies": summary["plies"], "wall": wall,
                                      "cpu": cpu, "engines": used, "failures": records.failures(summary)}
        # The tested side is the driver's "Velkor" (the base its "Velkor-base").
        games = subprocess.run(["node", "--input-type=module", "-e", GAMES, str(out / "games.pgn"), "Velkor"],
                               capture_output=True, text=True, check=True).stdout
        print(f"velkor_runner: the same {games.count(chr(10))} games, {args.workers} at a time ...", flush=True)
        run, wall, cpu, used = timed(
            [str(args.runner), str(engine), str(args.depth), str(match.HASH_MB), str(args.workers),
             f"-pbil={tested}", f"-pbil={genes.DEFAULT_STRING}"],
            log, games, stdout=subprocess.PIPE, text=True)
        answer = run.stdout.read().split()
        if run.returncode != 0 or len(answer) != 4:
            sys.exit(f"velkor_runner failed: {' '.join(answer)}")
        rows["velkor_runner"] = {"games": games.count("\n"), "plies": int(answer[1]), "wall": wall, "cpu": cpu,
                                 "engines": used, "failures": int(answer[3])}
    print(f"\n{'':20}{'games':>7}{'plies':>8}{'wall s':>9}{'plies/min':>11}{'games/min':>11}"
          f"{'CPU s':>8}{'engines':>9}{'failures':>10}")
    for row, r in rows.items():
        print(f"{row:20}{r['games']:7d}{r['plies']:8d}{r['wall']:9.1f}{r['plies'] / r['wall'] * 60:11.0f}"
              f"{r['games'] / r['wall'] * 60:11.1f}{r['cpu']:8.1f}{100 * r['engines'] / r['cpu']:8.1f}%{r['failures']:10d}")
    tuner, runner = rows.values()
    print(f"\nthe tuner's plies per minute, of the runner's: "
          f"{tuner['plies'] / tuner['wall'] / (runner['plies'] / runner['wall']):.2f}")
    same = tuner["plies"] == runner["plies"] and runner["failures"] == 0
    print("the same searches, answered with the same moves: " + ("yes" if same else "NO"))
    return 0 if same else 1


if __name__ == "__main__":
    sys.exit(main())
