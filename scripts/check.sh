#!/bin/bash
# check.sh [STEP...]: what is checked beside the tests. Without a step, all of them in this order, but for those that run only by
# name: "coverage" and "mutation" (what the tests reach and see), "growth", "valgrind", "environments" and "fuzz_coverage" (minutes
# each), "windows" and "arm64" (other compilers, under emulation; "portability" is a part of the former), "bare", "packages" and
# "builds" (whole systems, up to an hour and more), "docs" (a browser).
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/support/progress.sh

sources() { git ls-files -co --exclude-standard -- "$@"; }

# each COMMAND [ARGUMENT...]: runs it for each file on its input, several at a time, and prints which are done.
each() {
    local files
    mapfile -t files
    printf '%s\n' "${files[@]}" | awk -v all="${#files[@]}" '{ print "[" NR "/" all "]"; print }' |
        xargs -P "$(nproc)" -n 2 bash -c '"${@:1:$#-2}" "${@: -1}" && echo "${*: -2}"' each "$@"
}

check_format() {
    sources '*.h' '*.cpp' | xargs clang-format-16 --dry-run -Werror
}

public_headers() { sources "$1/*.h" | grep -v -e '/os/' -e '/detail/' | LC_ALL=C sort; }

# The warnings of a strict user. Left out are those about older standards, padding, names from elsewhere (_GUID), and
# interfaces whose table is emitted wherever they are used.
strictly="-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor -Wold-style-cast
    -Woverloaded-virtual -Wzero-as-null-pointer-constant -Wextra-semi -Wundef -Wcast-align -Wcast-qual -Wformat=2
    -Wdeprecated -Wdouble-promotion -Wfloat-equal -Wmissing-declarations -Wredundant-decls -Wswitch-enum
    -Wctor-dtor-privacy -Wunused -Werror"
only_gcc="-Wuseless-cast -Wlogical-op -Wduplicated-cond -Wduplicated-branches -Wsuggest-override -Wdeprecated-copy-dtor
    -Wmismatched-tags -Wredundant-tags"
only_clang="-Weverything -Wno-c++98-compat -Wno-c++98-compat-pedantic -Wno-c++20-compat -Wno-padded -Wno-weak-vtables
    -Wno-reserved-identifier"

# compile_alone COMPILER OPTION...: a source for each public header that includes only it.
compile_alone() {
    { public_headers Base; public_headers ZLiteXML; } | xargs -P "$(nproc)" -I{} \
        sh -c 'echo "$0"; echo "#include <$0>" | "$@" -x c++ - || { echo "$0: $*" >&2; exit 255; }' {} "$@" -I. -fsyntax-only
}

# The umbrella header includes every public header; an include never points up a layer. Each header compiles alone and
# without a warning for the strictest of users. A suite of tests carries the name of its file.
check_headers() {
    diff <(grep -o '<Base/.*>' Base/ZBase.h | tr -d '<>') <(public_headers Base | grep -v Base/ZBase.h)
    python3 scripts/checks/layers.py
    python3 scripts/checks/suites.py
    local standard
    { public_headers Base; public_headers ZLiteXML; } | xargs -P "$(nproc)" -I{} sh -c '
        said=$(g++ -std=c++17 -I. -fsyntax-only -x c++ "$0" 2>&1 | grep -m 1 error:)
        case $said in "" | *"needs C++20"*) ;; *) echo "$0, for who compiles for C++17: $said"; exit 255 ;; esac' {}
    for standard in 20 23; do
        quietly "Compiling each header alone (g++, C++$standard)" compile_alone g++ -std=c++$standard $strictly $only_gcc
        quietly "Compiling each header alone (clang++, C++$standard)" \
            compile_alone clang++-16 -std=c++${standard/23/2b} $strictly $only_clang
    done
}

# The library for 64-bit Windows, and the tests under Wine that need nothing of other packages' sources. A machine that can't have
# Wine, or on which it does not start, compiles all the same, and the last line says what was not run.
check_portability() {
    local why=""
    local -x ZBASE_PRESET=windows-core
    if ! scripts/setup.sh wine; then
        why="googletest and wine64 can't be installed"
    elif ! timeout -k 10 180 scripts/windows/wine.sh cmd /c exit; then
        why="Wine does not start"
    fi
    if [ -z "$why" ]; then
        scripts/build.sh
        scripts/windows/run_tests.sh
    else
        scripts/build.sh ZBase
        not_run="$not_run The tests of 64-bit Windows did NOT run: $why."
        echo "check.sh:$not_run" >&2
    fi
}

