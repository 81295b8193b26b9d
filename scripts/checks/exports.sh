#!/bin/sh
# exports.sh LIBRARY: the exported names of a shared library, without those that the compiler adds for types and templates.
set -eu
nm -D --defined-only --format=just-symbols "$1" | c++filt | grep -v -e '^std::' -e '^typeinfo' -e '^vtable' -e '^VTT' \
    -e '__gnu_cxx' -e '^void std::' -e '^construction vtable' -e 'virtual thunk to' | LC_ALL=C sort -u
