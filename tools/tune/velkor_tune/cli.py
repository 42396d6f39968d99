"""velkor-tune: a function for each command, named with its options and its
way back after an interrupt in the table COMMANDS."""
import argparse
import datetime
import os
import pathlib
import re
import shlex
import signal
import sys
from dataclasses import dataclass
from typing import Callable

from . import book, cluster as clusters, engine, fit, genes, label, match, pbil, spsa, tasks
from .runfolder import REPO, from_top

RELEASE = REPO / "build" / "release" / "velkor"
BOOK = REPO / "tools" / "tune" / "book" / "book.epd"  # the shipped book, which a verification plays unless told
DEPTH = 5  # of a run's games when neither --depth nor --tc is given
POSITIONS_DEPTH = 7  # of self-play games for positions
VERIFY_TC = "10+0.1"  # of a verification when neither --depth nor --tc is given
VERIFY_LINE_PLIES = 6  # random plies after each of the driver's lines in a verification
POSITIONS_PLIES = 8  # random plies after each of the driver's lines in self-play for positions
SERVE_FOLDERS = (REPO / "tuning", REPO / "build" / "tune")


def gene_string(text: str) -> str:
    if text == "defaults":
        return genes.DEFAULT_STRING
    if len(text) != genes.BITS:
        raise argparse.ArgumentTypeError(f"a gene string has {genes.BITS} characters, got {len(text)}")
    return text


def bounds(text: str) -> tuple[float, float]:
    try:
        elo0, elo1 = (float(x) for x in text.split(","))
    except ValueError:
        raise argparse.ArgumentTypeError("--sprt takes ELO0,ELO1, e.g. 0,5") from None
    if elo0 >= elo1:
        raise argparse.ArgumentTypeError("--sprt needs ELO0 < ELO1")
    return elo0, elo1


def positive(text: str) -> int:
    value = int(text)
    if value < 1:
        raise argparse.ArgumentTypeError("needs a whole number of at least 1")
    return value


def minutes(text: str) -> float:
    value = float(text)
    if not value >= 0:
        raise argparse.ArgumentTypeError("needs minutes, 0 or more")
    return value


def address(text: str) -> str:
    if not re.fullmatch(r"[a-z]+://[^/\s]+:\d+", text):
        raise argparse.ArgumentTypeError("a scheduler's address is tcp://HOST:PORT")
    return text


def add_cluster(p):
    where = p.add_mutually_exclusive_group()
    where.add_argument("--workers", type=positive, help="local worker processes (default: one a core)")
    where.add_argument("--scheduler", type=address, metavar="tcp://HOST:PORT", help="the Dask scheduler of a cluster")
    p.add_argument("--scheduler-wait", type=minutes, metavar="MINUTES",
                   help="how long to wait for the scheduler when it has gone, before stopping with the command"
                        f" that carries on (default {clusters.WAIT_MINUTES:g})")


def add_games(p, book_default="the driver's opening lines"):
    """Where and how the games are played, and from which openings."""
    add_cluster(p)
    limit = p.add_mutually_exclusive_group()
    limit.add_argument("--depth", type=positive, help="games at this fixed depth")
    limit.add_argument("--tc", help="clock games, [moves/]base+inc in seconds, e.g. 10+0.1")
    p.add_argument("--engine", type=pathlib.Path, default=RELEASE, help=f"engine binary (default {RELEASE})")
    p.add_argument("--book", type=pathlib.Path,
                   help="the openings: a book of positions (.epd, .pgn) or a file of the driver's lines"
                        f" (default: {book_default})")
    p.add_argument("--random-plies", type=int,
                   help="random legal plies after each opening (default: none after a book's positions,"
                        " the command's own number after lines of moves)")


def random_plies(args, after_lines: int) -> int:
    """The random plies after each opening: as told, else none from a book of
    positions (they are measured and distinct) and `after_lines` from lines
    of moves (the driver's are few)."""
    if args.random_plies is not None:
        return args.random_plies
    return 0 if args.book and match.book(args.book)[2] else after_lines


def book_settings(args) -> dict:
    """What a run records of its book: the path and the name its bytes travel
    under; nothing without one."""
    if not args.book:
        return {}
    return {"book": from_top(args.book), "book_name": match.book(args.book)[1]}


