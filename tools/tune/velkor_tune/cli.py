"""velkor-tune: positions, label, fit, spsa, run, resume, verify, report, texel."""
import argparse
import datetime
import pathlib
import signal
import sys

from . import cluster, engine, genes, report

REPO = pathlib.Path(__file__).resolve().parents[3]
RELEASE = REPO / "build" / "release" / "velkor"
DEPTH = 5  # of a run's games when neither --depth nor --tc is given
POSITIONS_DEPTH = 7  # of self-play games for positions


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


def add_where(p, limit_default_tc=None):
    where = p.add_mutually_exclusive_group()
    where.add_argument("--workers", type=positive, help="local worker processes (default: one a core)")
    where.add_argument("--scheduler", metavar="tcp://HOST:PORT", help="the Dask scheduler of a cluster")
    limit = p.add_mutually_exclusive_group()
    limit.add_argument("--depth", type=positive, help="games at this fixed depth")
    limit.add_argument("--tc", help="clock games, [moves/]base+inc in seconds, e.g. 10+0.1")
    p.add_argument("--engine", type=pathlib.Path, default=RELEASE, help=f"engine binary (default {RELEASE})")


def parser() -> argparse.ArgumentParser:
    top = argparse.ArgumentParser(prog="velkor-tune", description="Tunes Velkor's 14 weights: a fit to labelled positions, SPSA or PBIL over real games, and the match that verifies a string.")
    sub = top.add_subparsers(dest="command", required=True)
    run = sub.add_parser("run", help="a PBIL run into the folder OUT")
    run.add_argument("out", type=pathlib.Path)
    run.add_argument("--generations", type=positive, default=50)
    run.add_argument("--population", type=positive, default=8)
    run.add_argument("--pairs", type=positive, default=8, help="game pairs of each candidate against the base")
    run.add_argument("--seed", type=int, default=1)
    run.add_argument("--start", type=gene_string, help="lean the first vector towards this string")
    run.add_argument("--lean", type=float, default=0.4,
                     help="how far each bit of --start moves from 0.5 (default 0.4: 0.9 or 0.1)")
    run.add_argument("--base", type=gene_string, default=genes.DEFAULT_STRING,
                     help="the anchor every candidate plays (default: the engine's defaults)")
    run.add_argument("--learning-rate", type=float, default=0.1)
    run.add_argument("--negative-rate", type=float, default=0.075)
    run.add_argument("--mutation-probability", type=float, default=0.02)
    run.add_argument("--mutation-shift", type=float, default=0.05)
    add_where(run)
    resume = sub.add_parser("resume", help="carry on a run where it stopped")
    resume.add_argument("out", type=pathlib.Path)
    where = resume.add_mutually_exclusive_group()
    where.add_argument("--workers", type=positive)
    where.add_argument("--scheduler", metavar="tcp://HOST:PORT")
    verify = sub.add_parser("verify", help="a match of a string against the defaults or --base")
    verify.add_argument("genes", type=gene_string)
    verify.add_argument("--base", type=gene_string, default=genes.DEFAULT_STRING)
    verify.add_argument("--games", type=positive, default=400)
    verify.add_argument("--sprt", type=bounds, metavar="ELO0,ELO1", help="normalized Elo bounds")
    verify.add_argument("--min-games", type=int, default=0, help="games played before a verdict may stop the match")
    verify.add_argument("--seed", type=int, default=1)
    verify.add_argument("--random-plies", type=int, default=6,
                        help="random plies after each opening line, so that games at a fixed depth do not repeat")
    verify.add_argument("--out", type=pathlib.Path, help="folder for games and results (default build/tune/verify-TIME)")
    add_where(verify)
    texel = sub.add_parser("texel", help="weights fitted to the positions of a run's games, for --start")
    texel.add_argument("out", type=pathlib.Path)
    texel.add_argument("--start", type=gene_string, help="the string the fit starts from (default: the engine's)")
    texel.add_argument("--engine", type=pathlib.Path, default=RELEASE,
                       help="the engine build, beside which velkor_texel stands")
    pos = sub.add_parser("positions", help="quiet positions of self-play games (or of PGN files) into OUT")
    pos.add_argument("out", type=pathlib.Path)
    pos.add_argument("--games", type=positive, default=800)
    pos.add_argument("--random-plies", type=int, default=8, help="random plies after each opening line (default 8)")
    pos.add_argument("--genes", type=gene_string, default=genes.DEFAULT_STRING, help="the weights both sides play")
    pos.add_argument("--seed", type=int, default=1)
    pos.add_argument("--pgn", type=pathlib.Path, nargs="+", help="read these games instead of playing")
    add_where(pos)
    lab = sub.add_parser("label", help="a teacher engine's expected score for each position")
    lab.add_argument("positions", type=pathlib.Path)
    lab.add_argument("--out", type=pathlib.Path, help="the labelled file (default: POSITIONS with .labelled.txt)")
    lab.add_argument("--teacher", default=label_teacher(), help="a UCI engine that prints wdl (default %(default)s)")
    lab.add_argument("--teacher-depth", type=positive, default=10)
    where = lab.add_mutually_exclusive_group()
    where.add_argument("--workers", type=positive)
    where.add_argument("--scheduler", metavar="tcp://HOST:PORT")
    fit = sub.add_parser("fit", help="weights fitted to labelled positions (Texel's method)")
    fit.add_argument("positions", type=pathlib.Path, help='lines "FEN;R" or "FEN;R;T"')
    fit.add_argument("--lambda", dest="lam", type=float, default=0.5,
                     help="the teacher's share of a label, the game result's the rest (default 0.5)")
    fit.add_argument("--start", type=gene_string, help="the string the fit starts from (default: the engine's)")
    fit.add_argument("--out", type=pathlib.Path, help="also write the result to this file")
    fit.add_argument("--engine", type=pathlib.Path, default=RELEASE,
                     help="the engine build, beside which velkor_texel stands")
    sp = sub.add_parser("spsa", help="SPSA from a string into OUT (carries on a run already there)")
    sp.add_argument("out", type=pathlib.Path)
    sp.add_argument("--start", type=gene_string, default=genes.DEFAULT_STRING, help="theta's start (default: defaults)")
    sp.add_argument("--iterations", type=positive, default=spsa_defaults("iterations"),
                    help="game pairs in all (default %(default)s)")
    sp.add_argument("--pairs", type=positive, default=spsa_defaults("pairs"), help="pairs of one task (one perturbation)")
    sp.add_argument("--batch", type=positive, default=spsa_defaults("batch"),
                    help="tasks drawn from one theta and applied together (default %(default)s)")
    sp.add_argument("--c-end", type=float, default=spsa_defaults("c_end"),
                    help="the perturbation at the end (default 63/20)")
    sp.add_argument("--r-end", type=float, default=spsa_defaults("r_end"), help="the step's rate at the end (default 0.002)")
    sp.add_argument("--random-plies", type=int, default=spsa_defaults("random_plies"))
    sp.add_argument("--seed", type=int, default=1)
    add_where(sp)
    rep = sub.add_parser("report", help="plots and summary of a run")
    rep.add_argument("out", type=pathlib.Path)
    return top


