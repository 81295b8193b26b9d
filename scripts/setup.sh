#!/bin/sh
# setup.sh GROUP...: installs what a group of work needs from Debian's packages; what is there already costs nothing.
#   build  the library and the zbase command
#   test   the tests
#   check  formatting, static analysis, the second compilers, fuzzers
#   bench  the benchmarks and their peers
set -eu

build="g++ cmake ninja-build patch libcurl4 ca-certificates libcli11-dev libdw-dev libexpat1-dev libunwind-dev nlohmann-json3-dev pkg-config uuid-dev"
command -v npm >/dev/null || build="$build npm"  # whoever brought it
test="$build libgtest-dev libcpp-httplib-dev openssl libicu-dev locales elfutils fortunes-ru fortunes-zh gdb libxml2-utils uuid-runtime"
check="$test clang-16 clang-format-16 clang-tidy-16 libclang-rt-16-dev lld-16 g++-mingw-w64-x86-64-posix python3"
bench="$build libabsl-dev libbenchmark-dev libmimalloc-dev libprotobuf-dev"

wanted=""
for group in "$@"; do
    case $group in
        build) wanted="$wanted $build" ;;
        test) wanted="$wanted $test" ;;
        check) wanted="$wanted $check" ;;
        bench) wanted="$wanted $bench" ;;
        *) echo "setup.sh: no group \"$group\": build, test, check or bench" >&2; exit 2 ;;
    esac
done

missing=""
for package in $(printf '%s\n' $wanted | sort -u); do
    dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing="$missing $package"
done

install() {
    as_root=""
    [ "$(id -u)" = 0 ] || as_root="sudo"
    echo "setup.sh: installing$missing"
    log=$(mktemp)
    trap 'rm -f "$log"' EXIT
    if ! { $as_root apt-get update && DEBIAN_FRONTEND=noninteractive $as_root apt-get install -y --no-install-recommends $missing; } >"$log" 2>&1; then
        cat "$log" >&2
        exit 1
    fi
}

[ -z "$missing" ] || install
"$(dirname "$0")/breakpad.sh"
