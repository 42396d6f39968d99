"""A verification at a fixed depth on a real scheduler and real workers
(`velkor-tune worker`, as make tune-worker starts them) through three
faults: a worker killed, the client killed and called again, the scheduler
killed and started again on its port. Its totals are those of the same
verification without faults, each task recorded once, and the campaign
page counts what the faults cost."""
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import time

import pytest
from test_runs import ENGINE, ROOT, TUNE, records, wait_for
from velkor_tune import campaigns
from velkor_tune.runfolder import read_lines

pytestmark = pytest.mark.skipif(not os.access(ENGINE, os.X_OK), reason="no engine build")

TUNED = (ROOT / "tools" / "tune" / "tuned.txt").read_text().split()[0]
VERIFY = ["verify", TUNED, "--games", 64, "--depth", 4, "--seed", 3, "--engine", ENGINE]


def launch(args, env, log: pathlib.Path):
    return subprocess.Popen([sys.executable, str(TUNE), *map(str, args)], env=env, start_new_session=True,
                            stdout=open(log, "w"), stderr=subprocess.STDOUT)


def scheduler(port: int, log: pathlib.Path):
    return subprocess.Popen(["dask-scheduler", "--host", "127.0.0.1", "--port", str(port), "--no-dashboard"],
                            stdout=subprocess.DEVNULL, stderr=open(log, "a"), start_new_session=True)


def free_port() -> int:
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def events(out: pathlib.Path) -> list[dict]:
    return read_lines(out / "events.jsonl", repair=False)  # whole lines: the command may be writing one


def playing(out: pathlib.Path, since: int = 0) -> list[str]:
    """The workers of the tasks begun (after the first `since` events) and not recorded."""
    done = {r["pair_offset"] for r in records(out)}
    return [e["worker"] for e in events(out)[since:] if e["event"] == "started" and e["task"] not in done]