def add_fit_engine(p):
    p.add_argument("--start", type=gene_string, help="the string the fit starts from (default: the engine's)")
    p.add_argument("--engine", type=pathlib.Path, default=RELEASE,
                   help="the engine build, beside which velkor_texel stands")


def verify_hint(text: str) -> str:
    """How to tell whether a proposed string is stronger: what every command
    that proposes one ends with."""
    return (f"verify it against the defaults:\n"
            f"  velkor-tune verify {text} --depth 6 --sprt 0,5 --games 20000\n"
            f"  velkor-tune verify {text} --tc 4+0.04 --games 1000")


def connect(args):
    if getattr(args, "book", None):  # checked while the cluster starts
        match.check_book_soon(args.book)
    return clusters.connect(args.workers, args.scheduler, args.scheduler_wait)


# The commands, each a function of its parsed options.

def run_options(p):
    p.add_argument("out", type=pathlib.Path)
    p.add_argument("--generations", type=positive, default=50)
    p.add_argument("--population", type=positive, default=8)
    p.add_argument("--pairs", type=positive, default=8, help="game pairs of each candidate against the base")
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--start", type=gene_string, help="lean the first vector towards this string")
    p.add_argument("--lean", type=float, default=0.4,
                   help="how far each bit of --start moves from 0.5 (default 0.4: 0.9 or 0.1)")
    p.add_argument("--base", type=gene_string, default=genes.DEFAULT_STRING,
                   help="the anchor every candidate plays (default: the engine's defaults)")
    for name in pbil.Settings.__dataclass_fields__:
        p.add_argument("--" + name.replace("_", "-"), type=float, default=getattr(pbil.Settings, name))
    add_games(p)


def run_command(args) -> int:
    from . import run
    settings = {k: getattr(args, k) for k in ("generations", "population", "pairs", "seed", "start", "lean", "base",
                                              *pbil.Settings.__dataclass_fields__)}
    settings.update(depth=args.depth or (None if args.tc else DEPTH), tc=args.tc, random_plies=random_plies(args, 0),
                    **book_settings(args))
    run.start(args.out, settings, args.engine)
    return resume_command(args)


def resume_options(p):
    p.add_argument("out", type=pathlib.Path)
    add_cluster(p)


def resume_command(args) -> int:
    from . import report, run
    with connect(args) as cluster:
        state = run.carry_on(args.out, cluster)
    print(report.summary(args.out))
    print(verify_hint(pbil.consensus(state["probabilities"])))
    return 0


def spsa_options(p):
    p.add_argument("out", type=pathlib.Path)
    p.add_argument("--start", type=gene_string, default=genes.DEFAULT_STRING, help="theta's start (default: defaults)")
    p.add_argument("--iterations", type=positive, default=spsa.DEFAULTS["iterations"],
                   help="game pairs in all (default %(default)s)")
    p.add_argument("--pairs", type=positive, default=spsa.DEFAULTS["pairs"], help="pairs of one task (one perturbation)")
    p.add_argument("--batch", type=positive, default=spsa.DEFAULTS["batch"],
                   help="tasks drawn from one theta and applied together (default %(default)s)")
    p.add_argument("--c-end", type=float, default=spsa.DEFAULTS["c_end"],
                   help="the perturbation at the end (default a twentieth of the weights' range, %(default)s)")
    p.add_argument("--r-end", type=float, default=spsa.DEFAULTS["r_end"], help="the step's rate at the end (default %(default)s)")
    p.add_argument("--seed", type=int, default=1)
    add_games(p)


def spsa_command(args) -> int:
    if not (args.out / spsa.STATE).exists():
        settings = {k: getattr(args, k) for k in ("start", "iterations", "pairs", "batch", "c_end", "r_end", "seed")}
        settings.update(depth=args.depth or (None if args.tc else DEPTH), tc=args.tc,
                        random_plies=random_plies(args, spsa.DEFAULTS["random_plies"]), **book_settings(args))
        spsa.write_theta(args.out, spsa.start(args.out, settings, args.engine))
    with connect(args) as cluster:
        state = spsa.carry_on(args.out, cluster)
    print((args.out / spsa.THETA).read_text())
    print(verify_hint(spsa.answer(state)))
    return 0