def verify_hint(text: str) -> str:
    """How to tell whether a proposed string is stronger: what every command
    that proposes one ends with."""
    return (f"verify it against the defaults:\n"
            f"  velkor-tune verify {text} --depth 6 --sprt 0,5 --games 20000\n"
            f"  velkor-tune verify {text} --tc 4+0.04 --games 1000")


def label_teacher():
    from .label import TEACHER
    return TEACHER


def spsa_defaults(name):
    from .spsa import DEFAULTS
    return DEFAULTS[name]


def stop(signum, frame):
    raise KeyboardInterrupt


def check_driver(args) -> None:
    """Node and chess.js, which the match driver and positions.mjs need on this
    machine: for games played here (a cluster's workers have their own) and for
    positions read from games. Missing, the command ends with what to run
    rather than with Node's stack trace from the middle of a run."""
    here = args.command in ("run", "resume", "verify", "spsa", "positions") and not getattr(args, "scheduler", None)
    if not (here or args.command in ("positions", "texel")):
        return
    from shutil import which
    if which("node") is None:
        missing = "node is not on the PATH"
    elif not (REPO / "tools" / "match" / "node_modules" / "chess.js").is_dir():
        missing = "chess.js is not installed for the match driver"
    else:
        return
    raise ValueError(f"{missing}: run bash tools/match/setup.sh --no-opponents (make tune runs it)")


