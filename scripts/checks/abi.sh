#!/bin/sh
# abi.sh LIBRARY: the interface of a shared library for modules built against it, for abidiff: the signatures of its
# exports, the layouts of its records, the order of the virtual operations of its interfaces.
set -eu
cd "$(dirname "$0")/../.."
exec abidw --exported-interfaces-only --headers-dir Base --headers-dir ZLiteXML --drop-private-types \
    --suppressions cmake/abi/others.ini --type-id-style hash --no-show-locs --no-corpus-path --no-comp-dir-path \
    --no-elf-needed --no-architecture "$1"
