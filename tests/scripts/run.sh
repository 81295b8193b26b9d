#!/bin/bash
# run.sh [TEST...]: the tests of the scripts. Each runs in a copy of them, with commands of its own first in PATH.
set -euo pipefail
cd "$(dirname "$0")/../.."
top=$PWD
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() { echo "$*"; exit 1; }
expect() { [[ $1 == *"$2"* ]] || fail "wanted \"$2\" in: $1"; }
refuse() { [[ $1 != *"$2"* ]] || fail "did not want \"$2\" in: $1"; }

# stand_in NAME BODY: a command first in PATH.
stand_in() {
    mkdir -p bin
    printf '#!/bin/sh\n%s\n' "$2" >"bin/$1"
    chmod +x "bin/$1"
}

# only NAME...: PATH has these commands, the stand-ins for others, and nothing else.
only() {
    mkdir -p few
    local name
    for name in sh bash env awk sed grep sort head tail tr cut cat cp mv rm ln ls mkdir mktemp sleep date id dirname basename \
        chmod printf sha512sum sha256sum base64 od tar gzip patch timeout kill expr test "$@"; do
        [ ! -x "/usr/bin/$name" ] || ln -sf "/usr/bin/$name" "few/$name"
    done
    PATH=$PWD/bin:$PWD/few
}

# As a user without root, on a machine where nothing is installed.
nobody_with_nothing() {
    stand_in id 'echo 1000'
    stand_in dpkg-query 'exit 1'
    stand_in apt-get 'echo "apt-get $*" >>apt.log'
    ln -sfn "$top/third_party/breakpad/node_modules" third_party/breakpad/node_modules
}

test_FailingCommandShowsItsOutputAndFails() {
    local said
    said=$(. scripts/support/progress.sh; quietly "Trying" sh -c 'echo seen; exit 3' 2>&1) && fail "passed: $said" || [ $? = 3 ]
    expect "$said" "Trying ..."
    expect "$said" "seen"
}

test_PassingCommandKeepsItsOutput() {
    refuse "$(. scripts/support/progress.sh; quietly "Trying" sh -c 'echo seen')" "seen"
}

test_LongCommandTellsHowFarItIs() {
    export ZBASE_PROGRESS_SECONDS=1
    expect "$(. scripts/support/progress.sh; quietly "Building" sh -c 'echo "[3/8] Compiling a"; sleep 3')" "[3/8] Compiling a"
    expect "$(. scripts/support/progress.sh; quietly "Installing" sh -c 'echo "pmstatus:g++:40.5:Unpacking g++"; sleep 3')" \
        "installing 40 %: Unpacking g++"
    expect "$(. scripts/support/progress.sh; quietly "Installing" sh -c 'echo "dlstatus:33:39.5:Retrieving file 33 of 89"; sleep 3')" \
        "downloading 39 %: Retrieving file 33 of 89"
}

test_ABinaryThatIsNotHardenedIsNamedWithWhatItLacks() {
    echo '#include <string.h>
        void use(char*); void copy(const char* text) { char block[64]; strcpy(block, text); use(block); }
        void a(void) {} void b(void) {} void c(void) {} void d(void) {} void e(void) {} void f(void) {}' >one.c
    local hard="-O2 -D_FORTIFY_SOURCE=2 -fstack-protector-strong -Wl,-z,now" said
    [ "$(uname -m)" != x86_64 ] || hard="$hard -fcf-protection=full"
    gcc -shared -fPIC $hard one.c -o hard.so
    scripts/checks/hardening.sh hard.so || fail "a hardened binary lacks something"
    gcc -shared -fPIC $hard -z execstack one.c -o stack.so
    said=$(scripts/checks/hardening.sh hard.so stack.so) && fail "an executable stack passed"
    [ "$said" = "stack.so lacks a stack without code" ] || fail "$said"
    gcc -shared -fPIC -O2 -fno-stack-protector -fcf-protection=none -z norelro -z lazy one.c -o soft.so
    said=$(scripts/checks/hardening.sh soft.so) && fail "nothing passed"
    expect "$said" "soft.so lacks guarded stacks"
    expect "$said" "soft.so lacks read-only addresses"
    expect "$said" "soft.so lacks addresses bound at load"
    expect "$said" "soft.so lacks checked calls of the C library"
    [ "$(uname -m)" != x86_64 ] || expect "$said" "soft.so lacks marked targets of jumps"
}

