#!/bin/bash
# hardening.sh FILE...: reads from each binary how it is hardened, and fails if one lacks something: every address bound at
# load and then read-only, no executable stack, no code that the loader changes, guarded stacks and calls of the C library,
# marked targets of jumps, and a place in memory of the loader's choice.
set -euo pipefail

# The note that tells the loader so is lost where the C library's own start files have none, so the instructions are counted.
marks_each_function() {
    local functions
    functions=$(awk '$4 == "FUNC" && $7 != "UND"' <<<"$2" | wc -l)
    [ "$(objdump -d --no-show-raw-insn "$1" | grep -c endbr64)" -gt "$functions" ]
}

lacks() {
    local file=$1 dynamic segments symbols
    dynamic=$(readelf -W -d "$file")
    segments=$(readelf -W -h -l "$file")
    symbols=$(readelf -W --dyn-syms "$file")
    grep -q 'Type:.*DYN' <<<"$segments" || echo "a place of the loader's choice"
    grep -q GNU_RELRO <<<"$segments" || echo "read-only addresses"
    grep -q 'FLAGS.*NOW' <<<"$dynamic" || echo "addresses bound at load"
    grep -q 'GNU_STACK .* RW ' <<<"$segments" || echo "a stack without code"
    ! grep -q TEXTREL <<<"$dynamic" || echo "code that the loader leaves alone"
    grep -q '__stack_chk_fail' <<<"$symbols" || echo "guarded stacks"
    # A program may call nothing that the compiler can check.
    [[ $file != *.so* ]] || grep -q '__[a-z]*_chk@' <<<"$symbols" || echo "checked calls of the C library"
    case $(uname -m) in
        x86_64) marks_each_function "$file" "$symbols" || echo "marked targets of jumps" ;;
    esac
}

status=0
[ $# -gt 0 ] || { echo "hardening.sh: no binary is given" >&2; exit 2; }
for file in "$@"; do
    lacking=$(lacks "$file") || lacking="what can be read"
    [ -z "$lacking" ] || { sed "s|^|$file lacks |" <<<"$lacking"; status=1; }
done
exit $status
