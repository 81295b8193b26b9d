#!/bin/sh
# abi.sh LIBRARY: what modules that were built against a shared library depend on, for abidiff: the signatures of what it
# exports, the layouts of its records, the order of the virtual operations of its interfaces.
set -eu
cd "$(dirname "$0")/.."
exec abidw --exported-interfaces-only --headers-dir Base --headers-dir ZLiteXML --drop-private-types \
    --suppressions cmake/abi/others.ini --type-id-style hash --no-show-locs --no-corpus-path --no-comp-dir-path \
    --no-elf-needed --no-architecture "$1"
