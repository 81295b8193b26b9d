#!/bin/sh
# bench.sh [REPETITIONS]: measures the region allocators and the stacks beside their peers and prints the ratios.
set -eu
cd "$(dirname "$0")/.."
scripts/setup.sh bench
build=build/bench
log=$(mktemp)
result=$(mktemp)
trap 'rm -f "$log" "$result"' EXIT
echo "Building the benchmarks ..."
if ! { cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZBASE_BUILD_BENCHMARKS=ON -DZBASE_BUILD_TESTS=OFF \
           -DZBASE_BUILD_TOOLS=OFF -DZBASE_BUILD_EXAMPLES=OFF && cmake --build "$build" --target BufferBenchmark StackBenchmark; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
"$build/benchmarks/memory/BufferBenchmark" --benchmark_repetitions="${1:-15}" --benchmark_min_time=0.05 \
    --benchmark_enable_random_interleaving=true --benchmark_out="$result" --benchmark_out_format=json >"$log" 2>&1 ||
    { cat "$log" >&2; exit 1; }
python3 benchmarks/memory/table.py "$result"
"$build/benchmarks/stacks/StackBenchmark"
