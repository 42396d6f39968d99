"""Plots and the summary of a run, finished or not."""
import itertools
import math
import pathlib

import numpy as np

from . import genes, pbil, records
from .runfolder import load_state, read_results

# Every 6-bit code with the value it decodes to, for expected gene values.
CODES = np.array(list(itertools.product((0, 1), repeat=genes.GENE_SIZE)))
VALUES = np.array([genes.gray_decode(int("".join(map(str, c)), 2)) for c in CODES])


def gene_moments(probabilities) -> tuple[np.ndarray, np.ndarray]:
    """Expected value and standard deviation of each gene under the vector."""
    p = np.asarray(probabilities).reshape(genes.GENE_NUMBER, genes.GENE_SIZE)
    weight = np.prod(np.where(CODES[None, :, :] == 1, p[:, None, :], 1 - p[:, None, :]), axis=2)
    mean = weight @ VALUES
    return mean, np.sqrt(weight @ VALUES ** 2 - mean ** 2)


def vectors(state: dict) -> np.ndarray:
    """The vector of every generation played, and the one after the last."""
    return np.array([h["probabilities"] for h in state["history"]] + [state["probabilities"]])


def weight_grid(plt):
    """A figure with a cell for each weight, titled with its name, in a grid
    as near square as the gene count allows; returns it and the cells."""
    columns = math.ceil(math.sqrt(genes.GENE_NUMBER))
    rows = math.ceil(genes.GENE_NUMBER / columns)
    fig, axes = plt.subplots(rows, columns, figsize=(3 * columns, 2.25 * rows), sharex=True, squeeze=False)
    cells = list(axes.flat)
    for ax in cells[genes.GENE_NUMBER:]:
        ax.axis("off")
    for ax, name in zip(cells, genes.GENE_NAMES):
        ax.set_title(name, fontsize=9)
    return fig, cells[:genes.GENE_NUMBER]


def plot(out: pathlib.Path, state: dict):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    from matplotlib.ticker import MaxNLocator
    history, v = state["history"], vectors(state)
    steps = np.arange(len(v))

    fig, ax = plt.subplots(figsize=(10, 6))
    image = ax.imshow(v.T, aspect="auto", cmap="coolwarm", vmin=0, vmax=1, interpolation="nearest",
                      extent=(-0.5, len(v) - 0.5, genes.BITS - 0.5, -0.5))
    ax.set_yticks([k * genes.GENE_SIZE + 2.5 for k in range(genes.GENE_NUMBER)], genes.GENE_NAMES, fontsize=7)
    for k in range(1, genes.GENE_NUMBER):
        ax.axhline(k * genes.GENE_SIZE - 0.5, color="black", linewidth=0.4)
    ax.set_xlabel("generation")
    ax.xaxis.set_major_locator(MaxNLocator(integer=True))
    ax.set_title("Probability of a one bit, by generation")
    fig.colorbar(image, ax=ax)
    fig.tight_layout()
    fig.savefig(out / "bits.png", dpi=110)
    plt.close(fig)

    moments = [gene_moments(p) for p in v]
    mean = np.array([m[0] for m in moments])
    sd = np.array([m[1] for m in moments])
    fig, cells = weight_grid(plt)
    for k, ax in enumerate(cells):
        ax.fill_between(steps, mean[:, k] - sd[:, k], mean[:, k] + sd[:, k], alpha=0.3)
        ax.plot(steps, mean[:, k])
        ax.axhline(genes.DEFAULTS[k], color="grey", linestyle="--", linewidth=0.8)
        ax.set_ylim(genes.LOW, genes.HIGH)
        ax.xaxis.set_major_locator(MaxNLocator(integer=True))
    fig.suptitle("Expected value of each gene ± one deviation (dashed: the default)")
    fig.supxlabel("generation")
    fig.tight_layout()
    fig.savefig(out / "genes.png", dpi=110)
    plt.close(fig)

    fig, ax = plt.subplots(figsize=(8, 4.5))
    if history:
        g = np.arange(len(history))
        best = [h["fitness"][h["best"]] for h in history]
        best_error = [h["errors"][h["best"]] for h in history]
        ax.errorbar(g, best, yerr=best_error, marker="o", capsize=3, label="best candidate ± s.e.")
        ax.errorbar(g, [h["mean"] for h in history], yerr=[h["mean_error"] for h in history], marker="s",
                    capsize=3, label="mean of the population ± s.e.")
    ax.axhline(0.5, color="grey", linestyle="--", linewidth=0.8)
    ax.set_xlabel("generation")
    ax.xaxis.set_major_locator(MaxNLocator(integer=True))
    ax.set_ylabel("score against the base")
    ax.set_ylim(0, 1)
    ax.legend()
    ax.set_title("Fitness by generation")
    fig.tight_layout()
    fig.savefig(out / "fitness.png", dpi=110)
    plt.close(fig)


def summary(out: pathlib.Path) -> str:
    state = load_state(out)
    s, history = state["settings"], state["history"]
    played = read_results(out)
    totals = records.Totals.of(played)
    games = totals.games
    seconds = sum(r["seconds"] for r in played)
    kinds = totals.kinds()
    limit = f"depth {s['depth']}" if s["depth"] else f"clock {s['tc']}"
    lines = [f"run {out}: {state['generation']} of {s['generations']} generations, population {s['population']},"
             f" {s['pairs']} pairs a candidate at {limit}, seed {s['seed']}",
             f"games {games} (mini-matches {len(played)}), {games / (seconds / 60) if seconds else 0:.1f} games/min a worker",
             f"entropy {pbil.entropy(pbil.State(state['probabilities'])):.3f}",
             "failures " + (", ".join(f"{k} {n}" for k, n in kinds.items()) or "none")]
    for h in history:
        lines.append(f"  generation {h['generation'] + 1:3d}: best {h['fitness'][h['best']]:.3f}"
                     f" mean {h['mean']:.3f}±{h['mean_error']:.3f} entropy {h['entropy']:.3f}")
    answer = pbil.consensus(state["probabilities"])
    lines += ["the run's answer, the consensus of the vector now (verify it before use):", answer,
              genes.describe(answer)]
    if state["best"]:
        b = state["best"]
        lines += [f"best-scoring sample (generation {b['generation'] + 1}, fitness {b['fitness']:.3f}±{b['error']:.3f},"
                  " the best of many noisy scores):", b["genes"]]
    mean, _ = gene_moments(state["probabilities"])
    lines += [
              "expected weights now: " + ", ".join(f"{n} {m:.1f}" for n, m in zip(genes.GENE_NAMES, mean)),
              f"plots: {out / 'bits.png'}, {out / 'genes.png'}, {out / 'fitness.png'}"]
    return "\n".join(lines)
