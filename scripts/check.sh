#!/bin/bash
# check.sh [STEP...]: what is checked beside the tests. Without a step, all of them, in this order.
set -euo pipefail
cd "$(dirname "$0")/.."

sources() { git ls-files -co --exclude-standard -- "$@"; }

check_format() {
    sources '*.h' '*.cpp' | xargs clang-format-16 --dry-run -Werror
}

# The umbrella header names every public header; an include never points up a layer.
check_headers() {
    diff <(grep -o '<Base/.*>' Base/ZBase.h | tr -d '<>') \
         <(sources 'Base/*.h' | grep -v -e '/os/' -e '/detail/' -e 'Base/ZBase.h' | LC_ALL=C sort)
    python3 scripts/layers.py
}

# The logic stays free of the operating system: it compiles for another one, and with another compiler.
check_portability() {
    sources 'Base/*.cpp' | grep -v /os/ | xargs -P "$(nproc)" -I{} \
        x86_64-w64-mingw32-g++-posix -std=c++20 -DZBASE_BUILDING -Wall -Wextra -Wconversion -Wshadow -Werror -I. \
        -fsyntax-only {}
    ZBASE_PRESET=clang scripts/build.sh ZBase zbase
}

check_exports() {
    diff cmake/exports.txt <(scripts/exports.sh build/release/Base/libZBase.so) ||
        { echo "The exported symbols changed: if that is meant, scripts/exports.sh LIBRARY > cmake/exports.txt"; exit 1; }
}

# An outside project finds the installed package, by CMake and by pkg-config.
check_package() {
    local place
    place=$(mktemp -d)
    cmake --install build/release --prefix "$place/installed" >/dev/null
    cmake -S examples/consumer -B "$place/build" -DCMAKE_PREFIX_PATH="$place/installed" >/dev/null
    cmake --build "$place/build" >/dev/null
    "$place/build/consumer"
    "$place/build/consumer_xml"
    PKG_CONFIG_PATH=$(dirname "$(find "$place/installed" -name zbase.pc)")
    export PKG_CONFIG_PATH
    g++ -std=c++20 examples/consumer/main.cpp -o "$place/by-pkg-config" $(pkg-config --cflags --libs zbase)
    LD_LIBRARY_PATH=$(pkg-config --variable=libdir zbase) "$place/by-pkg-config"
    rm -rf "$place"
}

check_tidy() {
    cmake --preset clang >/dev/null
    sources 'Base/*.cpp' 'tools/*.cpp' 'ZLiteXML/*.cpp' |
        xargs -P "$(nproc)" -n 4 clang-tidy-16 --quiet -p build/clang 2>/dev/null
}

check_sanitizers() {
    ZBASE_PRESET=sanitize scripts/build.sh
    ctest --preset sanitize -j "$(nproc)"
}

# What threads may share, under ThreadSanitizer, whose own memory would count as the process's.
check_threads() {
    ZBASE_PRESET=thread scripts/build.sh memory_tests platform_tests switches_tests
    local program
    for program in memory platform switches; do
        (cd build/thread/tests && "./${program}_tests" --gtest_brief=1 --gtest_filter='-PrivateBytes.*')
    done
}

check_fuzzers() {
    ZBASE_PRESET=fuzz scripts/build.sh fuzzers
    local fuzzer
    for fuzzer in build/fuzz/fuzz/*Fuzzer; do
        echo "$(basename "$fuzzer") for ${ZBASE_FUZZ_SECONDS:-10} s"
        "$fuzzer" -max_total_time="${ZBASE_FUZZ_SECONDS:-10}" -verbosity=0 -print_final_stats=0 -rss_limit_mb=2048
    done
}

scripts/setup.sh check
[ -d build/release ] || scripts/build.sh
steps=("$@")
[ $# -gt 0 ] || steps=(format headers exports package portability tidy sanitizers threads fuzzers)
for step in "${steps[@]}"; do
    echo "== $step"
    "check_$step"
done
echo "All checks passed: ${steps[*]}"
