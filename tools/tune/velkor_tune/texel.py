"""The cheap first stage: the weights fitted to the results of the quiet
positions of a run's own games (Texel's method), by the engine's C++ fitting
tool, as a string to lean a new run towards (`run --start`)."""
import pathlib
import subprocess

from . import genes

POSITIONS = pathlib.Path(__file__).resolve().parents[2] / "match" / "positions.mjs"


def fit(run: pathlib.Path, tool: pathlib.Path, start: str | None = None) -> str:
    """Writes RUN/positions.txt and RUN/texel.txt; returns the fitted string."""
    games = sorted((run / "pgn").glob("*.pgn"))
    if not games:
        raise ValueError(f"{run} has no games yet")
    positions = run / "positions.txt"
    with open(positions, "w") as f:
        subprocess.run(["node", str(POSITIONS), *map(str, games)], stdout=f, check=True)
    fitted = subprocess.run([str(tool), str(positions), *([start] if start else [])], capture_output=True,
                            text=True, check=True)
    text = fitted.stdout.splitlines()[-1]
    genes.decode(text)  # 84 characters, or this raises
    (run / "texel.txt").write_text(f"{text}\n{fitted.stderr}\n{genes.describe(text)}\n")
    return text
