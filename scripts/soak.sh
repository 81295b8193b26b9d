#!/bin/bash
# soak.sh [STEP...]: the tests that take long, on a built tree. Without a step, all of them, in this order.
set -euo pipefail
cd "$(dirname "$0")/.."

# Every encoding that the C library can build a locale of, each character both ways.
soak_encodings() {
    scripts/build.sh text_tests
    ZBASE_ALL_ENCODINGS=1 build/release/tests/text_tests --gtest_brief=1 --gtest_filter='*EncodingTest*' | grep -v SKIPPED
}

scripts/setup.sh test
steps=("$@")
[ $# -gt 0 ] || steps=(encodings)
for step in "${steps[@]}"; do
    echo "== $step"
    "soak_$step"
done
echo "All passed: ${steps[*]}"
