"""A match of a gene string against a base string, paired openings, split into
mini-matches of a few pairs each; with bounds, a sequential test that stops
the match at its verdict.

OUT/match.json     the match: strings, limit, seed, games, the test's bounds
OUT/results.jsonl  one line a finished mini-match
OUT/games.pgn      the games
OUT/summary.json   the match's totals, Elo, the test, written when it ends
"""
import json
import pathlib
import time

from . import engine, match, reading, records, stats, tasks
from .runfolder import RESULTS, from_top, write_json

SUMMARY, SETTINGS = "summary.json", "match.json"
# What makes two mini-matches games of one match.
SAME_MATCH = ("genes", "base", "depth", "tc", "seed", "random_plies", "book")


def match_tasks(genes_text, base, games, depth, tc, seed, digest, random_plies=0, book=None) -> list[dict]:
    return [match.MatchTask(genes=genes_text, base=base, pairs=pairs, depth=depth, tc=tc, seed=seed,
                            engine_hash=digest, pair_offset=first, random_plies=random_plies, book=book).as_dict()
            for first, pairs in match.task_pairs(games // 2)]


def summary(totals: records.Totals, task: dict, bounds, minutes: float) -> dict:
    s = {k: task[k] for k in ("genes", "base", "depth", "tc", "seed", "random_plies", "book")}
    s.update(totals.as_dict(), minutes=minutes, text=totals.describe(bounds))
    if sum(totals.penta):
        s["elo"] = stats.summary(totals.penta)
    if bounds:
        s["sprt"] = stats.sprt(totals.penta, *bounds)
    return s


def verify(cluster, genes_text, base, games, depth, tc, seed, engine_path, bounds, out: pathlib.Path,
           min_games: int = 0, random_plies: int = 0, book=None) -> dict:
    """The match, from the openings of `book` (a file the driver reads) or
    from the driver's own opening lines."""
    out.mkdir(parents=True, exist_ok=True)
    data, digest = engine.load(engine_path)
    book_bytes, book_name, _ = match.book(book) if book else (None, None, None)
    work = match_tasks(genes_text, base, games, depth, tc, seed, digest, random_plies, book_name)
    if not work:
        raise ValueError("a match needs at least 2 games, a pair")
    # What the match is, for a reader of the folder while it plays.
    write_json(out / SETTINGS, {**{k: work[0][k] for k in SAME_MATCH}, "games": games, "sprt": bounds,
                                "min_games": min_games, "book_file": from_top(book) if book else None})
    started = time.monotonic()
    progress = tasks.Progress(games)

    def after(record, done):
        t = records.Totals.of(done.values())
        line = f", +{t.wins} ={t.draws} -{t.losses}"
        if bounds:
            q = stats.sprt(t.penta, *bounds)
            line += f", LLR {q['llr']:.2f} ({q['lower']:.2f}, {q['upper']:.2f})"
        return line

    def enough(done):
        t = records.Totals.of(done.values())
        return bool(bounds) and stats.sprt(t.penta, *bounds)["verdict"] != "running" and t.games >= min_games

    key = lambda t: t["pair_offset"]
    # A folder that holds games of the same match already: they count, and
    # only the pairs not yet recorded are played.
    done = tasks.play(cluster, out, work, (data, book_bytes), progress, name="verify", key=key,
                      same=SAME_MATCH + ("pairs",),
                      pgn=lambda r: out / "games.pgn", after=after, enough=enough)
    # The minutes of every call that played this match.
    minutes = (time.monotonic() - started) / 60
    before = json.loads((out / SUMMARY).read_text()) if (out / SUMMARY).exists() else {}
    if all(before.get(k) == work[0][k] for k in SAME_MATCH):
        if not progress.here:  # nothing played: the summary stands
            return before
        minutes += before.get("minutes", 0)
    result = summary(records.Totals.of(done.values()), work[0], bounds, minutes)
    write_json(out / SUMMARY, result)
    return result


# The campaign page's reading of a match's folder (see campaigns.py): its
# mini-matches, with what the match is and, once it has ended, its summary.
KIND = "match"


def holds(folder: pathlib.Path) -> bool:
    return any((folder / name).exists() for name in (SUMMARY, SETTINGS, RESULTS))


def parts(folder: pathlib.Path, played: list[dict]) -> list[dict]:
    if not (played or (folder / SUMMARY).exists() or (folder / SETTINGS).exists()):
        return []  # no mini-match has ended yet
    settings = reading.read_json(folder / SETTINGS) if (folder / SETTINGS).exists() else {}
    summary = reading.read_json(folder / SUMMARY) if (folder / SUMMARY).exists() else None
    t = records.Totals.of(played)
    bounds = settings.get("sprt") or (summary and summary.get("sprt") and
                                      [summary["sprt"]["elo0"], summary["sprt"]["elo1"]])
    final = summary is not None and [summary[k] for k in ("wins", "draws", "losses")] == [t.wins, t.draws, t.losses]
    per_minute = t.games / summary["minutes"] if final and summary.get("minutes") else reading.rate(played)
    total = settings.get("games") or (summary and t.games) or t.games
    part = {"kind": KIND, "final": final, "genes": (summary or settings or played[0]).get("genes"),
            "base": (summary or settings or played[0]).get("base"), "games": t.games, "total": total,
            **t.as_dict(), "kinds": t.kinds(), "rate": per_minute,
            "left": None if final else reading.left(total, t.games, per_minute),
            "limit": reading.limit_text(summary or settings or played[0]),
            "block": t.stat_block(bounds, per_minute)}
    if sum(t.penta):
        part["elo"] = stats.summary(t.penta)
    if bounds:
        part["sprt"] = stats.sprt(t.penta, *bounds)
        if part["sprt"]["verdict"] != "running" and not final:
            part["left"] = 0
    return [part]
