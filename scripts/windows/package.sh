#!/bin/sh
# package.sh: the archive that CPack makes of the preset "windows", which is built, works wherever it is unpacked: an outside project
# builds against it, and the command sends a report with what it finds there.
set -eu
cd "$(dirname "$0")/../.."
top=$PWD
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

(cd build/windows && cpack -B "$place/packages" >"$place/log") || { cat "$place/log" >&2; exit 1; }
archive=$(ls "$place"/packages/*.zip)
mkdir "$place/unpacked"
(cd "$place/unpacked" && cmake -E tar xf "$archive")
installed=$(ls -d "$place"/unpacked/*)
for file in libZBase.dll libZLiteXML.dll zbase.exe zbase-crash-sender.exe crash-receiver.exe libstdc++-6.dll libgcc_s_seh-1.dll \
    libwinpthread-1.dll; do
    [ -e "$installed/bin/$file" ] || { echo "package.sh: the archive lacks bin/$file" >&2; exit 1; }
done
cmake -S examples/consumer -B "$place/build" --toolchain "$top/cmake/toolchains/mingw-w64.cmake" \
    -DZBase_DIR="$installed/lib/cmake/ZBase" >"$place/log" 2>&1 &&
    cmake --build "$place/build" >"$place/log" 2>&1 || { cat "$place/log" >&2; exit 1; }
export WINEPATH="$installed/bin"
scripts/windows/wine.sh "$place/build/consumer.exe"
scripts/windows/wine.sh "$place/build/consumer_xml.exe"
scripts/windows/wine.sh "$installed/bin/zbase.exe" crash test --local
