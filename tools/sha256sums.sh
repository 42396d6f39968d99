#!/usr/bin/env bash
# Writes DIR/SHA256SUMS for every release archive and package in DIR (what
# make dist and make deb leave in build/dist), in the form sha256sum -c reads.
# Usage: tools/sha256sums.sh DIR
set -euo pipefail
cd "$1"
shopt -s nullglob
files=(velkor-*.tar.gz velkor-*.zip velkor_*.deb)
[ ${#files[@]} -gt 0 ] || { echo "sha256sums: no archive or package in $1" >&2; exit 1; }
sha256sum "${files[@]}" >SHA256SUMS.part && mv SHA256SUMS.part SHA256SUMS
echo "sha256sums: $1/SHA256SUMS, ${#files[@]} files"
