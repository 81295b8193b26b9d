#!/bin/bash
# soak.sh [STEP...]: the slow tests, on a built tree. Without a step, all of them, in this order, but for "mutation" and
# "coverage", an hour and more, "fuzzers", many hours, "mixed", an hour, and "environments", most of whose lists are not complete.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/support/progress.sh

# Every encoding that the C library can build a locale of, each character both ways.
soak_encodings() {
    scripts/build.sh text_tests
    ZBASE_ALL_ENCODINGS=1 quietly "Converting in every encoding" \
        build/release/tests/text_tests --gtest_filter='*EncodingsOfTheSystem*'
}

# Hostile documents of 1 to 64 MiB, as a whole and in pieces down to one octet.
soak_xml() {
    scripts/build.sh zlitexml_tests
    ZBASE_SOAK_MIB=64 build/release/tests/zlitexml_tests --gtest_brief=1 --gtest_filter='Documents/HostileDocumentOfEachKind.Takes*'
}

# Ten thousand crashes of two threads at once, and of eight, by different signals: one dump, one report, the right end.
soak_crashes() {
    scripts/build.sh crash_tests crash-receiver
    ZBASE_CRASH_TRIES=${ZBASE_CRASH_TRIES:-10000} build/release/tests/crash_tests --gtest_brief=1 --gtest_filter='CrashStorm.Of*'
}

# How work and memory grow, with inputs that are eight times as long.
soak_growth() {
    scripts/setup.sh check
    scripts/build.sh growth_tests
    ZBASE_GROWTH_TIMES=${ZBASE_GROWTH_TIMES:-8} scripts/checks/growth.sh
}

# The tests in places that lack something, and in each locale of Debian.
soak_environments() {
    scripts/setup.sh check
    scripts/build.sh
    ZBASE_TEST_PROGRAMS=all scripts/environments.sh unknown_calls forbidden_calls no_proc
    ZBASE_ALL_LOCALES=1 scripts/environments.sh descriptors few_descriptors full_disk read_only_disk no_network silent_resolver \
        address_space small_stack nameless_user locales
}

# The states of each function, as far as the analyser goes by itself.
soak_analysis() { ZBASE_ANALYSED_STATES=225000 scripts/check.sh tidy; }

# The lines and branches of the libraries that the tests reach.
soak_coverage() { scripts/check.sh coverage; }

# Four hundred changes of the logic: nearly all of them are seen by a test.
soak_mutation() {
    scripts/build.sh
    scripts/checks/mutation.py --sample "${ZBASE_MUTANTS:-400}" --seed "${ZBASE_MUTATION_SEED:-1}"
}

# Ten million executions of each fuzzer. What they learn stays in build/fuzz-corpus, for the next time and for
# "scripts/check.sh fuzz_coverage".
soak_fuzzers() {
    scripts/setup.sh check
    ZBASE_PRESET=fuzz scripts/build.sh fuzzers
    ZBASE_FUZZ_CORPUS=$PWD/build/fuzz-corpus scripts/checks/fuzz.sh build/fuzz/fuzz -runs="${ZBASE_FUZZ_RUNS:-10000000}"
}

# Eight threads of mixed work through all subsystems, with crashes whose reports are lost on the way, for an hour. Before it a
# leak of each kind and a lost report are planted, which it has to tell.
soak_mixed() {
    scripts/build.sh soak
    local plant said
    for plant in block descriptor thread report; do
        said=$(timeout 600 build/release/tests/soak 12 "$plant" 2>&1) && { echo "$said"; echo "A planted $plant is not told"; exit 1; }
        [[ $said == *"NOT FLAT"* || $said == *"LOST: 1 reports"* ]] || { echo "$said"; echo "A planted $plant is not told"; exit 1; }
    done
    build/release/tests/soak "${ZBASE_SOAK_SECONDS:-3600}" 2>&1
}

scripts/setup.sh test
steps=("$@")
[ $# -gt 0 ] || steps=(encodings xml crashes growth analysis)
for step in "${steps[@]}"; do
    echo "== $step"
    "soak_$step"
done
echo "All passed: ${steps[*]}"
