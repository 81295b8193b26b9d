#!/bin/sh
# bench.sh [BENCHMARK...]: measures load, memory, xml, stacks or text, each beside its peers in one run; without a name, all.
set -eu
cd "$(dirname "$0")/.."
scripts/setup.sh bench
build=build/bench
log=$(mktemp)
result=$(mktemp)
trap 'rm -f "$log" "$result"' EXIT
echo "Building the benchmarks ..."
if ! { cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZBASE_BUILD_BENCHMARKS=ON -DZBASE_BUILD_TESTS=OFF \
           -DZBASE_BUILD_TOOLS=OFF -DZBASE_BUILD_EXAMPLES=OFF && cmake --build "$build"; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi

bench_load() { "$build/benchmarks/load/load_cost"; }

# Small regions have a process of their own: what larger ones leave on the heap would decide how fast they are.
bench_memory() {
    for rows in -region region; do
        "$build/benchmarks/memory/BufferBenchmark" --benchmark_filter="$rows" --benchmark_repetitions=15 \
            --benchmark_min_time=0.05 --benchmark_enable_random_interleaving=true --benchmark_out="$result$rows" \
            --benchmark_out_format=json >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
    done
    python3 benchmarks/memory/table.py "$result-region" "${result}region"
    rm -f "$result-region" "${result}region"
}

bench_xml() {
    "$build/benchmarks/xml/xml_benchmark" --benchmark_repetitions=15 --benchmark_min_time=0.05 \
        --benchmark_enable_random_interleaving=true --benchmark_out="$result" --benchmark_out_format=json >"$log" 2>&1 ||
        { cat "$log" >&2; exit 1; }
    python3 benchmarks/xml/table.py "$result"
}

bench_stacks() { "$build/benchmarks/stacks/StackBenchmark"; }

bench_text() { "$build/benchmarks/text/TextBenchmark"; }

[ $# -gt 0 ] || set -- load memory xml stacks text
for name in "$@"; do
    echo "== $name"
    "bench_$name"
done
