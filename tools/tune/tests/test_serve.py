"""velkor-tune serve: headless chromium on the page of a match played on a
real local Dask cluster while the page watches, and on tuning/fit1; bad
requests, each answered with its error and never a file from elsewhere."""
import http.client
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[3]
TUNE = ROOT / "tools" / "tune" / "velkor-tune"
ENGINE = os.environ.get("VELKOR_ENGINE", str(ROOT / "build" / "release" / "velkor"))
PAGE = pathlib.Path(__file__).resolve().parent / "page.mjs"
SHOTS = ROOT / "build" / "tune-page"
TUNED = (ROOT / "tools" / "tune" / "tuned.txt").read_text().split()[0]
SECRET = "not for the page"


@pytest.fixture(scope="module")
def served(tmp_path_factory):
    """A server of two folders: a scratch one, and the repository's tuning/."""
    root = tmp_path_factory.mktemp("campaigns") / "scratch"
    root.mkdir()
    (root.parent / "secret.txt").write_text(SECRET)
    server = subprocess.Popen([sys.executable, str(TUNE), "serve", str(root), str(ROOT / "tuning"), "--port", "0",
                               "--poll", "0.3"], stdout=subprocess.PIPE, text=True)
    try:
        for line in server.stdout:
            if line.startswith("campaigns on "):
                break
        yield root, int(re.search(r":(\d+)/", line).group(1))
    finally:
        server.terminate()
        server.wait(10)


def get(port, path, method="GET"):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    connection.request(method, path)  # sent as written: no client tidies the path
    answer = connection.getresponse()
    return answer.status, answer.getheader("Content-Type"), answer.read().decode()


def browse(port, path, shots, hide=0.0):
    run = subprocess.run(["node", str(PAGE), f"http://127.0.0.1:{port}{path}", str(shots), str(hide)],
                         capture_output=True, text=True, timeout=300)
    assert run.returncode == 0, run.stderr
    seen = json.loads(run.stdout)
    assert seen["errors"] == [] and seen["askedAfterEnd"] == 0, seen
    return seen


def shown_match(part, summary):
    """What the page should show of a match whose summary.json this is."""
    elo, q = summary["elo"], summary.get("sprt")
    want = {"wins": str(summary["wins"]), "draws": str(summary["draws"]), "losses": str(summary["losses"]),
            "penta": " ".join(map(str, summary["penta"])), "los": f"{100 * elo['los']:.1f} %",
            "elo": f"{elo['elo']:+.1f} ± {elo['elo_error']:.1f}", "state": "ended"}
    if q:
        want.update(llr=f"{q['llr']:.2f} ({q['lower']:.2f}, {q['upper']:.2f})", verdict=q["verdict"])
    assert {k: part["figures"][k] for k in want} == want
    games = summary["wins"] + summary["draws"] + summary["losses"]
    assert f"Total: {games} W: {summary['wins']} L: {summary['losses']} D: {summary['draws']}" \
           in part["figures"]["block"]


needs_browser = pytest.mark.skipif(not (os.access(ENGINE, os.X_OK) and shutil.which("node") and
                                        os.path.exists("/usr/bin/chromium") and
                                        (ROOT / "node_modules" / "playwright-core").is_dir()),
                                   reason="needs the engine build, chromium and make setup-js")


