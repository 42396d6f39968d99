"""Gene strings against the engine's own reading, the PBIL step, the match
statistics against values worked out by hand, the driver's result, and the
engine check of a worker."""
import hashlib
import json
import os
import pathlib
import subprocess

import numpy as np
import pytest

from velkor_tune import engine, genes, match, pbil, report, stats

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
    texts = [genes.DEFAULT_STRING, "1" * 84, "0" * 84, "x1" * 42] + pbil.sample(pbil.State(), 5, rng)
    for text in texts:
        assert engine_genes(text) == genes.decode(text), text
    assert engine_genes(genes.DEFAULT_STRING) == list(genes.DEFAULTS)


def test_gray_coding():
    assert genes.decode("000111" + "101011" + "0" * 72)[:2] == [5, 50]
    assert genes.decode("1" * 84) == [42] * 14
    assert all(genes.gray_decode(genes.gray_encode(v)) == v for v in range(64))
    assert all(bin(genes.gray_encode(v) ^ genes.gray_encode(v + 1)).count("1") == 1 for v in range(63))
    with pytest.raises(ValueError):
        genes.decode("1" * 83)


def test_pbil_step():
    no_mutation = pbil.Settings(mutation_probability=0.0)
    best, worst = "1" * 42 + "0" * 42, "0" * 84
    state = pbil.update(pbil.State(), [worst, best], [0.2, 0.9], no_mutation, np.random.default_rng(1))
    # 0.5 -> 0.55 by the learning rate, then 0.55 * 0.925 + 0.075 where best and worst differ.
    assert state.probabilities[:42] == pytest.approx([0.58375] * 42)
    # Where they agree on a zero: 0.5 * 0.9 only.
    assert state.probabilities[42:] == pytest.approx([0.45] * 42)
    mutated = pbil.update(pbil.State(), [best, worst], [1, 0], pbil.Settings(mutation_probability=1.0),
                          np.random.default_rng(1))
    assert all(abs(p - q) == pytest.approx(0.05 * q) or abs(p - q) == pytest.approx(0.05 * (1 - q))
               for p, q in zip(mutated.probabilities, state.probabilities))
    assert pbil.entropy(pbil.State()) == pytest.approx(1.0)
    assert pbil.sample(pbil.State(), 3, np.random.default_rng(5)) == pbil.sample(
        pbil.State(), 3, np.random.default_rng(5))


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
    mean, sd = report.gene_moments([0.5] * 84)
    assert mean == pytest.approx([31.5] * 14) and sd == pytest.approx([18.47] * 14, abs=0.01)
    certain = [float(c) for c in genes.DEFAULT_STRING]
    mean, sd = report.gene_moments(certain)
    assert list(mean) == pytest.approx(list(genes.DEFAULTS)) and sd == pytest.approx([0] * 14, abs=1e-6)
    assert report.likeliest(certain) == genes.DEFAULT_STRING


def test_driver_result_parsing():
    record = match.parse(json.loads((DATA / "driver-result.json").read_text()))
    assert (record["wins"], record["draws"], record["losses"], record["score"]) == (0, 1, 1, 0.25)
    assert record["penta"] == [0, 1, 0, 0, 0]
    assert record["failures"] == {"crash": 1, "stall": 0, "illegal": 0, "illegalPv": 0, "timeForfeit": 0, "driver": 0}
    assert record["base_failures"]["illegalPv"] == 1
    assert [g["ending"] for g in record["games"]] == ["threefold repetition", "crash"]


def test_engine_refused(tmp_path, monkeypatch):
    monkeypatch.setattr(engine, "CACHE", tmp_path)
    liar = b"#!/bin/sh\necho '123 nodes in 1 ms, speed = 1 nodes/s'\n"
    digest = hashlib.sha256(liar).hexdigest()
    with pytest.raises(engine.EngineRefused, match="123 nodes, not 17072933"):
        engine.install(liar, digest)
    with pytest.raises(engine.EngineRefused, match="do not match"):
        engine.install(liar + b"#", digest)
    assert not (tmp_path / digest / "bench-ok").exists()


@pytest.mark.skipif(not os.access(TEXEL, os.X_OK), reason="no build of the fitting tool")
def test_texel_fit():
    run = subprocess.run([TEXEL, str(DATA / "positions.txt")], capture_output=True, text=True, timeout=120)
    # 137 quiet positions of depth-6 games; the scale is fitted on the defaults first.
    assert "137 positions, 0 refused\nscale 2.00, loss 0.361253\n" in run.stderr
    weights, last, text = run.stdout.splitlines()
    assert last == "loss 0.327106 scale 2.00"
    assert genes.decode(text) == [int(w) for w in weights.split()]
