"""The engine's tunable weights and their -pbil= string.

Each weight takes GENE_SIZE characters, first character the highest bit, read as a
Gray code: neighbouring values differ in one character. "1" is a one bit,
anything else a zero. The names, their order, the size and the defaults are
the engine's own, read from its evaluation header.
"""
import pathlib
import re

HEADER = pathlib.Path(__file__).resolve().parents[3] / "src" / "evaluation" / "evaluation.h"


def read_header(text: str) -> tuple[int, tuple[str, ...], tuple[int, ...]]:
    """GENE_SIZE, the genes' names (from the enum's comments) and DEFAULT_GENES."""
    size = int(re.search(r"GENE_SIZE = (\d+);", text).group(1))
    names = tuple(re.findall(r"^\s*GENE_[A-Z_]+,\s*// (.+)$", text, re.M))
    defaults = tuple(int(v) for v in re.search(r"DEFAULT_GENES = \{([^}]*)\}", text).group(1).split(","))
    if len(names) != len(defaults):
        raise ValueError(f"{HEADER}: {len(names)} named genes, {len(defaults)} defaults")
    return size, names, defaults


GENE_SIZE, GENE_NAMES, DEFAULTS = read_header(HEADER.read_text())
GENE_NUMBER = len(GENE_NAMES)
BITS = GENE_SIZE * GENE_NUMBER
LOW, HIGH = 0, (1 << GENE_SIZE) - 1  # a weight's range


def gray_encode(value: int) -> int:
    return value ^ (value >> 1)


def gray_decode(code: int) -> int:
    value = 0
    while code:
        value ^= code
        code >>= 1
    return value


def encode(weights) -> str:
    """The string whose decoding gives these weights (each LOW..HIGH)."""
    if len(weights) != GENE_NUMBER or any(not LOW <= w <= HIGH for w in weights):
        raise ValueError(f"need {GENE_NUMBER} weights of {LOW}..{HIGH}")
    return "".join(format(gray_encode(w), f"0{GENE_SIZE}b") for w in weights)


def decode(text: str) -> list[int]:
    """The weights the engine reads from a string of BITS characters."""
    if len(text) != BITS:
        raise ValueError(f"a gene string has {BITS} characters, got {len(text)}")
    bits = "".join("1" if c == "1" else "0" for c in text)
    return [gray_decode(int(bits[k:k + GENE_SIZE], 2)) for k in range(0, BITS, GENE_SIZE)]


DEFAULT_STRING = encode(DEFAULTS)


def describe(text: str) -> str:
    """One line a weight: name and value, for best.txt and the terminal."""
    return "\n".join(f"{name:>24} {value:3d}" for name, value in zip(GENE_NAMES, decode(text)))