@pytest.mark.filterwarnings("ignore:make_current is deprecated:DeprecationWarning")  # Dask's client in a test
def test_a_verification_rides_out_three_faults(tmp_path, env):
    env = {**env, "VELKOR_TUNE_IDLE": "1"}
    whole, out = tmp_path / "whole", tmp_path / "cut"
    began = time.monotonic()
    assert launch([*VERIFY, "--workers", 2, "--out", whole], env, tmp_path / "whole.log").wait(120) == 0
    clean = time.monotonic() - began

    port = free_port()
    address = f"tcp://127.0.0.1:{port}"
    logs = {name: tmp_path / f"{name}.log" for name in ("first", "second", "lender", "scheduler")}
    text = lambda name: logs[name].read_text()
    command = [*VERIFY, "--scheduler", address, "--out", out]
    processes = [scheduler(port, logs["scheduler"])]
    try:
        began = time.monotonic()
        processes.append(launch(command, env, logs["first"]))
        # No worker yet: said, with what lends one.
        wait_for(lambda: f"lend one with make tune-worker SCHEDULER={address}" in text("first"), 60)
        processes.append(launch(["worker", address, "--workers", 2], env, logs["lender"]))
        from distributed import Client
        with Client(address, timeout=10) as client:
            wait_for(lambda: len(client.run(os.getpid)) == 2, 60)
            pids = client.run(os.getpid)

        # A worker killed (-9) while it plays; the command hears of it before the next fault.
        wait_for(lambda: len(records(out)) >= 1 and playing(out), 120)
        os.kill(pids[(playing(out) or list(pids))[-1]], signal.SIGKILL)
        wait_for(lambda: any(e["event"] == "worker-lost" for e in events(out)), 60)

        # The client killed (-9) while tasks play, and called again.
        since, recorded = len(events(out)), len(records(out))
        wait_for(lambda: len(records(out)) > recorded and playing(out, since), 120)
        os.killpg(processes[1].pid, signal.SIGKILL)
        processes[1].wait()
        since, recorded = len(events(out)), len(records(out))
        processes.append(launch(command, env, logs["second"]))

        # The scheduler killed (-9) while tasks play, and started again on its port a second later.
        wait_for(lambda: len(records(out)) > recorded and playing(out, since), 120)
        os.killpg(processes[0].pid, signal.SIGKILL)
        processes[0].wait()
        time.sleep(1)
        processes[0] = scheduler(port, logs["scheduler"])
        assert processes[3].wait(180) == 0, text("second")
        faulted = time.monotonic() - began
    finally:
        for p in processes:
            if p.poll() is None:
                os.killpg(p.pid, signal.SIGINT if p is processes[2] else signal.SIGKILL)
                p.wait(60)

    summary, want = (json.loads((folder / "summary.json").read_text()) for folder in (out, whole))
    assert [summary[k] for k in ("wins", "draws", "losses", "penta")] == \
           [want[k] for k in ("wins", "draws", "losses", "penta")]
    offsets = [sorted(r["pair_offset"] for r in records(folder)) for folder in (out, whole)]
    assert offsets[0] == offsets[1] == sorted(set(offsets[1]))  # each task once
    second, lender = text("second"), text("lender")
    assert f"the scheduler at {address} has gone: waiting for it to come back, up to 0:10:00\n" in second
    assert f"the scheduler at {address} is back after 0:00:0" in second
    assert "the worker tcp://127.0.0.1:" in text("first") and "is gone" in text("first")
    assert "the workers ended" in lender
    assert not any("Traceback" in text(name) for name in ("first", "second", "lender")), (second, lender)

    [part] = campaigns.parts(out)
    f = part["faults"]
    assert (f["lost_workers"], f["absences"], f["away_since"]) == (1, 1, None) and f["reruns"] >= 2, f
    # What each fault cost (pytest -s shows it): the play thrown away, and the time nothing played.
    seen, starts, lost = events(out), {}, {}
    for e in seen:
        if e["event"] == "started":
            starts[e["task"]] = e["at"]
        elif e["event"] == "worker-lost":
            lost["worker"] = sum(e["at"] - starts.get(t, e["at"]) for t in e["tasks"])
        elif e["event"] == "rerun" and e["why"] != "worker lost":
            lost[e["why"]] = lost.get(e["why"], 0) + (e["lost"] or 0)
    runs = [e["run"] for e in seen]
    second = runs.index(runs[-1])  # the first line of the second call
    idle = next((e["idle"] for e in seen[second:] if e["event"] == "workers-back"), 0.0)
    print(f"\nfault-free {clean:.1f} s, with faults {faulted:.1f} s; play lost (s): "
          + ", ".join(f"{k} {v:.1f}" for k, v in lost.items())
          + f"; the command stopped {seen[second]['at'] - seen[second - 1]['at']:.1f} s; scheduler away"
            f" {f['away']:.1f} s, then no worker {idle:.1f} s; reruns {f['reruns']}")


def test_a_scheduler_that_stays_away_and_a_task_that_fails_end_in_a_line(tmp_path, env):
    address = f"tcp://127.0.0.1:{free_port()}"
    verify = ["verify", "defaults", "--games", 2, "--depth", 2, "--scheduler", address, "--scheduler-wait", 0.05,
              "--out", tmp_path / "v"]
    run = subprocess.run([sys.executable, str(TUNE), *map(str, verify)], env=env, capture_output=True, text=True,
                         timeout=120)
    assert (run.returncode, run.stdout) == (1, f"no scheduler answers at {address}: waiting for it, up to 0:00:03\n")
    assert re.fullmatch(f"velkor-tune: the scheduler at {address} has not answered for 0:00:0[3-9]: start it again"
                        f" \\(make tune-scheduler\\) or name another with --scheduler; carry on with: velkor-tune"
                        f" {re.escape(' '.join(map(str, verify)))}\n", run.stderr), run.stderr

    positions = tmp_path / "positions.txt"
    positions.write_text("".join(line.rsplit(";", 1)[0] + "\n" for line in
                                 (pathlib.Path(__file__).parent / "data" / "labelled.txt").read_text().splitlines()[:3]))
    label = ["label", positions, "--teacher", "/bin/false", "--workers", 1]
    run = subprocess.run([sys.executable, str(TUNE), *map(str, label)], env=env, capture_output=True, text=True,
                         timeout=120)
    assert run.returncode == 1 and re.fullmatch(
        "velkor-tune: task 0 of label failed on tcp://127.0.0.1:[0-9]+: RuntimeError: the teacher ended \\(exit 1\\);"
        f" carry on with: velkor-tune {re.escape(' '.join(map(str, label)))}\n", run.stderr), run.stderr
