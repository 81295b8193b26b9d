#!/bin/sh
# dumps.sh: a dump of each system is read by the command of both. The preset "windows" is built; of Linux the command and a program
# that crashes are built where they are not.
set -eu
cd "$(dirname "$0")/../.."
top=$PWD
[ -x build/release/tests/CrashProbe ] && [ -x build/release/tools/zbase/zbase ] || scripts/build.sh zbase CrashProbe
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

for system in linux windows; do
    mkdir "$place/$system"
    printf '[Config]\nServerURL=http://127.0.0.1:1/\nServerProdURL=http://127.0.0.1:1/\ndump_path=%s\ndump_seconds=60\n[CrashKeys]\nproduct=probe\n' \
        "$place/$system" >"$place/$system.ini"
done
ZENT_CRASH_CONFIG_FILE="$place/linux.ini" build/release/tests/CrashProbe null run 7 || :
ZENT_CRASH_CONFIG_FILE="$place/windows.ini" scripts/windows/wine.sh build/windows/bin/WindowsCrashProbe.exe null || :

# shows COMMAND...: keeps what it prints, for the lines that are expected of it.
shows() {
    "$@" >"$place/shown" || { echo "$*: it fails" >&2; exit 1; }
}
expect() {
    grep -q -e "$1" "$place/shown" || { echo "dumps.sh: no \"$1\" in:" >&2; cat "$place/shown" >&2; exit 1; }
}
linux_dump=$(ls "$place"/linux/*.dmp)
windows_dump=$(ls "$place"/windows/*.dmp)
for reader in "$top/build/release/tools/zbase/zbase" "$top/scripts/windows/wine.sh $top/build/windows/bin/zbase.exe"; do
    shows $reader crash show "$linux_dump"
    for line in '^SIGSEGV /SEGV_MAPERR at 0x0, thread 0 ' '^  product=probe' '^  run=7' 'CrashProbe'; do expect "$line"; done
    shows $reader crash show "$windows_dump"
    for line in '^EXCEPTION_ACCESS_VIOLATION_WRITE at 0x0, thread ' '^  0.WindowsCrashProbe.exe.*WriteToNull' '^  [0-9]*.WindowsCrashProbe.exe.*main' \
        '^  product=probe' '^  kind=null' 'libZBase.dll'; do expect "$line"; done
done
