"""velkor-tune review on a real local Dask cluster: every game of a file as
GUIs and sites write them (CR LF, comments, variations, NAGs, set-ups, a game
that cannot be played), its evals those of a plain script that drives the
engine by the review's protocol, and a second call that carries on."""
import json
import os
import pathlib
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[3]
TUNE = ROOT / "tools" / "tune" / "velkor-tune"
ENGINE = os.environ.get("VELKOR_ENGINE", str(ROOT / "build" / "release" / "velkor"))
GAMES = ROOT / "client" / "tests" / "data" / "games.pgn"
BROKEN = pathlib.Path(__file__).parent / "data" / "broken-games.pgn"
DEPTH = 5

pytestmark = pytest.mark.skipif(not os.access(ENGINE, os.X_OK), reason="no engine build")


def review(games, out, tmp_path):
    env = {**os.environ, "VELKOR_TUNE_CACHE": str(tmp_path / "cache"), "PYTHONPATH": str(ROOT / "tools" / "tune")}
    run = subprocess.run([sys.executable, str(TUNE), "review", str(games), "--out", str(out), "--depth", str(DEPTH),
                          "--workers", "2", "--engine", ENGINE], env=env, capture_output=True, text=True, timeout=600)
    assert run.returncode == 0, run.stdout + run.stderr
    assert "Traceback" not in run.stderr
    return run.stdout


def protocol_scores(game_moves, fen):
    """The review's protocol spoken by hand: every position from the game's
    start, its closing score in White's view ('' for a mate on the board,
    None for a position answered without a score)."""
    engine = subprocess.Popen([ENGINE], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                              stderr=subprocess.DEVNULL)
    def say(line):
        engine.stdin.write(line + "\n")
        engine.stdin.flush()
    say("setoption name Hash value 32")
    say("ucinewgame")
    scores = []
    for i in range(len(game_moves) + 1):
        start = f"position fen {fen}" if fen else "position startpos"
        say(start + (" moves " + " ".join(game_moves[:i]) if i else ""))
        say(f"go depth {DEPTH}")
        white = (i % 2 == 0) == (not fen or fen.split()[1] == "w")
        score = None
        for line in iter(engine.stdout.readline, ""):
            words = line.split()
            if words[:2] == ["info", "score"]:
                value = int(words[3]) * (1 if white else -1)
                score = f"#{value}" if words[2] == "mate" else f"{value / 100:.2f}"
            if "Game over (mate)" in line:
                score = ""
            if "Game over (pat)" in line or "Game over (draw)" in line:
                score = "0.00"
            if words[:1] == ["bestmove"]:
                break
        scores.append(score)
    say("quit")
    engine.wait(timeout=10)
    return scores


def test_review_of_a_file_agrees_with_the_protocol_and_carries_on(tmp_path):
    games = tmp_path / "games.pgn"
    games.write_bytes(GAMES.read_bytes() + b"\n" + BROKEN.read_bytes())
    out = tmp_path / "review"
    said = review(games, out, tmp_path)
    assert "game 4 not reviewed: illegal move: Ke3" in said
    assert 'game 5 not reviewed: bad FEN "8/8/8 w - - 0 1"' in said
    summary = json.loads((out / "summary.json").read_text())
    assert [e["game"] for e in summary] == [1, 2, 3, 4, 5]
    first = summary[0]
    assert first["white"]["name"] == "Opener" and first["black"]["blunders"] >= 1
    assert set(first["white"]) >= {"accuracy", "inaccuracies", "mistakes", "blunders"}
    assert summary[3]["white"]["accuracy"] is None and "Ke3" in summary[3]["error"]
    annotated = (out / "annotated.pgn").read_text()
    assert [l for l in annotated.splitlines() if l.startswith("[Event ")] == \
        ['[Event "Casual game"]', '[Event "From a study"]', '[Event "Velkor match"]']
    assert "3... Nf6 $4 {" in annotated.replace("\n", " ") and f'[ReviewDepth "{DEPTH}"]' in annotated and "\r" not in annotated

    # The evals of the set-up game, against a script that speaks the protocol itself.
    record = json.loads((out / "games" / "000003.json").read_text())
    fen = "r3k2r/pppq1ppp/2npbn2/4p3/4P3/2NPBN2/PPPQ1PPP/R3K2R w KQkq - 0 1"
    moves = subprocess.run(["node", "-e", "import('./client/review.js').then(({ readGame }) => console.log("
                            "readGame(require('fs').readFileSync(0, 'utf8')).moves.map((m) => m.uci).join(' ')))"],
                           input=record["pgn"], capture_output=True, text=True, cwd=ROOT).stdout.split()
    by_hand = protocol_scores(moves, fen)
    # A position answered without a score takes a neighbour's; the rest agree to the centipawn.
    assert [h for h in by_hand if h is not None] == [s for s, h in zip(record["scores"], by_hand) if h is not None]

    # Called again with a game's file gone, it reviews that game alone and writes the same files.
    before = (out / "annotated.pgn").read_text(), (out / "summary.json").read_text()
    (out / "games" / "000002.json").unlink()
    said = review(games, out, tmp_path)
    assert "4 of 5 games reviewed" in said and "game 2:" in said and "game 1:" not in said
    assert ((out / "annotated.pgn").read_text(), (out / "summary.json").read_text()) == before