test_MissingSudoNamesThePackages() {
    nobody_with_nothing
    only
    rm -f few/sudo
    local said
    said=$(scripts/setup.sh test 2>&1) && fail "passed: $said"
    expect "$said" "there is no sudo"
    expect "$said" "apt-get install --no-install-recommends"
    expect "$said" " ninja-build "
    [ ! -e apt.log ] || fail "apt was called"
}

test_SudoThatRefusesNamesThePackages() {
    nobody_with_nothing
    stand_in sudo 'exit 1'
    local said
    said=$(scripts/setup.sh build 2>&1 </dev/null) && fail "passed: $said"
    expect "$said" "sudo refuses"
    expect "$said" " ninja-build "
}

test_InstallationIsOneCallThatWaitsForTheLock() {
    nobody_with_nothing
    stand_in id 'echo 0'
    scripts/setup.sh build test check >/dev/null
    [ "$(grep -c ' install ' apt.log)" = 1 ] || fail "$(cat apt.log)"
    grep -q 'DPkg::Lock::Timeout=[1-9].* install .*clang-16.*libgtest-dev' apt.log || fail "$(cat apt.log)"
}

test_WhatIsThereIsNotInstalled() {
    nobody_with_nothing
    stand_in dpkg-query 'shift 2; for package; do echo "$package installed"; done'
    [ -z "$(scripts/setup.sh build test check bench)" ] || fail "said something"
    [ ! -e apt.log ] || fail "apt was called"
}

test_UnknownGroupIsRefused() {
    local status=0
    scripts/setup.sh all 2>/dev/null || status=$?
    [ "$status" = 2 ] || fail "status $status"
}

