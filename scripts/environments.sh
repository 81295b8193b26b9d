#!/bin/bash
# environments.sh [ENVIRONMENT...]: the tests in places that lack something, compared with tests/environments. Without one, all:
#   descriptors       none to spare, in the test and in each program that it starts
#   few_descriptors   a limit of 32
#   full_disk         wherever a temporary file may be, there is no room
#   read_only_disk    nothing can be written anywhere
#   no_proc           an empty /proc
#   no_network        no interface that is up
#   silent_resolver   the loopback device only, and a name server that does not answer
#   unknown_calls     calls of the system that a program can do without: they do not exist
#   forbidden_calls   the same, not permitted
#   address_space     48 MiB of addresses are left
#   small_stack       64 KiB for each stack
#   nameless_user     a user without rights and without an entry in the user database
#   locales           one locale of each encoding of Debian; of each language too with ZBASE_ALL_LOCALES=1
# ZBASE_PRESET chooses the build, ZBASE_TEST_FILTER the tests, ZBASE_TEST_PROGRAMS the programs: without it those that take seconds,
# by "all" those of texts, messages, XML, crashes and the command too, and then each line of a list has to have a test.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD
build=$top/build/${ZBASE_PRESET:-release}
tests=${ZBASE_TESTS_DIR:-$build/tests}
quick="frame_tests memory_tests switches_tests platform_tests platform_os_tests diagnostics_tests"
others="text_tests text_detail_tests messages_tests zlitexml_tests scripted_tests tools_tests crash_tests"
everything=(descriptors few_descriptors full_disk read_only_disk no_proc no_network silent_resolver unknown_calls forbidden_calls
    address_space small_stack nameless_user locales)

# Each environment is a function that makes it, inside of namespaces of its own, and becomes the command.

# The test framework keeps what it captures where there is room, not where the tests are to find none.
own_room() {
    export TEST_TMPDIR=$TMPDIR.framework
    mkdir -p "$TEST_TMPDIR"
    mount -t tmpfs tmpfs "$TEST_TMPDIR"
}

tighten() {
    export ZBASE_TIGHT=$1 LD_PRELOAD=$tight
    shift
    exec "$@"
}

in_descriptors() { tighten descriptors "$@"; }
in_unknown_calls() { tighten refused=38 "$@"; }
in_forbidden_calls() { tighten refused=1 "$@"; }
in_address_space() { tighten address_space=48 "$@"; }
in_few_descriptors() { ulimit -S -n 32; exec "$@"; }
in_small_stack() { ulimit -S -s 64; exec "$@"; }

