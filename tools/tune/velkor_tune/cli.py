"""velkor-tune: run, resume, verify, report."""
import argparse
import datetime
import pathlib
import signal
import sys

from . import cluster, engine, genes, report

REPO = pathlib.Path(__file__).resolve().parents[3]
RELEASE = REPO / "build" / "release" / "velkor"
DEPTH = 5  # of a run's games when neither --depth nor --tc is given


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
    top = argparse.ArgumentParser(prog="velkor-tune", description="Tunes Velkor's 14 weights by PBIL over real games.")
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
    verify.add_argument("--out", type=pathlib.Path, help="folder for games and results (default build/tune/verify-TIME)")
    add_where(verify)
    texel = sub.add_parser("texel", help="weights fitted to the positions of a run's games, for --start")
    texel.add_argument("out", type=pathlib.Path)
    texel.add_argument("--start", type=gene_string, help="the string the fit starts from (default: the engine's)")
    texel.add_argument("--engine", type=pathlib.Path, default=RELEASE,
                       help="the engine build, beside which velkor_texel stands")
    rep = sub.add_parser("report", help="plots and summary of a run")
    rep.add_argument("out", type=pathlib.Path)
    return top


def stop(signum, frame):
    raise KeyboardInterrupt


def main(argv=None) -> int:
    args = parser().parse_args(argv)
    # Ctrl-C and a plain kill both end a run cleanly, whatever the shell that
    # started it did with SIGINT (a background job inherits it ignored).
    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGTERM, stop)
    try:
        if args.command == "report":
            from .run import load_state
            report.plot(args.out, load_state(args.out))
            print(report.summary(args.out))
            return 0
        if args.command == "texel":
            from .texel import fit
            text = fit(args.out, args.engine.parent / "velkor_texel", args.start)
            print(f"{text}\n{genes.describe(text)}\nfit and positions: {args.out / 'texel.txt'}")
            print(f"lean a run towards it: velkor-tune run NEW --start {text}")
            return 0
        if args.command == "verify":
            from .verify import verify
            tc = None if args.depth else (args.tc or "10+0.1")
            out = args.out or REPO / "build" / "tune" / datetime.datetime.now().strftime("verify-%Y%m%d-%H%M%S")
            with cluster.connect(args.workers, args.scheduler) as client:
                result = verify(client, args.genes, args.base, args.games, args.depth, tc, args.seed,
                                args.engine, args.sprt, out, args.min_games)
            print(result["text"])
            print(f"games and results: {out}")
            return 0
        from . import run
        if args.command == "run":
            settings = {k: getattr(args, k) for k in ("generations", "population", "pairs", "seed", "start", "lean", "base",
                                                      "learning_rate", "negative_rate", "mutation_probability",
                                                      "mutation_shift")}
            settings.update(depth=args.depth or (None if args.tc else DEPTH), tc=args.tc)
            run.start(args.out, settings, args.engine)
        with cluster.connect(args.workers, args.scheduler) as client:
            run.carry_on(args.out, client)
        print(report.summary(args.out))
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