def verify_options(p):
    p.add_argument("genes", type=gene_string)
    p.add_argument("--base", type=gene_string, default=genes.DEFAULT_STRING)
    p.add_argument("--games", type=positive, default=400)
    p.add_argument("--sprt", type=bounds, metavar="ELO0,ELO1", help="normalized Elo bounds")
    p.add_argument("--min-games", type=int, default=0, help="games played before a verdict may stop the match")
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--out", type=pathlib.Path, help="folder for games and results (default build/tune/verify-TIME)")
    add_games(p, f"the shipped book, {BOOK.relative_to(REPO)}")
    p.set_defaults(book=BOOK)


def verify_command(args) -> int:
    from .verify import verify
    tc = None if args.depth else (args.tc or VERIFY_TC)
    args.out = args.out or REPO / "build" / "tune" / datetime.datetime.now().strftime("verify-%Y%m%d-%H%M%S")
    with connect(args) as cluster:
        result = verify(cluster, args.genes, args.base, args.games, args.depth, tc, args.seed,
                        args.engine, args.sprt, args.out, args.min_games, random_plies(args, VERIFY_LINE_PLIES),
                        args.book)
    print(result["text"])
    print(f"results: {args.out}")
    return 0


def positions_options(p):
    p.add_argument("out", type=pathlib.Path)
    p.add_argument("--games", type=positive, default=800)
    p.add_argument("--genes", type=gene_string, default=genes.DEFAULT_STRING, help="the weights both sides play")
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--pgn", type=pathlib.Path, nargs="+", help="read these games instead of playing")
    add_games(p)


def positions_command(args) -> int:
    from . import positions
    if args.pgn:
        args.out.mkdir(parents=True, exist_ok=True)
        print(positions.extract(args.pgn, args.out / positions.POSITIONS))
        return 0
    settings = {"games": args.games, "depth": args.depth or POSITIONS_DEPTH,
                "random_plies": random_plies(args, POSITIONS_PLIES), "seed": args.seed, "genes": args.genes,
                **{k: v for k, v in book_settings(args).items() if k == "book"}}
    with connect(args) as cluster:
        print(positions.play(cluster, args.out, settings, args.engine))
    print(f"label them: velkor-tune label {args.out / positions.POSITIONS}")
    return 0


def label_options(p):
    p.add_argument("positions", type=pathlib.Path)
    p.add_argument("--out", type=pathlib.Path, help=f"the labelled file (default: POSITIONS with {label.LABELLED})")
    p.add_argument("--teacher", default=label.TEACHER, help="a UCI engine that prints wdl (default %(default)s)")
    p.add_argument("--teacher-depth", type=positive, default=10)
    add_cluster(p)


def label_command(args) -> int:
    out = args.out or label.labelled(args.positions)
    with connect(args) as cluster:
        print(label.label(cluster, args.positions, out, args.teacher, args.teacher_depth))
    print(f"fit the weights to them: velkor-tune fit {out}")
    return 0


def centipawns(text: str) -> int:
    value = int(text)
    if value < 0:
        raise argparse.ArgumentTypeError("needs centipawns, 0 or more")
    return value


def edge(text: str) -> tuple[int, int]:
    try:
        low, high = (int(x) for x in text.split(","))
    except ValueError:
        raise argparse.ArgumentTypeError("--edge takes LOW,HIGH in centipawns, e.g. 80,120") from None
    if not 0 < low <= high:
        raise argparse.ArgumentTypeError("--edge needs 0 < LOW <= HIGH")
    return low, high


def book_options(p):
    d = book.DEFAULTS
    p.add_argument("out", type=pathlib.Path)
    p.add_argument("--positions", type=positive, default=d["positions"], help="distinct positions (default %(default)s)")
    p.add_argument("--plies", type=positive, default=d["plies"], help="plies from the start (default %(default)s)")
    kept = p.add_mutually_exclusive_group()
    kept.add_argument("--band", type=centipawns, default=d["band"],
                      help="keep a position the teacher scores within +-CP (default %(default)s)")
    kept.add_argument("--edge", type=edge, metavar="LOW,HIGH",
                      help="keep a position when one side is ahead by LOW to HIGH cp instead")
    p.add_argument("--teacher", default=d["teacher"], help="a UCI engine with MultiPV (default %(default)s)")
    p.add_argument("--teacher-depth", type=positive, default=d["teacher_depth"], help="(default %(default)s)")
    p.add_argument("--seed", type=int, default=d["seed"])
    add_cluster(p)