# Temporary files have a file system of their own, also where it is /tmp, with the tree in it if it was there.
in_full_disk() {
    local place
    for place in /tmp /var/tmp /dev/shm "$TMPDIR"; do
        case $tests/ in
            "$place"/*) continue ;;
        esac
        mkdir -p "$place"
        mount -t tmpfs -o size=16k,mode=1777 tmpfs "$place"
        mkdir -p "$TMPDIR.framework"  # which it may hold, and has room for now
        cat /dev/zero >"$place/filling" 2>/dev/null || :
    done
    own_room
    exec "$@"
}

in_read_only_disk() {
    local place
    while read -r _ _ _ _ place _; do
        mount -o remount,bind,ro "$(printf '%b' "$place")" 2>/dev/null || :
    done </proc/self/mountinfo
    own_room
    ! touch "$TMPDIR" 2>/dev/null || { echo "the disk stays writable" >&2; exit 1; }
    exec "$@"
}

# The loader finds no libraries beside a program then; installed ones are where it looks.
in_no_proc() {
    export LD_LIBRARY_PATH=$build/Base:$build/ZLiteXML
    mount -t tmpfs -o ro tmpfs /proc
    exec "$@"
}

in_no_network() { exec "$@"; }

# What is sent to the name server comes back to the loopback device, which has no such address and says nothing.
in_silent_resolver() {
    ip link set lo up
    ip route add 192.0.2.0/24 dev lo
    printf 'nameserver 192.0.2.1\noptions timeout:1 attempts:1\n' >"$TMPDIR/resolv.conf"
    printf 'passwd: files\ngroup: files\nhosts: files dns\n' >"$TMPDIR/nsswitch.conf"
    mount --bind "$TMPDIR/resolv.conf" "$(readlink -f /etc/resolv.conf)"
    mount --bind "$TMPDIR/nsswitch.conf" "$(readlink -f /etc/nsswitch.conf)"
    exec "$@"
}

in_nameless_user() {
    [ "$(id -u)" = 0 ] || exec "$@"  # unshare has made it one
    unset HOME USER LOGNAME
    chmod 1777 "$TMPDIR"
    exec setpriv --reuid=12345 --regid=12345 --clear-groups "$@"
}

in_locale() {
    export LOCPATH=$1 LC_ALL=$2
    shift 2
    exec "$@"
}

# The namespaces that an environment lives in.
namespaces() {
    case $1 in
        full_disk | read_only_disk | no_proc) echo --mount --propagation=private ;;
        no_network) echo --net ;;
        silent_resolver) echo --net --mount --propagation=private ;;
        nameless_user) [ "$(id -u)" = 0 ] || echo --user --map-user=12345 --map-group=12345 ;;
    esac
}

if [ "${1-}" = --in ]; then
    environment=$2
    shift 2
    "in_$environment" "$@"
fi

. scripts/support/progress.sh

# compare LIST COMMAND...: the tests by this command.
compare() {
    local list=$1 chosen=${ZBASE_TEST_PROGRAMS:-$quick} program programs=() whole=()
    shift
    if [ "$chosen" = all ]; then
        chosen="$quick $others"
        [ -n "${ZBASE_TEST_FILTER-}" ] || whole=(--whole)
    fi
    for program in $chosen; do programs+=("$tests/$program"); done
    python3 scripts/support/environment_tests.py "tests/environments/$list.txt" "${programs[@]}" "${whole[@]}" --filter="${ZBASE_TEST_FILTER:-*}" -- "$@"
}

# Locales are "NAME CHARSET" in Debian's list. Of each encoding the first, unless all are wanted.
locales() {
    sed 's/#.*//' /usr/share/i18n/SUPPORTED | awk -v all="${ZBASE_ALL_LOCALES-}" 'NF == 2 && (all != "" || !seen[$2]++)'
}

run_locales() {
    local name charset failed=0 programs=${ZBASE_TEST_PROGRAMS:-all}
    [ "$programs" != all ] || programs="frame_tests messages_tests text_tests zlitexml_tests"
    while read -r name charset; do
        localedef -c -i "${name%%[.@]*}${name#"${name%%@*}"}" -f "$charset" "$scratch/$name" >/dev/null 2>&1 || [ -d "$scratch/$name" ] ||
            { echo "  $name can't be built"; continue; }
        echo "-- $name $charset"
        ZBASE_TEST_PROGRAMS=$programs compare locales "$0" --in locale "$scratch" "$name" || failed=1
        rm -rf "${scratch:?}/$name"
    done < <(locales)
    return $failed
}

run_environment() {
    local command=() said
    read -r -a command <<<"$(namespaces "$1")"
    if [ ${#command[@]} -gt 0 ]; then
        [ "$(id -u)" = 0 ] || [ "$1" = nameless_user ] || command+=(--map-root-user)
        command=(unshare "${command[@]}")
        if ! said=$("${command[@]}" true 2>&1); then
            echo "Skipped: this machine refuses $1: $said"
            return 0
        fi
    fi
    command+=("$PWD/scripts/environments.sh" --in "$1")
    if ! said=$("${command[@]}" true 2>&1); then
        echo "$1 can't be made: $said"
        return 1
    fi
    compare "$1" "${command[@]}"
}

environments=("$@")
[ $# -gt 0 ] || environments=("${everything[@]}")
scratch=$(mktemp -d "${TMPDIR:-/tmp}/environments-XXXXXX")  # without a dot, which names of components tell apart
trap 'rm -rf "$scratch"; end_progress' EXIT
chmod 755 "$scratch"
export tight=$tests/libTightProcess.so
failed=""
for environment in "${environments[@]}"; do
    [[ " ${everything[*]} " == *" $environment "* ]] || { echo "environments.sh: no environment \"$environment\"" >&2; exit 2; }
    echo "== $environment"
    export TMPDIR=$scratch/$environment
    mkdir -m 1777 "$TMPDIR" "$TMPDIR.framework"
    if [ "$environment" = locales ]; then run_locales; else run_environment "$environment"; fi || failed="$failed $environment"
done
[ -z "$failed" ] || { echo "Differs in:$failed"; exit 1; }
