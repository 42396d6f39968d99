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

from . import engine, match, records, stats, tasks
from .runfolder import from_top, write_json

SUMMARY, SETTINGS = "summary.json", "match.json"
# What makes two mini-matches games of one match.
SAME_MATCH = ("genes", "base", "depth", "tc", "seed", "random_plies", "book")


def match_tasks(genes_text, base, games, depth, tc, seed, digest, random_plies=0, book=None) -> list[dict]:
    pairs = games // 2
    return [match.MatchTask(genes=genes_text, base=base, pairs=min(match.PAIRS_PER_TASK, pairs - first), depth=depth,
                            tc=tc, seed=seed, engine_hash=digest, pair_offset=first, random_plies=random_plies,
                            book=book).as_dict()
            for first in range(0, pairs, match.PAIRS_PER_TASK)]


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
    done = tasks.play(cluster, out, work, (data, book_bytes), progress, name="verify", key=key, same=SAME_MATCH,
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