# What another compiler for 64-bit Windows will find in the logic: Clang as one that is binary compatible with MSVC, over the
# headers of mingw-w64, which are told that GCC reads them.
for_msvc() {
    local headers
    headers=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-libgcc-file-name)")/include/c++
    each clang++-16 --target=x86_64-pc-windows-msvc -fgnuc-version=12.2 -U_MSC_VER -D__MINGW32__ -D__MINGW64__ -D__STRICT_ANSI__ \
        -D__declspec=__declspec -nostdinc++ -isystem "$headers" -isystem "$headers/x86_64-w64-mingw32" \
        -isystem /usr/x86_64-w64-mingw32/include -std=c++20 -DZBASE_BUILDING -Wall -Wextra -Wconversion -Wshadow -Werror -I. \
        -fsyntax-only < <(sources 'Base/*.cpp' | grep -v /os/)
}

# All of it for 64-bit Windows, and its tests under Wine.
check_windows() {
    quietly "Compiling the logic for MSVC's binary interface" for_msvc
    scripts/test.sh --preset windows
    scripts/windows/exports.sh
    scripts/windows/messages.sh
    scripts/windows/dumps.sh
    ZBASE_PRESET=windows-pdb scripts/build.sh
    scripts/windows/exports.sh windows-pdb
    scripts/windows/package.sh
}

check_exports() {
    local list library
    while read -r list library; do
        diff "cmake/$list" <(scripts/checks/exports.sh "build/release/$library") ||
            { echo "The exported symbols changed: if that is meant, scripts/checks/exports.sh LIBRARY > cmake/$list"; exit 1; }
    done <<<"exports.txt Base/libZBase.so
exports-zlitexml.txt ZLiteXML/libZLiteXML.so"
}

# The interface for modules that were built against the libraries before: signatures, layouts, the order of operations.
# Additions pass.
check_abi() {
    local place library name
    place=$(mktemp -d)
    for library in build/release/{Base/libZBase.so,ZLiteXML/libZLiteXML.so,Base/libzbase_debughelp.so}; do
        name=$(basename "$library")
        gunzip -c "cmake/abi/$name.abi.gz" >"$place/old"
        scripts/checks/abi.sh "$library" >"$place/new"
        abidiff --no-added-syms --suppressions cmake/abi/others.ini "$place/old" "$place/new" || {
            echo "Modules that are there break. If that is meant: scripts/checks/abi.sh $library | gzip -9n >cmake/abi/$name.abi.gz"
            exit 1
        }
    done
    rm -rf "$place"
}

# The binaries that are installed are hardened.
check_hardening() {
    local place
    place=$(mktemp -d)
    cmake --install build/release --prefix "$place" >/dev/null
    find "$place" -type f -exec sh -c 'head -c 4 "$1" | grep -q ELF' sh {} \; -print0 | xargs -0 scripts/checks/hardening.sh
    rm -rf "$place"
}

# check_man_page COMMAND [SUBCOMMAND...]: the man page has each command and option of the help.
check_man_page() {
    local help name
    help=$("$@" --help)
    for name in $(sed -n '/^Sub/,$ s/^  \([a-z]*\) .*/\1/p; s/^  \(-[a-z],\)\{0,1\}\(--[a-z-]*\).*/\2/p' <<<"$help"); do
        sed 's/\\-/-/g' packaging/zbase.1 | grep -q -e "$name" || { echo "The man page does not tell of \"${*:2} $name\""; exit 1; }
        case $name in -*) ;; *) check_man_page "$@" "$name" ;; esac
    done
}

# block LANGUAGE [PAGE HEADING]: the first block in that language in README's "Using it", or on a page under a heading.
block() {
    awk -v language="$1" -v heading="## ${3:-Using it}" '/^## / { here = $0 == heading } /^```$/ && on { exit } on { print }
        here && $0 == "```" language { on = 1 }' "${2:-README.md}"
}