def book_command(args) -> int:
    settings = {"positions": args.positions, "plies": args.plies, "band": None if args.edge else args.band,
                "edge": list(args.edge) if args.edge else None, "teacher": args.teacher,
                "teacher_depth": args.teacher_depth, "seed": args.seed}
    with connect(args) as cluster:
        print(book.make(cluster, args.out, settings))
    print(f"play from it: velkor-tune verify STRING --book {args.out / book.EPD}")
    return 0


def review_options(p):
    p.add_argument("games", type=pathlib.Path, help="a PGN file of one game or many")
    p.add_argument("--out", type=pathlib.Path, required=True, help="the folder of the review")
    p.add_argument("--depth", type=positive, help="the depth of every search (default: the page's)")
    p.add_argument("--pbil", type=gene_string, help="the engine's weights (default: its own)")
    p.add_argument("--engine", type=pathlib.Path, default=RELEASE, help=f"engine binary (default {RELEASE})")
    add_cluster(p)


def review_command(args) -> int:
    from . import review
    depth = args.depth or review.defaults()["depth"]
    with connect(args) as cluster:
        print(review.review(cluster, args.games, args.out, args.engine, depth, args.pbil))
    return 0


def fit_options(p):
    p.add_argument("positions", type=pathlib.Path, help='lines "FEN;R" or "FEN;R;T"')
    p.add_argument("--lambda", dest="lam", type=float, default=0.5,
                   help="the teacher's share of a label, the game result's the rest (default 0.5)")
    p.add_argument("--out", type=pathlib.Path,
                   help=f"also write the result to this file (a campaign's page shows those named {fit.SHOWN})")
    add_fit_engine(p)


def fit_command(args) -> int:
    from .runfolder import write_atomically
    if not 0 <= args.lam <= 1:
        raise ValueError("--lambda is a share, 0 to 1")
    result = fit.fit(args.positions, args.engine.parent / "velkor_texel", args.start, args.lam)
    text = fit.describe(result)
    if args.out:
        write_atomically(args.out, text + "\n")
    print(text)
    print(verify_hint(result["genes"]))
    return 0


def texel_options(p):
    p.add_argument("out", type=pathlib.Path)
    add_fit_engine(p)


def texel_command(args) -> int:
    from .texel import fit_run
    text = fit_run(args.out, args.engine.parent / "velkor_texel", args.start)
    print(f"{text}\n{genes.describe(text)}\nfit and positions: {args.out / 'texel.txt'}")
    print(f"lean a run towards it: velkor-tune run NEW --start {text}")
    return 0


def report_options(p):
    p.add_argument("out", type=pathlib.Path)


def report_command(args) -> int:
    from . import report
    from .runfolder import load_state
    report.plot(args.out, load_state(args.out))
    print(report.summary(args.out))
    return 0


def serve_options(p):
    p.add_argument("folders", type=pathlib.Path, nargs="*", default=list(SERVE_FOLDERS),
                   help="folders of campaigns (default: tuning/ and build/tune/ of the repository)")
    p.add_argument("--host", default="127.0.0.1", help="the address to listen on (default %(default)s, this machine only)")
    p.add_argument("--port", type=int, default=8788, help="(default %(default)s; 0 for any free port)")
    p.add_argument("--poll", type=float, default=10, help="seconds between a visible page's polls (default %(default)s)")


def serve_command(args) -> int:
    from . import serve
    serve.serve(args.folders, args.host, args.port, args.poll)
    return 0


def worker_options(p):
    p.add_argument("scheduler", type=address, metavar="tcp://HOST:PORT", help="the cluster's scheduler")
    p.add_argument("--workers", type=positive, default=os.cpu_count() or 1,
                   help="worker processes of one thread (default: one a core, %(default)s)")


def worker_command(args) -> int:
    clusters.lend(args.scheduler, args.workers)
    return 0


def again(args, argv: list[str]) -> str:
    """The same command line, which carries on what is recorded, with the
    folder it wrote to when it chose one itself."""
    chosen = args.command == "verify" and "--out" not in argv and args.out
    return "velkor-tune " + shlex.join([*argv, *(["--out", str(args.out)] if chosen else [])])


