"""Whole runs through real Dask clusters: a resumed run ends where an
uninterrupted one does, and a cluster that loses a worker mid-run loses no
result. The games are real, at depth 2."""
import json
import os
import pathlib
import signal
import subprocess
import sys
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[3]
TUNE = ROOT / "tools" / "tune" / "velkor-tune"
ENGINE = os.environ.get("VELKOR_ENGINE", str(ROOT / "build" / "release" / "velkor"))
TINY = ["--generations", "2", "--population", "4", "--pairs", "1", "--depth", "2", "--seed", "3"]

pytestmark = pytest.mark.skipif(not os.access(ENGINE, os.X_OK), reason="no engine build")


@pytest.fixture(scope="module")
def env(tmp_path_factory):
    """One engine cache for the module: the bench check runs once."""
    return {**os.environ, "VELKOR_TUNE_CACHE": str(tmp_path_factory.mktemp("cache")),
            "PYTHONPATH": str(ROOT / "tools" / "tune")}


def start(args, env, **kw):
    return subprocess.Popen([sys.executable, str(TUNE), *map(str, args)], env=env, start_new_session=True,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **kw)


def finish(process, timeout=300):
    out, _ = process.communicate(timeout=timeout)
    assert process.returncode == 0, out
    return out


def records(out):
    path = out / "results.jsonl"
    return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []


def wait_for(condition, timeout=300):
    end = time.monotonic() + timeout
    while not condition():
        assert time.monotonic() < end, "timed out"
        time.sleep(0.05)


def played(out):
    """What a run decided, without when or where its games were played."""
    state = json.loads((out / "state.json").read_text())
    games = sorted((r["generation"], r["candidate"], r["genes"], r["penta"], r["wins"], r["draws"], r["losses"])
                   for r in records(out))
    return state["history"], state["probabilities"], state["best"], games


def test_resumed_run_ends_where_the_whole_run_ends(tmp_path, env):
    whole, cut = tmp_path / "whole", tmp_path / "cut"
    out = finish(start(["run", whole, *TINY, "--engine", ENGINE, "--workers", 2], env))
    assert "generation 2 done" in out and "games 16" in out
    # The answer is the vector's consensus; the best-scoring sample is named as such.
    best, state = (whole / "best.txt").read_text(), json.loads((whole / "state.json").read_text())
    assert best.splitlines()[0] == "".join("1" if p > 0.5 else "0" for p in state["probabilities"])
    assert f"best-scoring sample so far (its score is the best of many noisy ones: luck as much as strength):\n" \
           f"{state['best']['genes']}\n" in best
    assert all((whole / name).stat().st_size > 0 for name in ("bits.png", "genes.png", "fitness.png"))
    assert (whole / "pgn" / "generation-001.pgn").read_text().count("[Event ") == 8

    process = start(["run", cut, *TINY, "--engine", ENGINE, "--workers", 2], env)
    wait_for(lambda: len(records(cut)) >= 5 or process.poll() is not None)
    os.killpg(process.pid, signal.SIGKILL)
    process.wait()
    with open(cut / "results.jsonl", "a") as f:  # a line cut short by the kill
        f.write('{"generation": 1, "cand')
    finish(start(["resume", cut, "--workers", 2], env))
    assert played(cut) == played(whole)
    assert len(records(cut)) == 8


def test_killed_spsa_run_resumes_to_the_same_theta(tmp_path, env):
    tiny = ["--iterations", 8, "--pairs", 1, "--batch", 2, "--depth", 2, "--seed", 5, "--engine", ENGINE,
            "--workers", 2]
    whole, cut = tmp_path / "whole", tmp_path / "cut"
    out = finish(start(["spsa", whole, *tiny], env))
    state = json.loads((whole / "state.json").read_text())
    assert (state["batch"], state["games"], len(state["path"])) == (4, 16, 5)
    assert "SPSA theta after 4 of 4 batches (16 games" in out and "verify it against the defaults" in out
    assert (whole / "theta.txt").read_text() in out
    assert (whole / "spsa.png").stat().st_size > 0

    # Stopped as Ctrl-C stops it, it names the command that carries on.
    process = start(["spsa", cut, *tiny], env)
    wait_for(lambda: len(records(cut)) >= 3 or process.poll() is not None)
    process.send_signal(signal.SIGINT)
    out, _ = process.communicate(timeout=60)
    assert process.returncode == 130 and out.endswith(f"\nstopped; carry on with: velkor-tune spsa {cut}\n"), out
    finish(start(["spsa", cut, "--workers", 2], env))
    resumed = json.loads((cut / "state.json").read_text())
    assert (resumed["theta"], resumed["path"]) == (state["theta"], state["path"])


def test_cluster_loses_a_worker_and_no_result(tmp_path, env):
    scheduler_file = tmp_path / "scheduler.json"
    processes = [subprocess.Popen(["dask-scheduler", "--host", "127.0.0.1", "--port", "0", "--no-dashboard",
                                   "--scheduler-file", str(scheduler_file)], env=env, stderr=subprocess.DEVNULL)]
    try:
        wait_for(scheduler_file.exists)
        address = json.loads(scheduler_file.read_text())["address"]
        workers = [subprocess.Popen(["dask-worker", address, "--nthreads", "1", "--no-nanny", "--no-dashboard",
                                     "--local-directory", str(tmp_path / f"w{k}")], env=env, stderr=subprocess.DEVNULL)
                   for k in range(2)]
        processes += workers
        out = tmp_path / "out"
        run = start(["run", out, "--generations", 1, "--population", 8, "--pairs", 1, "--depth", 2,
                     "--engine", ENGINE, "--scheduler", address], env)
        processes.append(run)
        wait_for(lambda: len({r["worker"] for r in records(out)}) == 2 or run.poll() is not None)
        workers[0].kill()
        finish(run)
        got = records(out)
        assert sorted(r["candidate"] for r in got) == list(range(8))
        assert len({r["worker"] for r in got}) == 2
    finally:
        for p in processes:
            p.kill()
            p.wait()


def test_verify_reports_the_match(tmp_path, env):
    out = finish(start(["verify", "defaults", "--games", 8, "--depth", 2, "--sprt", "0,5", "--workers", 2,
                        "--engine", ENGINE, "--out", tmp_path], env))
    # The defaults against themselves: every pair is a mirror, one point each.
    assert "games 8: +" in out and "pentanomial 0 0 4 0 0" in out
    assert "score 0.5000, Elo +0.0 +/- 0.0 (95 %), LOS 50.0 %" in out
    assert "SPRT nElo [0, 5], alpha = beta = 0.05: LLR 0.00 (-2.94, 2.94): running" in out
    assert json.loads((tmp_path / "summary.json").read_text())["penta"] == [0, 0, 4, 0, 0]
    assert (tmp_path / "games.pgn").read_text().count("[Event ") == 8
