#!/bin/sh
# exports.sh [PRESET]: the exported names of the preset, "windows" if none is given, which is built, are those of Linux: cmake/exports.txt, and what the
# command of the preset "release" was linked with. A name that is missing or new on one side fails, and is shown.
#
# Both compilers spell names alike. The differences that are meant:
#   - a size, an address and a number of 64 bits are an "unsigned long" on Linux, where that is 64 bits wide, and an "unsigned long
#     long" here; signed ones likewise. A name that differs in no more is the same, and is counted on both sides as often;
#   - a FILE of the C library is an _IO_FILE on Linux and an _iobuf here;
#   - MessageCursor::State, a private type that only one source of the library knows, is visible on Linux as the class around it is.
#     Windows exports a class without the types in it.
set -eu
cd "$(dirname "$0")/../.."
build=build/${1:-windows}
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

# The exported functions and variables in the words of C++, without what the compiler adds for types and templates.
of_windows() {
    x86_64-w64-mingw32-objdump -p "$1" |
        awk '/Ordinal\/Name Pointer\] Table/ { on = 1; next } on && /^\t\[ *[0-9]+\]/ { print $NF; next } on { exit }' |
        c++filt | grep -v -e '^std::' -e '^typeinfo' -e '^vtable' -e '^VTT' -e '__gnu_cxx' -e '^void std::' \
        -e '^construction vtable' -e 'virtual thunk to' | LC_ALL=C sort -u
}

neutral() {
    sed -e 's/\blong long\b/long/g' -e 's/\b\(_IO_FILE\|_iobuf\)\b/FILE/g' -e '/^ZBase::MessageCursor::State::/d' | LC_ALL=C sort
}

# compare NAMES LIBRARY
compare() {
    of_windows "$2" >"$place/names"
    [ -s "$place/names" ] || { echo "exports.sh: $2 exports nothing" >&2; exit 1; }
    neutral <"$1" >"$place/wanted"
    neutral <"$place/names" >"$place/found"
    diff "$place/wanted" "$place/found" >"$place/difference" || {
        echo "exports.sh: $2 exports others than Linux has (<: missing, >: only here)" >&2
        cat "$place/difference" >&2
        exit 1
    }
    echo "$2: $(wc -l <"$place/found") exported names, as on Linux"
}

[ -e build/release/ZLiteXML/libZLiteXML.so ] || scripts/build.sh zbase
scripts/checks/exports.sh build/release/ZLiteXML/libZLiteXML.so >"$place/xml"
compare cmake/exports.txt "$build/bin/libZBase.dll"
compare "$place/xml" "$build/bin/libZLiteXML.dll"