# The use of the library as README and the first steps show it, exactly except for the directory, by CMake and by
# pkg-config; the examples.
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
    mkdir "$place/server"
    block cpp >"$place/server/main.cpp"
    block cmake >"$place/server/CMakeLists.txt"
    cmake -S "$place/server" -B "$place/server/build" -DCMAKE_PREFIX_PATH="$place/installed" >/dev/null
    cmake --build "$place/server/build" >/dev/null
    diff <(block text) <("$place/server/build/server")
    (cd "$place/server" && sh -c "$(grep '^g++ main.cpp' "$OLDPWD/README.md")")
    diff <(block text) <("$place/server/server")
    local first=(docs/first-steps.md "A failure from thrower to reader")
    mkdir "$place/first"
    block cpp "${first[@]}" >"$place/first/main.cpp"
    block cmake "${first[@]}" >"$place/first/CMakeLists.txt"
    [[ $(export CMAKE_PREFIX_PATH="$place/installed" PATH="$place/installed/bin:$PATH"; command=$(grep '^cmake -B' "${first[0]}")
        cd "$place/first" && sh -c "$command" 2>/dev/null) == *"Server 103  names.txt has a bad name."* ]] ||
        { echo "The first steps lead elsewhere"; exit 1; }
    local found
    found=$(grep -r -l -a -F "$PWD" "$place/installed" || :)
    [ -z "$found" ] || { echo "The place of the tree is in what is installed: $found"; exit 1; }
    check_man_page build/release/tools/zbase/zbase
    rm -rf "$place"
}

# The code in README and docs is compiled, run and compared; their links are followed.
check_pages() {
    scripts/checks/links.py
    quietly "Running what the pages show" scripts/checks/pages.py
}

# Pages and reference as HTML, without a warning and a broken link, and the first page in a browser.
check_docs() {
    scripts/docs.sh
    scripts/checks/links.py build/docs
    scripts/setup.sh browse
    local shown profile
    profile=$(mktemp -d)
    shown=$(timeout 120 chromium --headless --no-sandbox --disable-gpu --user-data-dir="$profile" --virtual-time-budget=5000 \
        --dump-dom "file://$PWD/build/docs/index.html" 2>/dev/null) || { echo "The browser failed"; exit 1; }
    rm -rf "$profile"
    [[ $shown == *"First steps"* && $shown == *"How a failure travels"* ]] || { echo "The first page is not shown: $shown"; exit 1; }
}

# The analyser looks at a tenth of the states of a function that it would by itself, which takes a third of the time;
# "scripts/soak.sh analysis" has it look at all.
check_tidy() {
    cmake --preset clang >/dev/null
    # Sources that the configuration leaves out have no compile command.
    quietly "Analysing" each clang-tidy-16 --quiet -p build/clang --extra-arg={-Xclang,-analyzer-config} \
        --extra-arg={-Xclang,"max-nodes=${ZBASE_ANALYSED_STATES:-20000}"} \
        < <(sources 'Base/*.cpp' 'DebugHelp/*.cpp' 'tools/*.cpp' 'ZLiteXML/*.cpp' | grep -v -e /off/ -e /windows/)
}

check_sanitizers() {
    ZBASE_PRESET=sanitize scripts/build.sh
    scripts/support/run_tests.sh sanitize
    scripts/checks/unsanitized.py told tests/sanitizers.txt build/sanitize/Testing/Temporary/LastTest.log
}

# What a sanitizer can't bear, under valgrind instead.
check_valgrind() {
    scripts/build.sh
    quietly "Testing under valgrind" scripts/checks/unsanitized.py run tests/sanitizers.txt build/release/tests
}

# Shared state of threads, under ThreadSanitizer, whose own memory would count as the process's.
check_threads() {
    ZBASE_PRESET=thread scripts/build.sh memory_tests platform_tests switches_tests together_tests YieldingProcess
    local program
    for program in memory platform switches together; do
        (cd build/thread/tests && quietly "Testing $program" "./${program}_tests" --gtest_filter='-ProcessInformationPrivateBytes.*')
    done
    (cd build/thread/tests && quietly "Testing together, with threads that yield" \
        env LD_PRELOAD="$PWD/libYieldingProcess.so" ZBASE_YIELD_SEED="${ZBASE_YIELD_SEED:-1}" ./together_tests --gtest_filter='*/Together.*')
}

# Work and memory of each function that takes input of a length, at 1, 4 and 16 times a length. Counts instructions, by the
# processor's counter or, where a machine has none, under an emulator.
check_growth() {
    scripts/build.sh growth_tests
    scripts/checks/growth.sh
}

