#!/bin/sh
# build.sh [TARGET...]: configures and builds the release preset; prints only what went wrong.
set -eu
cd "$(dirname "$0")/.."
preset=${ZBASE_PRESET:-release}
log=$(mktemp)
trap 'rm -f "$log"' EXIT
echo "Building ${*:-everything} ($preset) ..."
if ! { cmake --preset "$preset" && cmake --build "build/$preset" ${*:+--target "$@"}; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
