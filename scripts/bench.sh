#!/bin/sh
# bench.sh [--check] [--docs] [BENCHMARK...]: measures load, memory, xml, stacks, text, messages, numbers or switches, each
# compared with its peers in one run; without a name, all. The last four have goals in benchmarks/goals.tsv: --check
# measures only these and fails where one is missed by more than the spread, --docs writes docs/performance.md and its plots
# from them.
set -eu
options=""
names=""
for word in "$@"; do
    case $word in
        --check | --docs) options="$options $word" ;;
        load | memory | xml | stacks | text | messages | numbers | switches) names="$names $word" ;;
        *) echo "bench.sh: no benchmark \"$word\": load, memory, xml, stacks, text, messages, numbers or switches" >&2; exit 2 ;;
    esac
done
case $options in *--docs*) names="text messages numbers switches" ;; esac
for name in $names; do
    case $options:$name in
        *--check*:load | *--check*:memory | *--check*:xml | *--check*:stacks)
            echo "bench.sh: $name has no goals to check" >&2
            exit 2
            ;;
    esac
done
if [ -z "$names" ]; then
    names="text messages numbers switches"
    [ -n "$options" ] || names="load memory xml stacks $names"
fi
cd "$(dirname "$0")/.."
scripts/setup.sh bench
build=build/bench
log=$(mktemp)
result=$(mktemp)
trap 'rm -f "$log" "$result"*' EXIT
echo "Building the benchmarks ..."
if ! { cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZBASE_BUILD_BENCHMARKS=ON -DZBASE_BUILD_TESTS=OFF \
           -DZBASE_BUILD_TOOLS=OFF -DZBASE_BUILD_EXAMPLES=OFF && cmake --build "$build"; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi

bench_load() { "$build/benchmarks/load/load_cost"; }

# Small regions have a process of their own: their speed would depend on the heap that larger ones leave.
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

# Those with goals print lines for one table.
tables=""
measure() {
    "$build/benchmarks/$1/$2" >"$result.$1"
    tables="$tables $1=$result.$1"
}
bench_text() { measure text TextBenchmark; }
bench_messages() { measure messages MessageBenchmark; }
bench_numbers() { measure numbers NumberBenchmark; }
bench_switches() { measure switches SwitchBenchmark; }

for name in $names; do
    echo "== $name"
    "bench_$name"
done
[ -z "$tables" ] || python3 benchmarks/table.py $options $tables
