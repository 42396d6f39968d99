#!/usr/bin/env bash
# Writes the one-line launcher of the tuned engine beside a release binary:
# velkor-tuned (Linux) or velkor-tuned.bat (Windows) starts the engine in the
# same folder with the string of tools/tune/tuned.txt, so that a GUI installs
# the tuned engine as it installs any other. Arguments a GUI adds are not
# passed on: the engine reads its one argument only when it is the only one,
# and would drop the string beside them.
# Usage: tools/tune/launcher.sh linux|windows FOLDER
set -euo pipefail
tuned=$(dirname "$0")/tuned.txt
if [ ! -f "$tuned" ]; then
    echo "launcher: no $tuned yet: no tuned launcher packed" >&2
    exit 0
fi
genes=$(head -n 1 "$tuned")
# The string's length is the engine's, read from its gene table by the tuner.
bits=$(/usr/bin/python3 "$(dirname "$0")/velkor_tune/genes.py" bits)
[[ $genes =~ ^[01]{$bits}$ ]] || { echo "launcher: $tuned: the first line is not a $bits-character string" >&2; exit 1; }
case "$1" in
    linux)
        printf '#!/bin/sh\nexec "$(dirname "$0")/velkor" -pbil=%s\n' "$genes" >"$2/velkor-tuned"
        chmod +x "$2/velkor-tuned" ;;
    windows) printf '@"%%~dp0velkor.exe" -pbil=%s\r\n' "$genes" >"$2/velkor-tuned.bat" ;;
    *) echo "usage: tools/tune/launcher.sh linux|windows FOLDER" >&2; exit 2 ;;
esac