# A tree with one passing test, several that fail, and a skipped one.
small_tree() {
    mkdir -p build/small
    cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(small NONE)
enable_testing()
add_test(NAME Good.Passes COMMAND sh -c "echo of no interest")
add_test(NAME Odd.IsSkipped COMMAND sh -c "echo 'a.cpp:1: Skipped'; echo 'no such thing here'; echo '[  SKIPPED ]'")
set_tests_properties(Odd.IsSkipped PROPERTIES SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
if(WITH_FAILURES)
    add_test(NAME Bad.Fails COMMAND sh -c "echo wanted 1, got 2; exit 1")
    add_test(NAME Bad.Crashes COMMAND sh -c "kill -SEGV $$")
    add_test(NAME Bad.Hangs COMMAND sleep 100)
    set_tests_properties(Bad.Hangs PROPERTIES TIMEOUT 1)
endif()
END
    cat >CMakePresets.json <<'END'
{ "version": 4,
  "configurePresets": [{ "name": "small", "generator": "Ninja", "binaryDir": "${sourceDir}/build/small" }],
  "testPresets": [{ "name": "small", "configurePreset": "small", "output": { "outputOnFailure": true } }] }
END
    cmake --preset small -DWITH_FAILURES="$1" >/dev/null
}

test_FailingTestFailsTheScriptAndIsShown() {
    small_tree ON
    local said
    said=$(scripts/support/run_tests.sh small 2>&1) && fail "passed: $said"
    expect "$said" "== Bad.Fails (Failed)"
    expect "$said" "wanted 1, got 2"
    expect "$said" "Bad.Crashes (SEGFAULT)"
    expect "$said" "Bad.Hangs (Timeout)"
    expect "$said" "1 passed, 3 failed, 1 skipped, in "
    refuse "$said" "of no interest"
}

test_PassingTestsAreCountedAndSkippedOnesHaveAReason() {
    small_tree OFF
    local said
    said=$(scripts/support/run_tests.sh small)
    expect "$said" "Skipped, no such thing here:
    Odd.IsSkipped"
    expect "$said" "1 passed, 0 failed, 1 skipped, in "
    [ "$(wc -l <<<"$said")" -lt 8 ] || fail "too long: $said"
}

test_NoTestFoundFails() {
    small_tree OFF
    ! scripts/support/run_tests.sh small -R NoSuchTest >/dev/null 2>&1 || fail "passed"
}

test_ArgumentsReachCtest() {
    small_tree ON
    expect "$(scripts/support/run_tests.sh small -R Good)" "1 passed, 0 failed, 0 skipped"
    expect "$(scripts/support/run_tests.sh small -N)" "Total Tests: 5"
}

test_TestProgramThatIsMissingFails() {
    small_tree OFF
    echo 'add_test(NAME Lost.Program COMMAND no_such_program)' >>CMakeLists.txt
    cmake --preset small >/dev/null
    local said
    said=$(scripts/support/run_tests.sh small 2>&1) && fail "passed: $said"
    expect "$said" "Lost.Program"
}

test_RegistryThatDoesNotAnswerIsToldAtOnce() {
    export npm_config_registry=http://127.0.0.1:9/
    local said
    said=$(timeout 60 scripts/breakpad.sh 2>&1) && fail "passed: $said"
    expect "$said" "can't be had from npm's registry"
    expect "$said" "ZBASE_BREAKPAD_DIR="
    expect "$said" "ZBASE_CRASH_REPORTING=OFF"
    refuse "$said" "    at "
    [ -z "$(ls third_party/breakpad/node_modules)" ] || fail "something was left: $(ls -a third_party/breakpad/node_modules)"
}

test_PackagePutByHandIsTaken() {
    export npm_config_registry=http://127.0.0.1:9/
    cp -R "$top/third_party/breakpad/node_modules/minidump" by-hand
    ZBASE_BREAKPAD_DIR=$PWD/by-hand scripts/breakpad.sh
    diff -r "$top/third_party/breakpad/node_modules/minidump" third_party/breakpad/node_modules/minidump
    scripts/breakpad.sh  # is there from now on
}

test_UnpatchedPackageIsPatched() {
    cp -R "$top/third_party/breakpad/node_modules/minidump" by-hand
    local patch
    for patch in $(printf '%s\n' third_party/breakpad/*.patch | sort -r); do
        patch --silent --no-backup-if-mismatch -R -d by-hand/deps/breakpad/src -p1 <"$patch"
    done
    rm by-hand/deps/breakpad/src/third_party/lss
    ZBASE_BREAKPAD_DIR=$PWD/by-hand scripts/breakpad.sh
    diff -r "$top/third_party/breakpad/node_modules/minidump" third_party/breakpad/node_modules/minidump
}

test_WrongPackagesAreRefused() {
    local said
    said=$(ZBASE_BREAKPAD_DIR=/no/such/place scripts/breakpad.sh 2>&1) && fail "passed"
    expect "$said" "there is nothing"
    said=$(ZBASE_BREAKPAD_DIR=$PWD/scripts scripts/breakpad.sh 2>&1) && fail "passed"
    expect "$said" "does not hold the package minidump"
    mkdir -p old/deps/breakpad/src
    printf '{\n  "name": "minidump",\n  "version": "0.1.0"\n}\n' >old/package.json
    said=$(ZBASE_BREAKPAD_DIR=$PWD/old scripts/breakpad.sh 2>&1) && fail "passed"
    expect "$said" "holds minidump 0.1.0"
    tar -czf other.tgz old
    said=$(ZBASE_BREAKPAD_DIR=$PWD/other.tgz scripts/breakpad.sh 2>&1) && fail "passed"
    expect "$said" "its SHA-512 is another"
}

test_WithoutCrashReportingNothingIsFetched() {
    export npm_config_registry=http://127.0.0.1:9/
    [ -z "$(ZBASE_CRASH_REPORTING=OFF scripts/breakpad.sh)" ] || fail "said something"
}

test_BareNeedsRoot() {
    stand_in id 'echo 1000'
    local said
    said=$(scripts/checks/bare.sh 2>&1) && fail "passed"
    expect "$said" "only root"
}

# page LINE...: a page of these lines in docs, with the built library.
page() {
    mkdir -p docs build
    ln -sfn "$top/Base" Base
    ln -sfn "$top/ZLiteXML" ZLiteXML
    ln -sfn "$top/build/release" build/release
    printf '%s\n' "$@" >docs/page.md
}

test_PageThatDoesWhatItShowsPasses() {
    page '```cpp' 'std::puts("begin\n1.5 s\nend");' '```' '' '```text' 'begin' '... s' '...' '```' \
        '<!-- before' 'const int hidden = 7;' '-->' '```cpp' 'std::printf("%d\n", hidden);' '```' '```text' '7' '```' \
        '```cpp' 'int main() {}' '```' '```console' '$ echo a; echo b' 'a' 'b' '$ true' '```'
    expect "$(scripts/checks/pages.py docs/page.md)" "5 blocks and commands of 1 pages, 0 that"
}

test_PageThatDoesSomethingElseIsTold() {
    local said
    page '```cpp' 'std::puts("one");' '```' '' '```text' 'two' '```' '```cpp' 'std::puts("unseen");' '```' \
        '```cpp' 'std::exit(3);' '```' '```console' '$ echo a' 'b' '```' '```cpp' 'int main() { return unknown; }' '```'
    said=$(scripts/checks/pages.py docs/page.md) && fail "passed: $said"
    expect "$said" "page.md:2: prints something else than shown"
    expect "$said" "page.md:9: prints something else than shown"
    expect "$said" "page.md:12: ended with 3"
    expect "$said" "page.md:15: prints something else than shown"
    expect "$said" "page.md:19: does not compile"
}

test_LinkThatLeadsNowhereIsTold() {
    local said
    mkdir docs
    printf '# A page\n\n## One, two\n[here](#one-two) [there](other.md#a-page) [web](https://example.com/x)\n' >docs/page.md
    printf '# A page\n[back](page.md)\n```\n[no link](nowhere.md)\n```\n' >docs/other.md
    scripts/checks/links.py
    printf '[gone](gone.md)\n[no place](other.md#two)\n' >>docs/page.md
    said=$(scripts/checks/links.py) && fail "passed: $said"
    expect "$said" "page.md:5: there is no gone.md"
    expect "$said" "page.md:6: there is no such place in other.md#two"
    expect "$said" "2 links that lead nowhere"
}

test_DecisionGovernsFilesThatAreThere() {
    local said
    mkdir docs
    printf '# Decisions\n\n## Pages\n\n### One\nGoverns `docs`, `scripts/checks/links`,\n`scripts/checks/pages.py`.\n\n`nothing.h` is text.\n' >docs/decisions.md
    scripts/checks/links.py
    printf '\n### Two\nGoverns `scripts/gone.py`, `scripts/link`.\n\n### Three\nIn `scripts`.\n\n## Four\nGoverns `scripts`.\n' >>docs/decisions.md
    said=$(scripts/checks/links.py) && fail "passed: $said"
    expect "$said" "decisions.md:11: there is no scripts/gone.py"
    expect "$said" "decisions.md:11: there is no scripts/link"
    expect "$said" "decisions.md:14: governs no file"
    expect "$said" "decisions.md:17: text that is not of a decision"
    expect "$said" "4 links that lead nowhere"
}

test_SuiteThatDoesNotCarryTheNameOfItsFileIsTold() {
    local said
    mkdir -p tests/texts/linux
    printf 'TEST(Text, IsOne) {}\nTEST_F(TextOfMany, Are) {}\n' >tests/texts/TextTest.cpp
    printf 'TYPED_TEST(TextWalk, Ends) {}\n' >tests/texts/linux/TextWalkTest.cpp
    printf 'int main() {}\n' >tests/texts/Helper.cpp
    [ -z "$(scripts/checks/suites.py)" ] || fail "said something"
    printf 'TEST_P(TextWalkOfAll, Ends) {}\nTEST(Walk, Ends) {}\n' >>tests/texts/TextTest.cpp
    said=$(scripts/checks/suites.py) && fail "passed: $said"
    expect "$said" "tests/texts/TextTest.cpp has the suite TextWalkOfAll, which by its name is of TextWalk"
    expect "$said" "tests/texts/TextTest.cpp has the suite Walk, which by its name is of none"
}

test_ReferenceSaysForAllWhatTheHeaderSaysOnce() {
    cat >header.h <<'END'
// Of all. More.

ZBASE_API int One();
ZBASE_API int Two();

/// Of the pair.
ZBASE_API int Three();
ZBASE_API int Four();

struct Five {
    int six;  // of six

private:
    struct Seven {};
};
END
    diff <(scripts/support/site_source.py header.h) - <<'END'
/// @file
/// Of all. More.

///@{
/// Of all. More.
ZBASE_API int One();
ZBASE_API int Two();
///@}

///@{
/// Of the pair.
ZBASE_API int Three();
ZBASE_API int Four();
///@}

struct Five {
    int six;  ///< of six

};
END
}

# A program whose tests need descriptors, end it, hang or skip where there are none. The list of that environment is the input.
environment_of() {
    [ -e one_tests ] || cat >one.cpp <<'END'
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
static int Open() { return open("/dev/null", O_RDONLY); }
TEST(One, Passes) {}
TEST(One, NeedsADescriptor) { EXPECT_GE(Open(), 0) << "none to spare"; }
TEST(One, EndsWithoutOne) { if (Open() < 0) raise(SIGKILL); }
TEST(One, ComesBehindTheEnd) {}
TEST(Two, HangsWithoutOne) { if (Open() < 0) pause(); }
TEST(Two, SkipsWithoutOne) { if (Open() < 0) GTEST_SKIP() << "none"; }
TEST(Two, SkipsEverywhere) { GTEST_SKIP() << "always"; }
END
    [ -e one_tests ] || g++ one.cpp -o one_tests -lgtest -lgtest_main
    [ -e libTightProcess.so ] || g++ -std=c++20 -shared -fPIC "$top/tests/modules/TightProcess.cpp" -o libTightProcess.so
    mkdir -p tests/environments
    cat >tests/environments/descriptors.txt
    ZBASE_TESTS_DIR=$PWD ZBASE_TEST_PROGRAMS=one_tests ZBASE_TEST_SECONDS=1 scripts/environments.sh descriptors 2>&1
}

test_WhatDiffersInAnEnvironmentIsTold() {
    local said
    said=$(environment_of </dev/null) && fail "passed: $said"
    expect "$said" "== One.NeedsADescriptor fails"
    expect "$said" "none to spare"
    expect "$said" "== One.EndsWithoutOne ends"
    expect "$said" "== Two.HangsWithoutOne hangs"
    expect "$said" "== Two.SkipsWithoutOne skips"
    expect "$said" "2 pass, 2 skip, 1 end, 1 fail, 1 hang"
    expect "$said" "4 differ"
    said=$(ZBASE_TEST_FILTER='One.*' environment_of <<'END'
# Without descriptors.
fails  One.NeedsADescriptor  it opens a file
ends   One.Ends*             it ends
END
    ) || fail "differs: $said"
    expect "$said" "2 pass, 1 end, 1 fail"
    said=$(ZBASE_TEST_FILTER='Two.*' environment_of <<'END'
unrun  Two.HangsWithoutOne   it would wait
skips  Two.SkipsWithoutOne   it says so
END
    ) || fail "differs: $said"
    expect "$said" "  2 skip"
}

test_AListThatIsNotTrueAnyMoreIsTold() {
    local said
    said=$(ZBASE_TEST_FILTER='-Two.Hangs*' environment_of <<'END'
fails   One.Passes           it is thought to fail
either  One.Needs*           as it happens
fails   One.EndsWithoutOne   it is thought to fail only
skips   Two.SkipsWithoutOne  it says so
END
    ) && fail "passed: $said"
    expect "$said" "== One.Passes passes, but tests/environments/descriptors.txt:1 says it fails"
    expect "$said" "== One.EndsWithoutOne ends, but tests/environments/descriptors.txt:3 says it fails"
    expect "$said" "2 differ"
    said=$(environment_of <<<'fails Gone.Test it was there once
hopes One.Passes it is no word') && fail "passed: $said"
    expect "$said" "descriptors.txt:2: a line is how it ends, a test and a reason"
}

test_AnEnvironmentThatIsRefusedIsSkippedByName() {
    stand_in unshare 'echo "Operation not permitted"; exit 1'
    mkdir -p tests/environments
    local said
    said=$(ZBASE_TESTS_DIR=$PWD ZBASE_TEST_PROGRAMS=one_tests scripts/environments.sh no_proc) || fail "failed: $said"
    expect "$said" "Skipped: this machine refuses no_proc: Operation not permitted"
}

# A library whose tests see where IsSmall ends and not where IsLarge begins.
half_tested_tree() {
    mkdir -p Base/text tests/mutation
    cat >Base/text/Sizes.cpp <<'END'
bool IsSmall(int value) {
    return value < 10;
}

// A comment with 3 < 4, and "a text" == "a text".
bool IsLarge(int value) {
    return value > 100;
}
END
    cat >tests/Program.cpp <<'END'
bool IsSmall(int value);
bool IsLarge(int value);
int main() {
    const bool right = IsSmall(9) && !IsSmall(10) && !IsLarge(50) && IsLarge(150);
    return right ? 0 : 1;
}
END
    cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(half CXX)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
add_library(ZBase SHARED ${PROJECT_SOURCE_DIR}/Base/text/Sizes.cpp)
set_target_properties(ZBase PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/Base)
add_executable(text_tests ${PROJECT_SOURCE_DIR}/tests/Program.cpp)
add_executable(with_a_copy ${PROJECT_SOURCE_DIR}/tests/Program.cpp ${PROJECT_SOURCE_DIR}/Base/text/Sizes.cpp)
target_link_libraries(text_tests PRIVATE ZBase)
set_target_properties(text_tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
END
    cmake -S . -B build/release -G Ninja >/dev/null && cmake --build build/release >/dev/null
}

test_AChangeThatNoTestSeesIsNamed() {
    half_tested_tree
    local said
    said=$(scripts/checks/mutation.py) && fail "passed: $said"
    expect "$said" "died Base/text/Sizes.cpp:2: < -> <="
    expect "$said" "died Base/text/Sizes.cpp:2: 10 -> (10 + 1)"
    expect "$said" "survived: line 7 of Base/text/Sizes.cpp: return value > 100; => return value >= 100;"
    expect "$said" "4 changes: 0 change nothing, 2 died, 2 survived, 0 survive with a reason: 50.0 % died"
}

test_AChangeThatMaySurviveHasALineWhichIsTrue() {
    half_tested_tree
    cat >tests/mutation/survivors.txt <<'END'
Base/text/Sizes.cpp: return value > 100; => return value >= 100;
    nobody asks
Base/text/Sizes.cpp: return value > 100; => return value > (100 + 1);
    nobody asks
END
    local said
    said=$(scripts/checks/mutation.py) || fail "failed: $said"
    expect "$said" "2 died, 0 survived, 2 survive with a reason: 100.0 % died"
    printf 'Base/text/Sizes.cpp: return value > 200; => return value >= 200;\n    it was there once\n' >>tests/mutation/survivors.txt
    said=$(scripts/checks/mutation.py) && fail "passed: $said"
    expect "$said" "known, and not there any more: Base/text/Sizes.cpp: return value > 200; => return value >= 200;"
}

# A fuzzer of one function, half of which needs a long text; of what it is called with, "Z" ends it. OPTION... are the compiler's.
small_fuzzer() {
    mkdir -p fuzz/seeds/SmallFuzzer programs Base
    printf a >fuzz/seeds/SmallFuzzer/one
    cat >Base/Small.cpp <<'END'
#include <cstddef>
#include <cstdlib>
int Kind(const unsigned char* text, std::size_t size) {
    if (size == 1 && text[0] == 'Z') {
        std::abort();
    }
    if (size > 1000) {
        int kind = 1;
        kind += 2;
        return kind;
    }
    return 0;
}
END
    cat >fuzz/SmallFuzzer.cpp <<'END'
// For: Base/Small.cpp
#include <cstddef>
#include <cstdint>
int Kind(const unsigned char* text, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { return Kind(data, size) * 0; }
END
    clang++-16 -std=c++20 -fsanitize=fuzzer "$@" fuzz/SmallFuzzer.cpp Base/Small.cpp -o programs/SmallFuzzer
}

test_AnInputThatAFuzzerFindsIsTold() {
    small_fuzzer
    local said
    expect "$(scripts/checks/fuzz.sh "$PWD/programs" -runs=1)" "SmallFuzzer: "
    said=$(scripts/checks/fuzz.sh "$PWD/programs" -runs=1000000 -seed=1) && fail "passed: $said"
    expect "$said" "SmallFuzzer found something"
    [ -n "$(ls SmallFuzzer-crash-*)" ] || fail "the input is gone"
    rm -r fuzz/seeds/SmallFuzzer
    said=$(scripts/checks/fuzz.sh "$PWD/programs" -runs=1) && fail "passed: $said"
    expect "$said" "SmallFuzzer has no seeds"
}

test_AFuzzerThatReachesTooLittleIsTold() {
    small_fuzzer -fprofile-instr-generate -fcoverage-mapping
    local said
    scripts/checks/fuzz.sh "$PWD/programs" -runs=1 >/dev/null
    llvm-profdata-16 merge -o programs/SmallFuzzer.profdata programs/SmallFuzzer.profraw
    said=$(scripts/checks/fuzz_coverage.py programs) && fail "passed: $said"
    expect "$said" "lines of Base/Small.cpp, not "
    expect "$said" "% of the lines that it is for"
    echo "SmallFuzzer: nobody writes texts that long" >fuzz/uncovered.txt
    expect "$(scripts/checks/fuzz_coverage.py programs)" "as nobody writes texts that long"
    printf '#include <cstddef>\nint Kind(const unsigned char*, std::size_t size) {\n    return size > 1000 ? 1 : 0;\n}\n' >Base/Small.cpp
    clang++-16 -std=c++20 -fsanitize=fuzzer -fprofile-instr-generate -fcoverage-mapping fuzz/SmallFuzzer.cpp Base/Small.cpp \
        -o programs/SmallFuzzer
    scripts/checks/fuzz.sh "$PWD/programs" -runs=1 >/dev/null
    llvm-profdata-16 merge -o programs/SmallFuzzer.profdata programs/SmallFuzzer.profraw
    said=$(scripts/checks/fuzz_coverage.py programs) && fail "passed: $said"
    expect "$said" "SmallFuzzer needs no reason any more"
}

# half_reached_tree FIRST: a library of which the tests reach all if they begin with 1, and not the return for small values if with 10.
half_reached_tree() {
    mkdir -p Base/text tests/coverage build/coverage/{Base,DebugHelp,ZLiteXML,tests}
    cat >Base/text/Sizes.cpp <<'END'
int Size(int value) {
    if (value < 10) {
        return 1;
    }
    return value < 100 ? 2 : 3;
}
END
    cat >tests/Program.cpp <<'END'
#include <unistd.h>
#include <cstdio>
int Size(int value);
int main() {
    int sum = 0;
    for (int value = FIRST; value < 20'000; value *= 10) sum += Size(value);
    std::puts("[==========] 1 test ran.");
    std::fflush(stdout);
    _exit(sum > 0 ? 0 : 1);
}
END
    cat >CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(half CXX)
add_library(ZBase SHARED $PWD/Base/text/Sizes.cpp)
target_compile_options(ZBase PRIVATE -O0 --coverage -fprofile-abs-path)
target_link_options(ZBase PUBLIC --coverage -Wl,-u,__gcov_dump -Wl,-u,__gcov_reset)
set_target_properties(ZBase PROPERTIES SOVERSION 1 LIBRARY_OUTPUT_DIRECTORY $PWD/build/coverage/Base)
add_library(CountedProcess MODULE $top/tests/modules/CountedProcess.cpp)
set_target_properties(CountedProcess PROPERTIES LIBRARY_OUTPUT_DIRECTORY $PWD/build/coverage/tests)
add_executable(text_tests $PWD/tests/Program.cpp)
target_link_libraries(text_tests PRIVATE ZBase)
target_compile_definitions(text_tests PRIVATE FIRST=$1)
set_target_properties(text_tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY $PWD/build/release/tests)
END
    # Objects are looked for in the folders of the libraries.
    cmake -S . -B build/coverage/Base -G Ninja >/dev/null && cmake --build build/coverage/Base >build.log || fail "not built: $(<build.log)"
}

test_ALineThatNoTestReachesIsNamed() {
    half_reached_tree 10
    : >tests/coverage/unreached.txt
    local said
    said=$(scripts/checks/coverage.sh text 2>&1) && fail "passed: $said"
    expect "$said" "lines: 3 of 4 are reached, 75.0 %, of which 97 % are wanted"
    expect "$said" "branches: 3 of 4 are reached, 75.0 %, of which 90 % are wanted"
    expect "$said" "Base/text/Sizes.cpp: 1 lines (3) that no test reaches, 0 in tests/coverage/unreached.txt"
    [ -z "$(find . -name '*.gcov')" ] || fail "gcov left files in the tree"
    echo "1 Base/text/Sizes.cpp nobody has small values" >tests/coverage/unreached.txt
    said=$(ZBASE_COVERAGE_OF=gathered scripts/checks/coverage.sh 2>&1) && fail "passed: $said"
    refuse "$said" "that no test reaches"
    expect "$said" "too few lines"
    local flag
    flag=$(sed -n 's/^flags[^:]*: \([^ ]*\).*/\1/p' /proc/cpuinfo | head -n 1)
    echo "no-$flag Base/text/Sizes.cpp this processor has it" >tests/coverage/unreached.txt
    said=$(ZBASE_COVERAGE_OF=gathered scripts/checks/coverage.sh 2>&1) && fail "passed: $said"
    expect "$said" "lines: 3 of 4 are reached"
    echo "no-such_flag Base/text/Sizes.cpp another one has small values" >tests/coverage/unreached.txt
    said=$(ZBASE_COVERAGE_OF=gathered scripts/checks/coverage.sh 2>&1) || fail "failed: $said"
    expect "$said" "lines: 3 of 3 are reached, 100.0 %"
    expect "$said" "branches: 3 of 3 are reached, 100.0 %"
}

test_AListOfUnreachedLinesIsTrue() {
    half_reached_tree 1
    : >tests/coverage/unreached.txt
    local said
    said=$(scripts/checks/coverage.sh text 2>&1) || fail "failed: $said"
    expect "$said" "lines: 4 of 4 are reached, 100.0 %"
    echo "1 Base/text/Sizes.cpp nobody has small values" >tests/coverage/unreached.txt
    said=$(ZBASE_COVERAGE_OF=gathered scripts/checks/coverage.sh 2>&1) && fail "passed: $said"
    expect "$said" "Base/text/Sizes.cpp: 0 lines that no test reaches, 1 in tests/coverage/unreached.txt"
    echo "0-1 Base/text/Sizes.cpp as it happens" >tests/coverage/unreached.txt
    said=$(ZBASE_COVERAGE_OF=gathered scripts/checks/coverage.sh 2>&1) || fail "failed: $said"
    echo "no-such_flag Base/text/Sizes.cpp another processor" >tests/coverage/unreached.txt
    said=$(ZBASE_COVERAGE_OF=gathered scripts/checks/coverage.sh 2>&1) || fail "failed: $said"
    echo "Base/text/Sizes.cpp as it happens" >tests/coverage/unreached.txt
    said=$(ZBASE_COVERAGE_OF=gathered scripts/checks/coverage.sh 2>&1) && fail "passed: $said"
    expect "$said" "unreached.txt:1: a line is a number, a source that no other line has, and a reason"
}

test_WhatSkipsUnderASanitizerIsListedAndRunsUnderValgrind() {
    cat >one.cpp <<'END'
#include <gtest/gtest.h>
#include <cstdlib>
TEST(One, IsSound) { EXPECT_EQ(1, 1); }
TEST(One, ReadsBehindItsBlock) {
    char* volatile block = static_cast<char*>(std::malloc(8));
    EXPECT_NE(block[8], block[8] + 1);
    std::free(block);
}
END
    g++ -O0 one.cpp -o one_tests -lgtest -lgtest_main
    local name
    for name in One.IsSound One.ReadsBehindItsBlock; do
        printf "[ RUN      ] $name\none.cpp:1: Skipped\na sanitizer's heap\n\n[  SKIPPED ] $name (0 ms)\n"
    done >log
    printf '[ RUN      ] Two.Elsewhere\none.cpp:1: Skipped\nno descriptor here\n\n[  SKIPPED ] Two.Elsewhere (0 ms)\n' >>log
    local said
    echo "valgrind  One.IsSound  the sanitizer's heap" >list
    said=$(scripts/checks/unsanitized.py told list log) && fail "passed: $said"
    expect "$said" "One.ReadsBehindItsBlock skips, and list has no reason"
    said=$(scripts/checks/unsanitized.py run list .) || fail "failed: $said"
    expect "$said" "1 under valgrind, 0 failed"
    echo "valgrind  One.ReadsBehind*  the same" >>list
    said=$(scripts/checks/unsanitized.py told list log) || fail "failed: $said"
    said=$(scripts/checks/unsanitized.py run list .) && fail "passed: $said"
    expect "$said" "Invalid read of size 1"
    expect "$said" "2 under valgrind, 1 failed"
    echo "neither  One.Gone  it is slow" >>list
    said=$(scripts/checks/unsanitized.py told list log) && fail "passed: $said"
    expect "$said" "One.Gone does not skip"
}

test_UnknownStepIsRefused() {
    local status=0
    scripts/check.sh format nonsense >/dev/null 2>&1 || status=$?
    [ "$status" = 2 ] || fail "status $status"
}

[ $# -gt 0 ] || set -- $(declare -F | sed -n 's/^declare -f test_//p')
failed=0
for name in "$@"; do
    mkdir -p "$scratch/$name/third_party"
    cp -R scripts "$scratch/$name/"
    mkdir "$scratch/$name/third_party/breakpad"
    cp third_party/breakpad/*.* "$scratch/$name/third_party/breakpad/"
    # In a condition no command of a test would end it by failing.
    set +e
    said=$(cd "$scratch/$name" && PATH=$PWD/bin:$PATH && set -e && "test_$name" 2>&1)
    status=$?
    set -e
    if [ "$status" = 0 ]; then
        echo "passed  $name"
    else
        echo "FAILED  $name"
        echo "$said"
        failed=1
    fi
done
exit "$failed"
