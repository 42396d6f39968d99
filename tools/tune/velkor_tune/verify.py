"""A match of a gene string against a base string, paired openings, split into
mini-matches of a few pairs each; with bounds, a sequential test that stops
the match at its verdict."""
import json
import pathlib
import time
import uuid
import warnings

from . import engine, match, stats
from .runfolder import append_result, read_results

PAIRS_PER_TASK = 4


def tasks(genes_text, base, games, depth, tc, seed, digest, random_plies=0) -> list[dict]:
    pairs = games // 2
    return [{"genes": genes_text, "base": base, "depth": depth, "tc": tc, "seed": seed, "pair_offset": first,
             "pairs": min(PAIRS_PER_TASK, pairs - first), "random_plies": random_plies,
             "pv_sample": match.TUNING_PV_SAMPLE, "engine_hash": digest}
            for first in range(0, pairs, PAIRS_PER_TASK)]


def totals(records) -> dict:
    t = {"wins": 0, "draws": 0, "losses": 0, "penta": [0] * 5, "failures": {}, "base_failures": {}, "plies": 0,
         "cpu": {"engines": 0.0, "driver": 0.0}}
    for r in records:
        for k in ("wins", "draws", "losses", "plies"):
            t[k] += r.get(k, 0)
        for k in t["cpu"]:
            t["cpu"][k] += r.get("cpu", {}).get(k, 0.0)
        t["penta"] = [a + b for a, b in zip(t["penta"], r["penta"])]
        for side in ("failures", "base_failures"):
            for kind, n in r[side].items():
                t[side][kind] = t[side].get(kind, 0) + n
    return t


def describe(t: dict, bounds=None) -> str:
    games = t["wins"] + t["draws"] + t["losses"]
    lines = [f"games {games}: +{t['wins']} ={t['draws']} -{t['losses']}"]
    if sum(t["penta"]):
        s = stats.summary(t["penta"])
        lines.append(f"score {s['score']:.4f}, Elo {s['elo']:+.1f} +/- {s['elo_error']:.1f} (95 %), LOS {100 * s['los']:.1f} %")
    lines.append("pentanomial " + " ".join(f"{n}" for n in t["penta"]) + " (pairs scoring 0, 1/2, 1, 3/2, 2)")
    fmt = lambda f: ", ".join(f"{k} {n}" for k, n in f.items()) or "none"
    lines.append(f"failures of the tested side: {fmt(t['failures'])}; of the base: {fmt(t['base_failures'])}")
    if bounds:
        q = stats.sprt(t["penta"], *bounds)
        lines.append(f"SPRT nElo [{q['elo0']:g}, {q['elo1']:g}], alpha = beta = 0.05: LLR {q['llr']:.2f}"
                     f" ({q['lower']:.2f}, {q['upper']:.2f}): {q['verdict']}")
    return "\n".join(lines)


def verify(client, genes_text, base, games, depth, tc, seed, engine_path, bounds, out: pathlib.Path,
           min_games: int = 0, random_plies: int = 0) -> dict:
    warnings.filterwarnings("ignore", message="Large object")
    from distributed import as_completed
    out.mkdir(parents=True, exist_ok=True)
    data, digest = engine.load(engine_path)
    run_id = uuid.uuid4().hex[:8]
    work = tasks(genes_text, base, games, depth, tc, seed, digest, random_plies)
    if not work:
        raise ValueError("a match needs at least 2 games, a pair")
    # A folder that holds games of the same match already: they count, and
    # only the pairs not yet recorded are played.
    same = lambda r: all(r.get(k) == work[0][k] for k in ("genes", "base", "depth", "tc", "seed", "random_plies"))
    records = [r for r in read_results(out) if same(r)]
    recorded = {r["pair_offset"] for r in records}
    if records:
        print(f"{sum(r['wins'] + r['draws'] + r['losses'] for r in records)} games of this match recorded in {out}")
    futures = [client.submit(match.play, t, data, key=f"velkor-verify-{run_id}-{k}", retries=1)
               for k, t in enumerate(work) if t["pair_offset"] not in recorded]
    started, verdict, played = time.monotonic(), None, 0
    pending = as_completed(futures)
    for future in pending:
        record = future.result()
        with open(out / "games.pgn", "a") as f:
            f.write(record.pop("pgn") + "\n\n")
        record["finished"] = time.time()
        record.pop("games")
        append_result(out, record)
        records.append(record)
        played += record["wins"] + record["draws"] + record["losses"]
        t = totals(records)
        done = t["wins"] + t["draws"] + t["losses"]
        minutes = (time.monotonic() - started) / 60
        line = f"{done}/{games} games, {played / minutes:.1f} games/min, +{t['wins']} ={t['draws']} -{t['losses']}"
        if bounds:
            q = stats.sprt(t["penta"], *bounds)
            line += f", LLR {q['llr']:.2f} ({q['lower']:.2f}, {q['upper']:.2f})"
            if q["verdict"] != "running" and done >= min_games:
                verdict = q["verdict"]
        print(line, flush=True)
        if verdict:
            for f in futures:
                f.cancel()
            break
    t = totals(records)
    text = describe(t, bounds)
    summary = {"genes": genes_text, "base": base, "depth": depth, "tc": tc, "seed": seed, **t,
               "minutes": (time.monotonic() - started) / 60, "text": text}
    if sum(t["penta"]):
        summary["elo"] = stats.summary(t["penta"])
    if bounds:
        summary["sprt"] = stats.sprt(t["penta"], *bounds)
    (out / "summary.json").write_text(json.dumps(summary, indent=1) + "\n")
    return summary
