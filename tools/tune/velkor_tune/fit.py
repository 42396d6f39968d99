"""Weights fitted to labelled positions by the engine's own evaluation
(`velkor_texel`, built beside the engine): the scale first, then every
weight by a coordinate search, a tenth of the positions held out."""
import pathlib
import subprocess

from . import genes
from .reading import Unreadable

EDGES = (genes.LOW, genes.HIGH)
SHOWN = "fit-*.txt"  # the fits that a campaign's page shows, written by `fit --out` into its folder


def fit(positions: pathlib.Path, tool: pathlib.Path, start: str | None = None, lam: float = 0.0) -> dict:
    """Runs the fit; returns the string, its weights, the losses and the log."""
    run = subprocess.run([str(tool), str(positions), *([start] if start else []), "--lambda", str(lam)],
                         capture_output=True, text=True)
    if run.returncode != 0:
        raise ValueError(f"velkor_texel failed: {run.stderr.strip()[-1000:]}")
    weights, losses, held, text = run.stdout.splitlines()[-4:]
    _, loss, _, scale = losses.split()
    _, _, before, after = held.split()
    fitted = genes.decode(text)
    if fitted != [int(w) for w in weights.split()]:
        raise ValueError("velkor_texel printed a string that is not its weights")
    return {"genes": text, "weights": fitted, "loss": float(loss), "scale": float(scale),
            "held_out_before": float(before), "held_out_after": float(after), "lambda": lam,
            "log": run.stderr}


def describe(result: dict) -> str:
    edges = [name for name, w in zip(genes.GENE_NAMES, result["weights"]) if w in EDGES]
    return "\n".join([
        f"held-out loss {result['held_out_before']:.6f} -> {result['held_out_after']:.6f}"
        f" (fitted positions {result['loss']:.6f}, scale {result['scale']:.2f}, lambda {result['lambda']:g})",
        genes.describe(result["genes"]),
        f"at the edge of {genes.LOW}..{genes.HIGH}: " + (", ".join(edges) if edges else "none"),
        result["genes"],
    ])


# The campaign page's reading of the fits in a folder (see campaigns.py): of
# each, describe()'s first line (the losses) and its last (the string).
KIND = "fit"


def holds(folder: pathlib.Path) -> bool:
    return any(p.is_file() for p in folder.glob(SHOWN))


def parts(folder: pathlib.Path, played: list[dict]) -> list[dict]:
    found = []
    for path in sorted(folder.glob(SHOWN)):
        text = path.read_text(errors="replace").splitlines()
        if not text:
            raise Unreadable(f"{path.name} is empty")
        found.append({"kind": KIND, "final": True, "file": path.name, "losses": text[0], "genes": text[-1]})
    return found
