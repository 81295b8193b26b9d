#!/bin/sh
# package.sh: the archive that CPack makes of the preset "windows-pdb", which is built, works wherever it is unpacked: an outside
# project of the other compiler builds against it, the debug help and the command, here and on Linux, find names and lines in its PDB
# files, and the command sends a report with what it finds there.
set -eu
cd "$(dirname "$0")/../.."
top=$PWD
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

scripts/build.sh zbase
(cd build/windows-pdb && cpack -B "$place/packages" >"$place/log") || { cat "$place/log" >&2; exit 1; }
archive=$(ls "$place"/packages/*.zip)
mkdir "$place/unpacked"
(cd "$place/unpacked" && cmake -E tar xf "$archive")
installed=$(ls -d "$place"/unpacked/*)
for file in libZBase.dll libZLiteXML.dll zbase.exe zbase-crash-sender.exe crash-receiver.exe libstdc++-6.dll libgcc_s_seh-1.dll \
    libwinpthread-1.dll libZBase.pdb libZLiteXML.pdb zbase.pdb zbase-crash-sender.pdb crash-receiver.pdb; do
    [ -e "$installed/bin/$file" ] || { echo "package.sh: the archive lacks bin/$file" >&2; exit 1; }
done
if grep -r -a -l -F "$top" "$installed"; then
    echo "package.sh: these name the place where they were built" >&2
    exit 1
fi
cmake -S examples/consumer -B "$place/build" --toolchain "$top/cmake/toolchains/mingw-w64.cmake" \
    -DZBase_DIR="$installed/lib/cmake/ZBase" >"$place/log" 2>&1 &&
    cmake --build "$place/build" >"$place/log" 2>&1 || { cat "$place/log" >&2; exit 1; }
export WINEPATH="$installed/bin"
scripts/windows/wine.sh "$place/build/consumer.exe"
scripts/windows/wine.sh "$place/build/consumer_xml.exe"

cat >"$place/names.cpp" <<'END'
#include <Base/diagnostics/CallStackLogger.h>
int main(int, char** arguments) {
    ZBase::CallStackLogger logger;
    logger.AppendCallStack(0, 0);
    logger.FprintfCallStack(arguments[1]);
}
END
x86_64-w64-mingw32-g++-posix -std=c++20 -I"$installed/include" "$place/names.cpp" "$installed/lib/libZBase.dll.a" -o "$place/names.exe"
scripts/windows/wine.sh "$place/names.exe" "Z:$place/report"
grep -q 'libZBase.dll # ZBase::CallStackLogger::AppendCallStack # .*CallStackLogger.cpp # [1-9]' "$place/report" ||
    { echo "package.sh: no name and line of the library in:" >&2; cat "$place/report" >&2; exit 1; }

scripts/windows/wine.sh "$installed/bin/zbase.exe" crash test --local

# A crash in the library, whose report goes nowhere.
cat >"$place/crash.cpp" <<'END'
#include <Base/ZBase.h>
int main() {
    ZBase::InstallCrashHandler();
    ZBase::WideCharToUTF8(reinterpret_cast<const unsigned short*>(16), false);
}
END
x86_64-w64-mingw32-g++-posix -std=c++20 -I"$installed/include" "$place/crash.cpp" "$installed/lib/libZBase.dll.a" -o "$place/crash.exe"
printf '[Config]\nServerURL=http://127.0.0.1:1/\nServerProdURL=http://127.0.0.1:1/\ndump_path=Z:%s\ndump_seconds=60\n' "$place/dumps" \
    >"$place/crash_report.ini"
mkdir "$place/dumps"
ZENT_CRASH_CONFIG_FILE="Z:$place/crash_report.ini" scripts/windows/wine.sh "$place/crash.exe" || :
for reader in build/release/tools/zbase/zbase "scripts/windows/wine.sh $installed/bin/zbase.exe"; do
    $reader crash show "$place"/dumps/*.dmp >"$place/shown"
    grep -q 'libZBase.dll.*ZBase::WideCharToUTF8.*UnicodeConversions.cpp:[1-9]' "$place/shown" ||
        { echo "package.sh: $reader has no name and line of the library in:" >&2; cat "$place/shown" >&2; exit 1; }
done
