#!/bin/sh
# test.sh [CTEST ARGUMENT...]: installs what is missing, builds everything and runs every test.
set -eu
cd "$(dirname "$0")/.."
scripts/setup.sh test
scripts/build.sh
exec scripts/run_tests.sh release "$@"
