# Sourced by the Windows scripts with the wine prefix to use: sets WINE (the
# 64-bit loader, which Debian keeps off the PATH) and a quiet wine, and
# makes the prefix on first use, so that its messages stay out of the tests.
WINE=$(command -v wine64 || echo /usr/lib/wine/wine64)
WINESERVER=$(command -v wineserver || echo /usr/lib/wine/wineserver)
export WINEPREFIX=$(realpath -m "$1") WINEDEBUG=-all
if [ ! -f "$WINEPREFIX/system.reg" ]; then
    echo "making the wine prefix $WINEPREFIX" >&2
    mkdir -p "$WINEPREFIX"
    "$WINE" wineboot --init >/dev/null 2>&1 || true
    "$WINESERVER" -w
fi
