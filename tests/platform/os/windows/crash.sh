#!/bin/bash
# crash.sh WINE PROBE RECEIVER COMMAND KIND: lets the probe crash and looks at its end, at what the server received, at
# what is left, and at what the command shows of the dump.
set -eu
wine=$1 probe=$2 receiver=$3 command=$4 kind=$5
work=$(mktemp -d /tmp/zbase-windows-crash-XXXXXX)
server=
trap '[ -z "$server" ] || kill "$server" 2>/dev/null || :; rm -rf "$work"' EXIT
mkdir "$work/received" "$work/dumps"
"$receiver" "$work/received" 0 >"$work/server" &
server=$!
for _ in $(seq 100); do [ -s "$work/server" ] && break; sleep 0.1; done
url=$(head -1 "$work/server")
cat >"$work/crash_report.ini" <<END
[Config]
ServerURL=$url
ServerProdURL=$url
dump_path=Z:$(echo "$work/dumps" | tr / '\\')
dump_seconds=60
[CrashKeys]
of file=yes
END
status=0
ZENT_CRASH_CONFIG_FILE="Z:$(echo "$work/crash_report.ini" | tr / '\\')" "$wine" "$probe" "$kind" >"$work/output" || status=$?

fail() {
    echo "crash.sh $kind: $1" >&2
    tail -n 50 "$work/output" >&2
    cat "$work/server" "$work"/received/*.keys >&2 || :
    exit 1
}
key() { grep -qxF "$1" "$work/received/1.keys" || fail "no key $1"; }

# The lowest octet of what the process ends with is what Wine hands on.
reports=1
case $kind in
    null | nowhere | thread | heap | exit | translated-*) wanted=5 ;;
    overflow | thread-overflow) wanted=253 ;;
    divide) wanted=148 ;;
    demand) wanted=0 reports=2 ;;
    *) wanted=3 ;;
esac
[ "$status" = "$wanted" ] || fail "ends with $status, not $wanted"
[ "$(ls "$work"/received/*.dmp | wc -l)" = $reports ] || fail "not $reports reports"
[ -z "$(ls "$work/dumps")" ] || fail "something is left: $(ls "$work/dumps")"
for dump in "$work"/received/*.dmp; do
    [ "$(head -c 4 "$dump")" = MDMP ] || fail "$dump is no dump"
    grep -qaF "ZBase crash keys" "$dump" || fail "$dump does not hold the crash keys"
    grep -qaF "ZBase the notes " "$dump" || fail "$dump does not hold the notes"
done
key "kind=$kind"
key "of file=yes"
case $kind in
    throw | thread-throw) key "exception=nobody catches this"; key "exception_type=std::runtime_error" ;;
    message) key "exception=names.txt is not a name. (Server message 103)"; key "exception_type=ZBase::Message" ;;
    terminate) key "terminate=called without an exception" ;;
    pure) key "pure_call=pure virtual method called" ;;
    demand) key "reason=hanging"; [ "$(cat "$work/output" | tr -d '\r')" = 11 ] || fail "the dumps were refused" ;;
    translated-*) grep -q "^caught 100000, blocks stay" "$work/output" || fail "not every fault was caught, or some left memory" ;;
esac

# On the stack of the crashed thread.
function=main
case $kind in
    null | thread | heap | exit | translated-*) function=WriteToNull ;;
    overflow | thread-overflow) function=Overflow ;;
    divide) function=DivideByZero ;;
    nowhere) function=CallNowhere ;;
    pure) function=CallPureVirtual ;;
    throw | thread-throw) function=ThrowUncaught ;;
    message) function=ThrowMessage ;;
    demand) function=WriteDumps ;;
esac
[ -n "$command" ] || exit 0
"$wine" "$command" crash show "Z:$(ls "$work"/received/*.dmp | head -1 | tr / '\\')" >"$work/shown" || fail "the dump can't be shown"
sed '/^Crash keys/,$d' "$work/shown" | grep -q "WindowsCrashProbe.exe.*$function" || { cat "$work/shown" >&2; fail "no $function"; }
