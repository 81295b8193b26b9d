#!/bin/bash
# growth.sh: measures how work and memory grow with the input, of each row of tests/growth, on a built tree. Prints the rows
# that grow faster than their input, and what was counted. ZBASE_GROWTH_TIMES=N makes each input N times as long.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/support/progress.sh

program=build/release/tests/growth_tests
meter=$("$program" --meter)
place=$(mktemp -d)
trap 'rm -rf "$place"; end_progress' EXIT
# One process for each processor; a clock would be disturbed by the others.
shards=$(nproc)
emulator=()
if [[ $meter == *clock* ]] && command -v valgrind >/dev/null; then
    emulator=(valgrind -q --tool=callgrind --zero-before=ZBaseGrowthCounted --dump-after=ZBaseGrowthCounted)
    meter="instructions by callgrind"
elif [[ $meter == *clock* ]]; then
    shards=1
fi

# With `rep movsb` as many octets as one likes would be moved by one instruction.
export GLIBC_TUNABLES=glibc.cpu.x86_rep_movsb_threshold=0x7fffffff:glibc.cpu.x86_rep_stosb_threshold=0x7fffffff

measure_shard() {
    local command=("$program" --gtest_filter='Growth/*')
    export GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$1
    if [ ${#emulator[@]} -gt 0 ]; then
        export ZBASE_GROWTH_COUNTS=$place/counts$1
        mkdir "$ZBASE_GROWTH_COUNTS"
        command=("${emulator[@]}" --callgrind-out-file="$ZBASE_GROWTH_COUNTS/out" "${command[@]}")
    fi
    "${command[@]}"
}

measure() {
    local shard processes=() failed=0
    for ((shard = 0; shard < shards; shard++)); do
        measure_shard "$shard" &
        processes+=($!)
    done
    for shard in "${processes[@]}"; do wait "$shard" || failed=1; done
    return "$failed"
}

log=$place/log
status=0
run_logged "$log" "Measuring growth ($meter)" measure || status=$?
grep -c 'work .* memory .* allocated' "$log" | sed "s/\$/ measurements of $meter/"
[ "$status" -eq 0 ] || grep -E 'Which is|FAILED|rror|fatal' "$log" >&2
exit "$status"