# Always the same programs of input, so that a change is judged by itself; `soak.sh fuzzers` takes others each time.
check_fuzzers() {
    ZBASE_PRESET=fuzz scripts/build.sh fuzzers
    scripts/checks/fuzz.sh build/fuzz/fuzz -max_total_time="${ZBASE_FUZZ_SECONDS:-10}" -seed="${ZBASE_FUZZ_SEED:-1}"
}

# The lines that the fuzzers reach of what each is for.
check_fuzz_coverage() { scripts/checks/fuzz_coverage.sh; }

# The quick programs in three of the places; "scripts/soak.sh environments" has all places.
check_environments() {
    scripts/environments.sh unknown_calls forbidden_calls no_proc
}

check_scripts() { tests/scripts/run.sh; }

# The library without Breakpad: the same names, a program that links it, a tool that says what is missing.
check_without_crash_reporting() {
    local build=build/without-crash-reporting said
    quietly "Configuring" cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_FLAGS=-O1 -DZBASE_WERROR=ON -DZBASE_CRASH_REPORTING=OFF \
        -DZBASE_PARSE_ONCE=ON -DZBASE_BUILD_TESTS=OFF -DZBASE_BUILD_EXAMPLES=OFF
    quietly "Building without crash reporting" cmake --build "$build" --target ZBase zbase
    diff cmake/exports.txt <(scripts/checks/exports.sh "$build/Base/libZBase.so")
    quietly "Linking with it" g++ -std=c++20 -I. tests/crash/off/CrashHandlerTest.cpp tests/support/linux/System.cpp -o "$build/linked" \
        -L"$build/Base" -Wl,-rpath,"$PWD/$build/Base" -lZBase -lgtest -lgtest_main
    quietly "Running it" "$build/linked"
    if said=$("$build/tools/zbase/zbase" crash test 2>&1) || [[ $said != *"built without crash reporting"* ]]; then
        echo "zbase crash test: $said"
        exit 1
    fi
}

# The tree as a part of other projects, as far as the configuration shows it: "builds" builds all of it.
check_ways() {
    tests/packaging/builds.sh --configure type_none type_release without_test_packages subdirectory subdirectory_static
}

# The lines and branches of the libraries that the tests reach.
check_coverage() {
    scripts/build.sh
    ZBASE_PRESET=coverage scripts/build.sh ZBase ZLiteXML zbase_debughelp zbase-crash-sender zbase-stack-names CountedProcess \
        text_detail_tests scripted_tests platform_tests platform_os_tests
    scripts/checks/coverage.sh
}

# Whether the tests see a change of the logic: of one in a hundred changes here, of more in the soak.
check_mutation() {
    scripts/build.sh
    scripts/checks/mutation.py --sample "${ZBASE_MUTANTS:-40}" --seed "${ZBASE_MUTATION_SEED:-1}"
}

# What knows no processor, compiled for ARM64, with its tests under an emulator.
check_arm64() {
    scripts/setup.sh arm64
    cmake --preset arm64 >/dev/null
    quietly "Building for ARM64" cmake --build --preset arm64
    quietly "Testing under qemu-aarch64" ctest --preset arm64 --no-tests=error -j "$(nproc)"
}

# Both commands on a system that has nothing.
check_bare() {
    scripts/setup.sh bare
    scripts/checks/bare.sh
}

# The Debian packages, installed, used and removed on a bare system.
check_packages() {
    scripts/setup.sh bare
    scripts/checks/bare.sh tests/packaging/packages.sh
}

# Each way to build with an available compiler, on this Debian and the next, and there the tests.
check_builds() {
    scripts/setup.sh bare
    scripts/checks/bare.sh tests/packaging/builds.sh
    ZBASE_BARE_SUITE=trixie scripts/checks/bare.sh scripts/test.sh tests/packaging/builds.sh
}

steps=("$@")
[ $# -gt 0 ] || steps=(format headers exports abi hardening package pages portability tidy sanitizers threads fuzzers scripts without_crash_reporting ways)
for step in "${steps[@]}"; do
    declare -F "check_$step" >/dev/null || { echo "check.sh: no step \"$step\"" >&2; exit 2; }
done
if [[ " bare packages builds docs arm64 " != *" ${steps[*]} "* ]]; then
    scripts/setup.sh check
    [ -d build/release ] || scripts/build.sh
fi
took=""
not_run=""
for step in "${steps[@]}"; do
    echo "== $step"
    began=$SECONDS
    "check_$step"
    took="$took $step $((SECONDS - began)) s,"
done
echo "All checks passed:${took%,}${not_run:+.$not_run}"
