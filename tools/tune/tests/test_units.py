"""Gene strings against the engine's own reading, the PBIL step, the match
statistics against values worked out by hand, the driver's result, and the
engine check of a worker."""
import hashlib
import json
import os
import pathlib
import shutil
import subprocess

import numpy as np
import pytest

from velkor_tune import campaigns, engine, fit, genes, label, match, pbil, report, spsa, stats

ROOT = pathlib.Path(__file__).resolve().parents[3]
DATA = pathlib.Path(__file__).resolve().parent / "data"
ENGINE = os.environ.get("VELKOR_ENGINE", str(ROOT / "build" / "release" / "velkor"))
TEXEL = str(pathlib.Path(ENGINE).parent / "velkor_texel")


def engine_genes(text):
    out = subprocess.run([ENGINE, "-pbil=" + text], input="quit\n", capture_output=True,
                         text=True, timeout=30).stdout
    return [int(line.split("=")[1]) for line in out.splitlines() if line.startswith("info debug pbil[")]


@pytest.mark.skipif(not os.access(ENGINE, os.X_OK), reason="no engine build")
def test_strings_read_as_the_engine_reads_them():
    rng = np.random.default_rng(7)
    texts = [genes.DEFAULT_STRING, "1" * genes.BITS, "0" * genes.BITS, "x1" * (genes.BITS // 2)] \
        + pbil.sample(pbil.State(), 5, rng)
    for text in texts:
        assert engine_genes(text) == genes.decode(text), text
    assert engine_genes(genes.DEFAULT_STRING) == list(genes.DEFAULTS)


def test_the_gene_table_read():
    table = genes.TABLE.read_text()
    assert genes.read_table(table) == (genes.GENE_SIZE, genes.GENE_NAMES, genes.DEFAULTS)
    for broken in (table.replace("bits ", "# bits "), table + "king_danger ten king danger\n"):
        with pytest.raises(ValueError, match="genes.txt: no .bits N. line|genes.txt: not a gene: 'king_danger ten"):
            genes.read_table(broken)


def test_gray_coding():
    assert genes.decode("000111" + "101011" + "0" * (genes.BITS - 12))[:2] == [5, 50]
    assert genes.decode("1" * genes.BITS) == [42] * genes.GENE_NUMBER  # 111111 is 42 in Gray code
    assert all(genes.gray_decode(genes.gray_encode(v)) == v for v in range(genes.HIGH + 1))
    assert all(bin(genes.gray_encode(v) ^ genes.gray_encode(v + 1)).count("1") == 1 for v in range(genes.HIGH))
    with pytest.raises(ValueError):
        genes.decode("1" * (genes.BITS - 1))


def test_pbil_step():
    no_mutation = pbil.Settings(mutation_probability=0.0)
    half = genes.BITS // 2
    best, worst = "1" * half + "0" * half, "0" * genes.BITS
    state = pbil.update(pbil.State(), [worst, best], [0.2, 0.9], no_mutation, np.random.default_rng(1))
    # 0.5 -> 0.55 by the learning rate, then 0.55 * 0.925 + 0.075 where best and worst differ.
    assert state.probabilities[:half] == pytest.approx([0.58375] * half)
    # Where they agree on a zero: 0.5 * 0.9 only.
    assert state.probabilities[half:] == pytest.approx([0.45] * half)
    mutated = pbil.update(pbil.State(), [best, worst], [1, 0], pbil.Settings(mutation_probability=1.0),
                          np.random.default_rng(1))
    assert all(abs(p - q) == pytest.approx(0.05 * q) or abs(p - q) == pytest.approx(0.05 * (1 - q))
               for p, q in zip(mutated.probabilities, state.probabilities))
    assert pbil.entropy(pbil.State()) == pytest.approx(1.0)


def test_statistics():
    even = stats.summary([1, 0, 2, 0, 1])
    # mean 0.5, variance 0.125 a pair, se sqrt(0.125 / 4) = 0.17678;
    # 0.5 + 1.96 * 0.17678 = 0.84648 -> -400 log10(1 / 0.84648 - 1) = 296.6 Elo.
    assert (even["score"], even["elo"], even["los"]) == (0.5, pytest.approx(0.0), pytest.approx(0.5))
    assert even["elo_error"] == pytest.approx(296.6, abs=0.1)
    ahead = stats.summary([0, 1, 2, 3, 4])
    # mean (0.25 + 1 + 2.25 + 4) / 10 = 0.75 -> 400 log10(3) = 190.85 Elo.
    assert ahead["score"] == pytest.approx(0.75)
    assert ahead["elo"] == pytest.approx(190.85, abs=0.01)
    assert ahead["los"] > 0.99


def test_sequential_test_and_errors():
    # 100 pairs: mean (5 + 20 + 18.75 + 10) / 100 = 0.5375, deviation of a pair 0.25341;
    # bound 5 nElo = 5 / 347.44 * sqrt(2) = 0.020352 deviations of a pair, bound 0 = 0;
    # LLR = 100 * 0.020352 * (0.0375 / 0.25341 - 0.010176) = 0.28046.
    q = stats.sprt([5, 20, 40, 25, 10], 0, 5)
    assert q["llr"] == pytest.approx(0.28046, abs=1e-5)
    assert (q["lower"], q["upper"], q["verdict"]) == (pytest.approx(-2.944, abs=1e-3), pytest.approx(2.944, abs=1e-3),
                                                      "running")
    assert stats.sprt([0, 0, 10, 30, 60], 0, 5)["verdict"] == "H1 accepted"
    assert stats.sprt([60, 30, 10, 0, 0], 0, 5)["verdict"] == "H0 accepted"
    assert stats.sprt([0, 0, 7, 0, 0], 0, 5)["llr"] == 0  # no spread: nothing learnt yet
    assert stats.score_error([5, 20, 40, 25, 10]) == pytest.approx(0.025341, abs=1e-6)
    assert stats.score_error([0, 0, 1, 0, 0]) == 0


def test_expected_gene_values():
    n = genes.GENE_NUMBER
    mean, sd = report.gene_moments([0.5] * genes.BITS)  # every value of LOW..HIGH as likely
    uniform = (genes.HIGH / 2, (((genes.HIGH + 1) ** 2 - 1) / 12) ** 0.5)
    assert mean == pytest.approx([uniform[0]] * n) and sd == pytest.approx([uniform[1]] * n, abs=0.01)
    certain = [float(c) for c in genes.DEFAULT_STRING]
    mean, sd = report.gene_moments(certain)
    assert list(mean) == pytest.approx(list(genes.DEFAULTS)) and sd == pytest.approx([0] * n, abs=1e-6)
    assert pbil.consensus(certain) == genes.DEFAULT_STRING


@pytest.mark.skipif(not os.access(ENGINE, os.X_OK), reason="no engine build")
def test_the_drivers_result_read(tmp_path):
    # Two games at depth 1 of the driver's test engine against Velkor; it
    # crashes on its second search, which only the second game reaches.
    fixtures = match.DRIVER.parent / "tests" / "fixtures"
    run = subprocess.run(["node", str(match.DRIVER), "--engine", str(fixtures / "fake-uci.mjs"),
                          "--opponents", f"base={ENGINE}", "--games", "2", "--depth", "1", "--max-plies", "6",
                          "--openings", str(fixtures / "openings.txt"), "--seed", "7", "--random-plies", "2",
                          "--no-compliance", "--pgn", str(tmp_path / "games.pgn"), "--json", str(tmp_path / "r.json")],
                         env={**os.environ, "FAKE_UCI": "crash:2"}, capture_output=True, text=True, timeout=120)
    assert run.returncode == 1, run.stderr
    record = match.parse(json.loads((tmp_path / "r.json").read_text()))
    assert (record["wins"], record["draws"], record["losses"], record["score"]) == (0, 1, 1, 0.25)
    assert record["penta"] == [0, 1, 0, 0, 0]
    assert record["failures"] == {"crash": 1, "stall": 0, "illegal": 0, "illegalPv": 0, "timeForfeit": 0, "driver": 0}
    assert record["base_failures"] == {"crash": 0, "stall": 0, "illegal": 0, "illegalPv": 0, "timeForfeit": 0}
    assert [(g["white"], g["ending"], g["plies"], g["points"]) for g in record["per_game"]] == \
        [("Velkor", "move cap", 6, 0.5), ("base", "crash", 5, 0)]
    assert record["plies"] == 11


def test_engine_refused(tmp_path, monkeypatch):
    monkeypatch.setattr(engine, "CACHE", tmp_path)
    liar = b"#!/bin/sh\necho '123 nodes in 1 ms, speed = 1 nodes/s'\n"
    digest = hashlib.sha256(liar).hexdigest()
    with pytest.raises(engine.EngineRefused, match=f"123 nodes, not {engine.BENCH_NODES}$"):
        engine.install(liar, digest)
    with pytest.raises(engine.EngineRefused, match="do not match"):
        engine.install(liar + b"#", digest)
    assert not (tmp_path / digest / "bench-ok").exists()


@pytest.mark.skipif(not os.access(TEXEL, os.X_OK), reason="no build of the fitting tool")
def test_fit(tmp_path):
    # 137 quiet positions of depth-6 games, each with its game's result and, as
    # the teacher's score, the logistic of the score at scale 1 under the
    # string of labelled-teacher.txt (the defaults of the day).
    labelled = DATA / "labelled.txt"
    teacher = (DATA / "labelled-teacher.txt").read_text().strip()
    taught = fit.fit(labelled, pathlib.Path(TEXEL), teacher, lam=1.0)
    # Labels that the string predicts exactly: the fit has nothing to change.
    assert (taught["genes"], taught["scale"]) == (teacher, 1.0)
    assert taught["held_out_before"] == taught["held_out_after"] == 0.621585
    assert "137 positions (13 held out, 137 with a teacher's score, lambda 1.00), 0 refused" in taught["log"]
    # Game results alone, from a string of its own.
    start = genes.encode([7, 2, 10, 5, 5, 15, 1, 10, 10, 5, 10, 2, 50, 29])
    results = fit.fit(labelled, pathlib.Path(TEXEL), start, lam=0.0)
    assert results["weights"] == [5, 0, 8, 18, 0, 63, 0, 0, 16, 0, 0, 2, 8, 63]
    assert (results["scale"], results["loss"]) == (1.95, 0.323331)
    assert (results["held_out_before"], results["held_out_after"]) == (0.524196, 0.442202)
    text = fit.describe(results)
    # Written where the campaign page looks, it shows the losses and the string.
    (tmp_path / "fit-lambda0.txt").write_text(text + "\n")
    [part] = campaigns.parts(tmp_path)
    assert (part["losses"], part["genes"]) == (text.splitlines()[0], results["genes"])
    assert f"at the edge of {genes.LOW}..{genes.HIGH}: pawn chain, straight guard, bishop pair, king shelter, king danger, doubled," \
           " isolated, rook on an open file" in text
    with pytest.raises(ValueError, match="too few positions"):
        fit.fit(DATA / "missing.txt", pathlib.Path(TEXEL))


def test_spsa_schedules_and_step():
    s = {"iterations": 100, "c_end": 3.15, "r_end": 0.002}
    # A = 10, a = 0.002 * 3.15^2 * 110^0.602 = 0.019845 * 16.940195 = 0.336178;
    # c_1 = 3.15 * 100^0.101 = 3.15 * 1.592209 = 5.015457;
    # R_1 = 0.336178 / 11^0.602 / c_1^2 = 0.336178 / 4.235634 / 25.154814 = 0.0031552.
    assert spsa.schedule(s, 1) == pytest.approx((5.015457, 0.0031552), rel=2e-5)
    assert spsa.schedule(s, 100) == pytest.approx((3.15, 0.002))  # the schedules end at c_end and r_end
    # theta moves by R c (W - L) delta: 0.01 * 5 * 3 = 0.15, clipped to LOW..HIGH.
    n = genes.GENE_NUMBER
    delta = [1, -1] * (n // 2)
    theta = spsa.step([10.0] * (n - 2) + [genes.HIGH - 0.1, 0.1], delta, 5.0, 0.01, 3)
    assert theta == pytest.approx([10.15, 9.85] * (n // 2 - 1) + [genes.HIGH, 0.0])
    assert spsa.step(theta, delta, 5.0, 0.01, 0) == theta
    # Stochastic rounding keeps the mean: 10.3 rounds up three times in ten.
    ups = np.mean([spsa.rounded([10.3], np.random.default_rng(k))[0] for k in range(4000)])
    assert ups == pytest.approx(10.3, abs=0.03)
    delta, plus, minus = spsa.perturbation([0.0] + [31.5] * (n - 1), 5.0, np.random.default_rng(3))
    assert all(abs(p - m) in (9, 10, 11) for p, m in zip(plus[1:], minus[1:]))
    assert (plus[0], minus[0]) == ((5, 0) if delta[0] > 0 else (0, 5))
    # The answer is theta, rounded: never a sampled point.
    assert spsa.answer({"theta": [5.4, 2.6] + [10.0] * (n - 2)}) == genes.encode([5, 3] + [10] * (n - 2))


def test_what_the_cluster_cost_a_campaign(tmp_path):
    # A result that arrived twice counts once on the page.
    shutil.copytree(ROOT / "tuning" / "fit1" / "clock-4+0.04", tmp_path / "m")
    lines = (tmp_path / "m" / "results.jsonl").read_text().splitlines(keepends=True)
    (tmp_path / "m" / "results.jsonl").write_text("".join(lines[:3] + lines[2:]))
    summary = json.loads((tmp_path / "m" / "summary.json").read_text())
    # A worker lost, its task begun again; the scheduler gone for 4 s; a call
    # killed while it waited for the scheduler, the next one 30 s later; then no worker.
    events = [(0, "started", {"task": 0}), (10, "worker-lost", {"worker": "w", "tasks": [0]}),
              (11, "rerun", {"task": 0, "why": "worker lost", "lost": 10.0}), (11, "started", {"task": 0}),
              (20, "scheduler-lost", {}), (24, "scheduler-back", {"away": 4.0}),
              (25, "rerun", {"task": 0, "why": "scheduler lost", "lost": 5.5}), (30, "scheduler-lost", {}),
              (60, "rerun", {"task": 0, "why": "an earlier call stopped", "lost": None}),
              (70, "no-workers", {"since": 65, "lend": "make tune-worker SCHEDULER=tcp://h:1"})]
    (tmp_path / "m" / "events.jsonl").write_text("".join(json.dumps({"at": at, "event": kind, **fields}) + "\n"
                                                         for at, kind, fields in events))
    [part] = campaigns.parts(tmp_path / "m")
    assert [part[k] for k in ("wins", "draws", "losses", "penta")] == [summary[k] for k in
                                                                       ("wins", "draws", "losses", "penta")]
    assert part["faults"] == {"lost_workers": 1, "reruns": 3, "lost_play": 15.5, "absences": 2, "away": 34.0,
                              "away_since": None, "idle_since": 65, "lend": "make tune-worker SCHEDULER=tcp://h:1"}


def test_labels_still_in_chunks_are_on_the_page(tmp_path):
    # Two chunks of three, named as the command names them, in a folder of nothing else.
    chunks = label.parts_folder(label.labelled(tmp_path / "c" / "positions.txt"))
    chunks.mkdir(parents=True)
    for k in (0, 2):
        (chunks / label.part_name(k, 3, 10)).write_text("FEN;1;0.5\n" * 4)
    assert campaigns.folders(tmp_path) == [tmp_path / "c"]
    [part] = campaigns.parts(tmp_path / "c")
    assert [part[k] for k in ("kind", "file", "chunks", "total_chunks", "positions", "final")] == \
        ["labels", "positions.labelled.txt", 2, 3, 8, False]
