"""The engine's tunable weights and their -pbil= string.

Each weight takes GENE_SIZE characters, first character the highest bit, read as a
Gray code: neighbouring values differ in one character. "1" is a one bit,
anything else a zero. The names, their order, the size and the defaults are
the engine's own, read from the table its build makes its header of.

Run as a program, it prints one of them for a shell script:
genes.py size|number|bits|names.
"""
import pathlib
import sys

TABLE = pathlib.Path(__file__).resolve().parents[3] / "src" / "evaluation" / "genes.txt"


def read_table(text: str) -> tuple[int, tuple[str, ...], tuple[int, ...]]:
    """GENE_SIZE ("bits N"), then the genes' names and defaults ("id default name")."""
    size, names, defaults = None, [], []
    for line in text.splitlines():
        fields = line.split(None, 2)
        if not fields or line.startswith("#"):
            continue
        if fields[0] == "bits" and len(fields) == 2 and fields[1].isdigit():
            size = int(fields[1])
        elif len(fields) == 3 and fields[1].isdigit():
            names.append(fields[2].strip())
            defaults.append(int(fields[1]))
        else:
            raise ValueError(f"{TABLE}: not a gene: {line!r}")
    if size is None or not names:
        raise ValueError(f"{TABLE}: no \"bits N\" line or no gene")
    return size, tuple(names), tuple(defaults)


GENE_SIZE, GENE_NAMES, DEFAULTS = read_table(TABLE.read_text())
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


if __name__ == "__main__":
    FACTS = {"size": GENE_SIZE, "number": GENE_NUMBER, "bits": BITS, "names": ", ".join(GENE_NAMES)}
    if len(sys.argv) != 2 or sys.argv[1] not in FACTS:
        sys.exit(f"usage: genes.py {'|'.join(FACTS)}")
    print(FACTS[sys.argv[1]])