@dataclass(frozen=True)
class Command:
    help: str
    options: Callable
    run: Callable
    back: Callable | None = None  # (args, argv) -> the command that carries on after a stop
    plays: bool = False  # plays games on this machine unless given a scheduler


COMMANDS = {
    "run": Command("a PBIL run into the folder OUT", run_options, run_command,
                   lambda args, argv: f"velkor-tune resume {shlex.quote(str(args.out))}", plays=True),
    "resume": Command("carry on a PBIL run where it stopped", resume_options, resume_command,
                      lambda args, argv: f"velkor-tune resume {shlex.quote(str(args.out))}", plays=True),
    "verify": Command("a match of a string against the defaults or --base", verify_options, verify_command, again,
                      plays=True),
    "spsa": Command("SPSA from a string into OUT (carries on a run already there)", spsa_options, spsa_command,
                    lambda args, argv: f"velkor-tune spsa {shlex.quote(str(args.out))}", plays=True),
    "positions": Command("quiet positions of self-play games (or of PGN files) into OUT", positions_options,
                         positions_command, again, plays=True),
    "label": Command("a teacher engine's expected score for each position", label_options, label_command, again),
    "book": Command("a book of distinct opening positions whose edge the teacher measured, into OUT", book_options,
                    book_command, again),
    "review": Command("every game of a PGN file reviewed, move by move, into OUT", review_options, review_command,
                      again, plays=True),
    "fit": Command("weights fitted to labelled positions (Texel's method)", fit_options, fit_command),
    "texel": Command("weights fitted to the positions of a run's games, for --start", texel_options, texel_command),
    "report": Command("plots and summary of a PBIL run", report_options, report_command),
    "worker": Command("lend this machine's cores to a cluster's scheduler, through its restarts", worker_options,
                      worker_command),
    "serve": Command("a live page of every campaign in the folders, on this machine's browser", serve_options,
                     serve_command),
}


def parser() -> argparse.ArgumentParser:
    top = argparse.ArgumentParser(prog="velkor-tune", description="Tunes Velkor's weights: a fit to labelled positions, SPSA or PBIL over real games, the match that verifies a string, and a live page of each campaign.")
    sub = top.add_subparsers(dest="command", required=True)
    for name, command in COMMANDS.items():
        command.options(sub.add_parser(name, help=command.help))
    return top


def stop(signum, frame):
    raise KeyboardInterrupt


def check_driver(command: Command, args) -> None:
    """Node and chess.js, which the match driver and positions.mjs need on this
    machine: for games played here (a cluster's workers have their own) and for
    positions read from games. Missing, the command ends with what to run
    rather than with Node's stack trace from the middle of a run."""
    here = command.plays and not getattr(args, "scheduler", None)
    if not (here or args.command in ("positions", "texel", "worker")):
        return
    from shutil import which
    if which("node") is None:
        missing = "node is not on the PATH"
    elif not (match.DRIVER.parents[2] / "node_modules" / "chess.js").is_dir():
        missing = "chess.js is not installed for the match driver"
    else:
        return
    raise ValueError(f"{missing}: run bash tools/match/setup.sh --no-opponents (make tune runs it)")


def main(argv=None) -> int:
    argv = sys.argv[1:] if argv is None else [str(a) for a in argv]
    args = parser().parse_args(argv)
    command = COMMANDS[args.command]
    # Ctrl-C and a plain kill both end a command cleanly, whatever the shell
    # that started it did with SIGINT (a background job inherits it ignored).
    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGTERM, stop)
    try:
        check_driver(command, args)
        return command.run(args)
    except KeyboardInterrupt:
        print("\nstopped" + carry_on(command, args, argv), file=sys.stderr)
        return 130
    except (engine.EngineRefused, OSError, ValueError) as error:
        print(f"velkor-tune: {error}", file=sys.stderr)
        return 1
    except (clusters.Gone, tasks.TaskFailed) as error:
        print(f"velkor-tune: {error}{carry_on(command, args, argv)}", file=sys.stderr)
        return 1
    except Exception as error:  # never a traceback: what happened, and the way back
        print(f"velkor-tune: {tasks.one_line(error)}{carry_on(command, args, argv)}", file=sys.stderr)
        return 1


def carry_on(command: Command, args, argv: list[str]) -> str:
    return f"; carry on with: {command.back(args, argv)}" if command.back else ""