def main(argv=None) -> int:
    args = parser().parse_args(argv)
    # Ctrl-C and a plain kill both end a run cleanly, whatever the shell that
    # started it did with SIGINT (a background job inherits it ignored).
    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGTERM, stop)
    try:
        check_driver(args)
        if args.command == "report":
            from .runfolder import load_state
            report.plot(args.out, load_state(args.out))
            print(report.summary(args.out))
            return 0
        if args.command == "texel":
            from .texel import fit_run
            text = fit_run(args.out, args.engine.parent / "velkor_texel", args.start)
            print(f"{text}\n{genes.describe(text)}\nfit and positions: {args.out / 'texel.txt'}")
            print(f"lean a run towards it: velkor-tune run NEW --start {text}")
            return 0
        if args.command == "positions":
            from . import positions
            if args.pgn:
                args.out.mkdir(parents=True, exist_ok=True)
                print(positions.extract(args.pgn, args.out / "positions.txt"))
                return 0
            settings = {"games": args.games, "depth": args.depth or POSITIONS_DEPTH, "random_plies": args.random_plies,
                        "seed": args.seed, "genes": args.genes}
            with cluster.connect(args.workers, args.scheduler) as client:
                print(positions.play(client, args.out, settings, args.engine))
            print(f"label them: velkor-tune label {args.out / 'positions.txt'}")
            return 0
        if args.command == "label":
            from . import label
            out = args.out or args.positions.with_suffix(".labelled.txt")
            with cluster.connect(args.workers, args.scheduler) as client:
                print(label.label(client, args.positions, out, args.teacher, args.teacher_depth))
            print(f"fit the weights to them: velkor-tune fit {out}")
            return 0
        if args.command == "fit":
            from . import fit
            if not 0 <= args.lam <= 1:
                raise ValueError("--lambda is a share, 0 to 1")
            result = fit.fit(args.positions, args.engine.parent / "velkor_texel", args.start, args.lam)
            text = fit.describe(result)
            if args.out:
                args.out.write_text(text + "\n")
            print(text)
            print(verify_hint(result["genes"]))
            return 0
        if args.command == "spsa":
            from . import spsa
            if not (args.out / spsa.STATE).exists():
                settings = {k: getattr(args, k) for k in ("start", "iterations", "pairs", "batch", "c_end", "r_end",
                                                          "random_plies", "seed")}
                settings.update(depth=args.depth or (None if args.tc else DEPTH), tc=args.tc)
                spsa.write_theta(args.out, spsa.start(args.out, settings, args.engine))
            with cluster.connect(args.workers, args.scheduler) as client:
                state = spsa.carry_on(args.out, client)
            print((args.out / spsa.THETA).read_text())
            print(verify_hint(spsa.answer(state)))
            return 0
        if args.command == "verify":
            from .verify import verify
            tc = None if args.depth else (args.tc or "10+0.1")
            out = args.out or REPO / "build" / "tune" / datetime.datetime.now().strftime("verify-%Y%m%d-%H%M%S")
            with cluster.connect(args.workers, args.scheduler) as client:
                result = verify(client, args.genes, args.base, args.games, args.depth, tc, args.seed,
                                args.engine, args.sprt, out, args.min_games, args.random_plies)
            print(result["text"])
            print(f"results: {out}")
            return 0
        from . import run
        if args.command == "run":
            settings = {k: getattr(args, k) for k in ("generations", "population", "pairs", "seed", "start", "lean", "base",
                                                      "learning_rate", "negative_rate", "mutation_probability",
                                                      "mutation_shift")}
            settings.update(depth=args.depth or (None if args.tc else DEPTH), tc=args.tc)
            run.start(args.out, settings, args.engine)
        with cluster.connect(args.workers, args.scheduler) as client:
            state = run.carry_on(args.out, client)
        print(report.summary(args.out))
        print(verify_hint(run.answer(state)))
        return 0
    except KeyboardInterrupt:
        print(f"\nstopped; carry on with: velkor-tune resume {args.out}", file=sys.stderr)
        return 130
    except engine.EngineRefused as refused:
        print(f"velkor-tune: {refused}", file=sys.stderr)
        return 1
    except (OSError, ValueError) as error:
        print(f"velkor-tune: {error}", file=sys.stderr)
        return 1
