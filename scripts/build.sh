#!/bin/sh
# build.sh [TARGET...]: configures and builds the release preset, or that of ZBASE_PRESET; prints errors, and the progress.
# ZBASE_CRASH_REPORTING=OFF leaves crash reporting out.
set -eu
cd "$(dirname "$0")/.."
. scripts/support/progress.sh
preset=${ZBASE_PRESET:-release}
quietly "Configuring ($preset)" cmake --preset "$preset" -DZBASE_CRASH_REPORTING="${ZBASE_CRASH_REPORTING:-ON}"
quietly "Building ${*:-everything} ($preset)" cmake --build "build/$preset" ${*:+--target "$@"}