@needs_browser
def test_the_page_follows_a_match_to_its_end(served, tmp_path):
    root, port = served
    out = root / "live"
    env = {**os.environ, "VELKOR_TUNE_CACHE": str(tmp_path / "cache")}
    match = subprocess.Popen([sys.executable, str(TUNE), "verify", TUNED, "--games", "48", "--depth", "2", "--sprt",
                              "0,5", "--workers", "2", "--engine", ENGINE, "--out", str(out)],
                             env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    try:
        end = time.monotonic() + 120
        while not (out / "match.json").exists():
            assert match.poll() is None and time.monotonic() < end, match.stderr.read() if match.stderr else ""
            time.sleep(0.05)
        # Hidden for a while as the games go on: the page asks nothing then.
        seen = browse(port, f"/c/{root.name}/live", tmp_path / "live", hide=1.0)
    finally:
        assert match.wait(120) == 0, match.stderr.read()
    assert seen["askedHidden"] == 0
    games = [int(s["sections"][0]["figures"]["games"].split()[0]) for s in seen["states"]]
    assert len(set(games)) >= 2 and games == sorted(games), games
    [part] = seen["final"]["sections"]
    assert part["kind"] == "match" and seen["final"]["status"].startswith("ended")
    shown_match(part, json.loads((out / "summary.json").read_text()))
    # Beside the failures, what the cluster cost: nothing here.
    assert [part["figures"][k] for k in ("lost-workers", "reruns", "away")] == ["0", "0", "never"]


@needs_browser
def test_the_page_shows_a_review(served, tmp_path):
    root, port = served
    out = root / "reviewed"
    games = (ROOT / "client" / "tests" / "data" / "games.pgn").read_text()
    (tmp_path / "two.pgn").write_text(games[:games.index('[Event "Velkor match"]')])
    env = {**os.environ, "VELKOR_TUNE_CACHE": str(tmp_path / "cache")}
    subprocess.run([sys.executable, str(TUNE), "review", str(tmp_path / "two.pgn"), "--out", str(out), "--depth", "3",
                    "--workers", "1", "--engine", ENGINE], env=env, check=True, capture_output=True, timeout=300)
    seen = browse(port, f"/c/{root.name}/reviewed", tmp_path / "review")
    [part] = seen["final"]["sections"]
    summary = json.loads((out / "summary.json").read_text())
    mean = sum(e["white"]["accuracy"] for e in summary) / len(summary)
    assert part["kind"] == "review" and seen["final"]["status"].startswith("ended")
    assert {k: part["figures"][k] for k in ("file", "games", "depth", "white", "failures")} == \
        {"file": "two.pgn", "games": "2 of 2", "depth": "3", "white": f"{round(mean, 1):.1f} %", "failures": "0"}


@needs_browser
def test_the_page_of_fit1(served):
    _, port = served
    SHOTS.mkdir(parents=True, exist_ok=True)
    seen = browse(port, "/c/tuning/fit1", SHOTS / "fit1")
    parts = {(p["path"], p["kind"]): p for p in seen["final"]["sections"]}
    for match in ("sprt-depth6", "clock-4+0.04"):
        shown_match(parts[(match, "match")], json.loads((ROOT / "tuning" / "fit1" / match / "summary.json").read_text()))
    assert parts[("", "positions")]["figures"]["positions"] == "30925"
    assert seen["asked"] == 1  # the campaign has ended: asked once


def test_bad_requests(served):
    root, port = served
    (root / "half").mkdir()
    (root / "half" / "state.json").write_text('{"settings": {"generations": 5, "pop')
    (root / "odd").mkdir()
    (root / "odd" / "summary.json").write_text('{"wins": "many"}')
    (root / "cut").mkdir()
    shutil.copy(ROOT / "tuning" / "fit1" / "clock-4+0.04" / "results.jsonl", root / "cut" / "results.jsonl")
    with open(root / "cut" / "results.jsonl", "a") as f:
        f.write('{"genes": "0001')
    before = (root / "cut" / "results.jsonl").read_bytes()
    (root / "link").symlink_to(root.parent)
    name = root.name
    for path, status in [
            (f"/file/{name}/../secret.txt", 400), (f"/file/{name}/%2e%2e/secret.txt", 400),
            (f"/file/{name}/%2E%2E%2Fsecret.txt", 400), (f"/file/{name}//etc/passwd", 400),
            (f"/file/{name}/%2Fetc%2Fpasswd", 400), (f"/file/{name}/link/secret.txt", 403),
            (f"/api/c/{name}/link", 403), (f"/c/{name}/link", 403), (f"/file/{name}/%ff", 400),
            ("/file/nowhere/secret.txt", 404), (f"/api/c/{name}/none", 404), ("/static/../serve.py", 404),
            ("/nowhere", 404), (f"/file/{name}/cut", 404), (f"/api/c/{name}/cut/results.jsonl", 404)]:
        code, kind, body = get(port, path)
        assert (code, kind) == (status, "application/json"), (path, body)
        assert "error" in json.loads(body) and SECRET not in body and "Traceback" not in body, (path, body)
    assert get(port, f"/api/c/{name}/half", "POST")[0] == 405
    errors = {}
    for folder in ("half", "odd", "cut"):
        code, _, body = get(port, f"/api/c/{name}/{folder}")
        assert code == 200, body
        errors[folder] = [s.get("error") for s in json.loads(body)["sections"]]
    assert errors["half"] == ["state.json is not whole JSON (cut short, or being written?): Unterminated string"
                              " starting at: line 1 column 33 (char 32)"]
    assert errors["odd"] == ["not as the tuner writes it (KeyError: 'draws')"]
    assert errors["cut"] == [None]  # the cut line is left out, and left alone
    assert (root / "cut" / "results.jsonl").read_bytes() == before
