#!/bin/sh
# wine.sh PROGRAM [ARGUMENT...]: runs a program of the preset "windows" under Wine, in a prefix of its own that is made when
# it is first needed, without a display, a browser or the questions of a first start.
set -eu
top=$(cd "$(dirname "$0")/../.." && pwd)
export WINEPREFIX="${ZBASE_WINEPREFIX:-$top/build/wine}" WINEDEBUG="${WINEDEBUG:--all}" WINEARCH=win64
export WINEDLLOVERRIDES="winemenubuilder.exe,mscoree,mshtml=d" LC_ALL="${ZBASE_WINE_LOCALE:-C.UTF-8}"
wine=$(command -v wine64 || command -v /usr/lib/wine/wine64 || command -v wine) ||
    { echo "wine.sh: no Wine: scripts/setup.sh windows" >&2; exit 1; }
if [ ! -e "$WINEPREFIX/.made" ]; then
    mkdir -p "$WINEPREFIX"
    (
        flock 9
        [ -e "$WINEPREFIX/.made" ] || { "$wine" wineboot --init >&2 && touch "$WINEPREFIX/.made"; }
    ) 9>"$WINEPREFIX.lock"
fi
exec "$wine" "$@"
