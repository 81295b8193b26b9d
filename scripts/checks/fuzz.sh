#!/bin/bash
# fuzz.sh PROGRAMS OPTION...: runs each fuzzer in the directory PROGRAMS with these options of its, from the seeds of its name, as
# many at a time as there are processors. What it learns is kept in ZBASE_FUZZ_CORPUS, if that is set, and an input that fails in
# the current directory. ZBASE_FUZZERS has the names of some, instead of all.
set -euo pipefail
top=$(cd "$(dirname "$0")/../.." && pwd)
programs=$1
shift
corpus=${ZBASE_FUZZ_CORPUS:-}
if [ -z "$corpus" ]; then
    corpus=$(mktemp -d)
    trap 'rm -rf "$corpus"' EXIT
fi
export ZBASE_FUZZ_TOP=$top ZBASE_FUZZ_CORPUS=$corpus
# A thrown exception would look through the frames that returned, each time.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_stack_use_after_return=0}

one() {
    local name seeds dictionary log
    name=$(basename "$1")
    seeds=$ZBASE_FUZZ_TOP/fuzz/seeds/$name
    dictionary=$seeds.dict
    [ -d "$seeds" ] || { echo "$name has no seeds"; return 1; }
    mkdir -p "$ZBASE_FUZZ_CORPUS/$name"
    log=$(mktemp)
    local began=$SECONDS
    # That of a build that counts lines.
    if LLVM_PROFILE_FILE=$1.profraw "$1" "${@:2}" -rss_limit_mb=2048 -len_control=0 -print_final_stats=1 -artifact_prefix="$name-" \
        $([ ! -e "$dictionary" ] || echo "-dict=$dictionary") "$ZBASE_FUZZ_CORPUS/$name" "$seeds" >"$log" 2>&1; then
        echo "$name: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") executions in $((SECONDS - began)) s," \
            "$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -1) places"
        rm "$log"
    else
        grep -v -e '^#[0-9]' -e '^INFO' "$log"
        rm "$log"
        echo "$name found something"
        return 1
    fi
}
export -f one

[ $# -gt 0 ] || set -- -runs=0
wanted=${ZBASE_FUZZERS:-$(cd "$programs" && printf '%s\n' *Fuzzer)}
printf '%s\n' $wanted | xargs -P "$(nproc)" -I{} bash -c 'one "$@"' one "$programs/{}" "$@"
