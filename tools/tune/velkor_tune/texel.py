"""The cheap first stage of a PBIL run: the weights fitted to the results of
the quiet positions of the run's own games, as a string to lean a new run
towards (`run --start`)."""
import pathlib

from . import fit, positions
from .runfolder import PGN, write_atomically


def fit_run(run: pathlib.Path, tool: pathlib.Path, start: str | None = None) -> str:
    """Writes RUN/positions.txt and RUN/texel.txt; returns the fitted string."""
    games = sorted((run / PGN).glob("*.pgn"))
    if not games:
        raise ValueError(f"{run} has no games yet")
    positions.extract(games, run / "positions.txt")
    result = fit.fit(run / "positions.txt", tool, start)
    write_atomically(run / "texel.txt", f"{fit.describe(result)}\n\n{result['log']}")
    return result["genes"]
