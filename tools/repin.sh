#!/usr/bin/env bash
# make repin: every value the tests pin, taken anew from the current build,
# for an intended change of what the engine computes (an evaluation term, a
# default gene, a search rule). The engine's pinned tests run with
# VELKOR_REPIN naming a scratch folder, into which they report what they
# found; tools/repin.py writes it into their data: the evaluation and search
# references (tests/data/*.epd), the transcripts' expected lines and the
# battery's bestmove counts (tests/protocol/), and the bench count
# (tests/data/bench.txt), which is then also replaced wherever a file of
# the project names the old one. Then the same tests run as make test runs
# them, and the diff is shown to be read: every changed pin must be a change
# that was meant. Not part of make test.
# Usage: tools/repin.sh RELEASE_BUILD
set -euo pipefail
top=$(realpath "$(dirname "$0")/..")
tests=$(realpath "$1")/tests/velkor_tests
pinned='Eval.ReferenceData:Search.ReferenceData:Sessions.Transcripts:Sessions.Battery:Sessions.BenchSignature'
cd "$top"
[ -x "$tests" ] || { echo "repin: no test program $tests: build the release first (make release)" >&2; exit 1; }
report=$(mktemp -d /tmp/velkor-repin-XXXXXX)
trap 'rm -rf "$report"' EXIT
bench() { grep -v '^#' tests/data/bench.txt; }
old=$(bench)
# The tests fail (status 1) where a pin differs; anything else is no report.
status=0
VELKOR_REPIN=$report "$tests" --gtest_brief=1 --gtest_filter="$pinned" >/dev/null || status=$?
[ "$status" -le 1 ] || { echo "repin: the tests ended with status $status, nothing rewritten: run them ($tests --gtest_filter='$pinned')" >&2; exit 1; }
/usr/bin/python3 tools/repin.py "$report"
new=$(bench)
if [ "$old" != "$new" ]; then
    echo "repin: bench counts $new nodes, not $old: the files that name it"
    git grep -l -w "$old" -- ':!tests/data/bench.txt' | while read -r file; do
        sed -i "s/\b$old\b/$new/g" "$file" && echo "  $file"
    done
fi
echo "repin: the pinned tests again, as make test runs them"
"$tests" --gtest_brief=1 --gtest_filter="$pinned" | grep -E '^\[ *(PASSED|FAILED) '
git --no-pager diff --stat
git --no-pager diff
