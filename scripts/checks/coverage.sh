#!/bin/bash
# coverage.sh [PROGRAM...]: which lines and branches of the libraries the tests reach. Without a program, all of them. The programs
# of the preset "release" run with the libraries of the preset "coverage"; those that link objects, or name the place of the
# libraries, are built with these. Compares with tests/coverage/unreached.txt; leaves build/coverage/lines.txt, the lines by source.
# ZBASE_COVERAGE_OF=gathered takes what was counted before; ZBASE_COVERAGE_ADD=1 adds to it.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/support/progress.sh

build=$PWD/build/coverage
# What takes all texts of a length, or millions of levels, reaches nothing that a few don't.
slow='Utf8DecodingModel.*:Utf8EncodingModel.*:GuidMadeAnew.*:MessageXmlHostile.Million*:MessageXmlHostile.Memory*'
slow="$slow:MessageFormatOfADeepTree.*:Documents/*:Writer.ManyReplacements*:LockThreads.*:LockFreeBufferThreads.Ten*"
slow="$slow:CrashStorm.*:*AtTheFirstUse*:DamagedComponent.NameThatNoFile*"
programs=("$@")
[ $# -gt 0 ] || programs=(frame text text_detail memory messages zlitexml switches platform platform_os scripted diagnostics crash
    injection)

# run PROGRAM [COMMAND...]: by this command. Whether its tests pass is for those who run them with nothing added; it matters here that
# they came to their end.
run() {
    local program=$1 place=build/release/tests log=$build/$1.log
    shift
    case $program in text_detail | scripted | platform | platform_os) place=$build/tests ;; esac
    echo "$program"
    (cd "$place" && LD_LIBRARY_PATH=$build/Base:$build/ZLiteXML LD_PRELOAD=$build/tests/libCountedProcess.so timeout 1800 "$@" \
        "./${program}_tests" --gtest_brief=1 --gtest_filter="-$slow" >"$log" 2>&1) || :
    grep '^\[==========\]\|^\[  FAILED  \] [^ ]*$' "$log" || { tail -5 "$log"; echo "${program}_tests did not come to its end"; exit 1; }
}

# Where the system refuses what a program can do without, and without /proc. Neither keeps the counters from being written.
run_in_want() {
    local program without_proc='mount -t tmpfs -o ro tmpfs /proc && exec "$@"'
    for program in platform_os diagnostics crash; do
        [[ " ${programs[*]} " == *" $program "* ]] || continue
        echo "where calls are refused:"
        run "$program" env ZBASE_TIGHT=refused=38 \
            LD_PRELOAD="$build/tests/libCountedProcess.so $PWD/build/release/tests/libTightProcess.so"
        unshare --mount --propagation=private true 2>/dev/null || continue
        echo "without /proc:"
        run "$program" unshare --mount --propagation=private bash -c "$without_proc" without_proc
    done
}

# gcov writes a file for each source of an object into the current directory, which is one of its own. What gcovr is to find
# again has a whole path.
# count PLACE TREE NOTES: PLACE is a directory, NOTES what the compiler wrote beside an object of the tree.
count() {
    cd "$(mktemp -d "$1/XXXXXXXX")"
    gcov --branch-counts --branch-probabilities --demangled-names --hash-filenames --relative-only --source-prefix "$2" \
        --object-directory "$(dirname "$3")" "$3" >said 2>&1 || { cat said; return 1; }
    grep "stamp mismatch\|profil" said || :
    find . -name '*.gcov' -exec sed -i "1s|Source:|Source:$2/|" {} +
}

if [ "${ZBASE_COVERAGE_OF-}" != gathered ]; then
    [ -n "${ZBASE_COVERAGE_ADD-}" ] || find "$build" -name '*.gcda' -delete
    for program in "${programs[@]}"; do run "$program"; done
    run_in_want
fi

place=$(mktemp -d)
trap 'rm -rf "$place"; end_progress' EXIT
export -f count
find "$build"/Base "$build"/DebugHelp "$build"/ZLiteXML -name '*.gcno' -print0 |
    xargs -0 -P "$(nproc)" -n 1 bash -c 'count "$@"' count "$place" "$PWD"

# What only an exception reaches, such as a block that was refused, is no branch here: tests/injection takes care of those. Nor is
# what the compiler made beside the code. After a crash in the midst of a function a branch may have been taken -1 times.
quietly "Collecting" gcovr --root . --use-gcov-files --keep "$place" --filter 'Base/' --filter 'DebugHelp/' --filter 'ZLiteXML/' \
    --exclude-throw-branches --exclude-unreachable-branches --gcov-ignore-parse-errors --json "$build/report.json" --txt "$build/lines.txt"
scripts/checks/coverage.py "$build/report.json"
