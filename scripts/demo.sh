#!/bin/sh
# demo.sh [FILE]: installs what is missing, builds the library and its command, and follows a file through it.
set -eu
case ${1-/} in
    /*) ;;
    *) set -- "$PWD/$1" ;;
esac
cd "$(dirname "$0")/.."
scripts/setup.sh build
ZBASE_PRESET=demo scripts/build.sh zbase
build/demo/tools/zbase/zbase road "${1:-README.md}"
echo
echo "That was build/demo/tools/zbase/zbase road ${1:-README.md}; docs/first-steps.md and examples/ show how programs use it."
