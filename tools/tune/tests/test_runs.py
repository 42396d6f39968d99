"""Whole runs through real Dask clusters: a resumed run ends where an
uninterrupted one does, and a cluster that loses a worker mid-run loses no
result. The games are real, at depth 2."""
import json
import os
import re
import pathlib
import signal
import subprocess
import sys
import time

import pytest

from velkor_tune import label

ROOT = pathlib.Path(__file__).resolve().parents[3]
TUNE = ROOT / "tools" / "tune" / "velkor-tune"
ENGINE = os.environ.get("VELKOR_ENGINE", str(ROOT / "build" / "release" / "velkor"))
BOOK = ROOT / "tools" / "tune" / "book" / "book.epd"
TINY = ["--generations", "2", "--population", "4", "--pairs", "1", "--depth", "2", "--seed", "3"]

pytestmark = pytest.mark.skipif(not os.access(ENGINE, os.X_OK), reason="no engine build")


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
            "--workers", 2, "--book", BOOK]
    whole, cut = tmp_path / "whole", tmp_path / "cut"
    out = finish(start(["spsa", whole, *tiny], env))
    state = json.loads((whole / "state.json").read_text())
    assert (state["batch"], state["games"], len(state["path"])) == (4, 16, 5)
    # The book is found again from the repository's top, and no random plies follow its positions.
    assert (state["settings"]["book"], state["settings"]["random_plies"]) == ("tools/tune/book/book.epd", 0)
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
        # The scheduler makes the file before it writes it: wait for the whole record.
        wait_for(lambda: scheduler_file.exists() and scheduler_file.read_text().rstrip().endswith("}"))
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
    bad = tmp_path / "bad.epd"
    bad.write_text(BOOK.read_text().splitlines()[0] + "\nrnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP w KQkq - ce 0;\n")
    run = subprocess.run([sys.executable, str(TUNE), "verify", "defaults", "--book", str(bad), "--depth", "2"], env=env,
                         capture_output=True, text=True)
    assert (run.returncode, run.stderr) == (1, f"velkor-tune: {bad}:2: bad FEN: Invalid FEN: piece data does not"
                                               f" contain 8 '/'-delimited rows\n")
    # The shipped book unless told, its positions with no random plies after them.
    out = finish(start(["verify", "defaults", "--games", 8, "--depth", 2, "--sprt", "0,5", "--workers", 2,
                        "--engine", ENGINE, "--out", tmp_path], env))
    settings = json.loads((tmp_path / "match.json").read_text())
    assert (settings["book_file"], settings["random_plies"]) == ("tools/tune/book/book.epd", 0)
    fens = {" ".join(line.split()[:4]) for line in BOOK.read_text().splitlines()}
    starts = re.findall(r'\[FEN "([^"]*)"\]', (tmp_path / "games.pgn").read_text())
    assert len(starts) == 8 and all(" ".join(f.split()[:4]) in fens for f in starts)
    # The defaults against themselves: every pair is a mirror, one point each.
    assert "games 8: +" in out and "pentanomial 0 0 4 0 0" in out
    assert "score 0.5000, Elo +0.0 +/- 0.0 (95 %), LOS 50.0 %" in out
    assert "SPRT nElo [0, 5], alpha = beta = 0.05: LLR 0.00 (-2.94, 2.94): running" in out
    assert json.loads((tmp_path / "summary.json").read_text())["penta"] == [0, 0, 4, 0, 0]
    assert (tmp_path / "games.pgn").read_text().count("[Event ") == 8


def book_lines(path):
    return [line.split() for line in path.read_text().splitlines()]


@pytest.mark.skipif(not os.access(label.TEACHER, os.X_OK), reason="no teacher engine")
def test_book_is_made_carried_on_and_refuses_other_settings(tmp_path, env):
    small = ["--plies", 4, "--teacher-depth", 5, "--workers", 2]
    whole, cut = tmp_path / "whole", tmp_path / "cut"
    out = finish(start(["book", whole, "--positions", 40, *small], env))
    assert "40 positions of 4 plies within +-50 cp by Stockfish" in out and "at depth 5" in out
    lines = book_lines(whole / "book.epd")
    # Distinct positions (the move counters aside), every one legal for the driver, inside the band.
    assert len({" ".join(w[:4]) for w in lines}) == len(lines) == 40
    assert [w[4:6] + w[8:9] + w[10:] for w in lines] == [["hmvc", w[5], "ce", "acd", "5;"] for w in lines]
    assert all(abs(int(w[9].rstrip(";"))) <= 50 for w in lines)
    check = subprocess.run(["node", str(ROOT / "tools" / "match" / "match.mjs"), "--openings", whole / "book.epd",
                            "--check-openings"], capture_output=True, text=True)
    assert check.stdout == f"40 positions in {whole / 'book.epd'}\n"
    indices = [r["index"] for r in records(whole)]
    assert sorted(indices) == list(range(len(indices)))  # each task run once

    # A smaller book first, then the same book carried on past a line cut by a kill: the book of one call.
    finish(start(["book", cut, "--positions", 15, *small], env))
    assert book_lines(cut / "book.epd") == lines[:15]
    with open(cut / "results.jsonl", "a") as f:
        f.write('{"index": 7, "kep')
    finish(start(["book", cut, "--positions", 40, *small], env))
    assert book_lines(cut / "book.epd") == lines
    refused = subprocess.run([sys.executable, str(TUNE), *map(str, ["book", cut, "--band", 30, *small])], env=env,
                             capture_output=True, text=True)
    assert refused.returncode == 1 and f"velkor-tune: {cut} holds a book of other settings (band)" in refused.stderr

    edge = tmp_path / "edge"
    finish(start(["book", edge, "--positions", 6, "--edge", "80,120", *small], env))
    assert all(80 <= abs(int(w[9].rstrip(";"))) <= 120 for w in book_lines(edge / "book.epd"))
