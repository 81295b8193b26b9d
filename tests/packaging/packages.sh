#!/bin/bash
# packages.sh: on a system of its own (scripts/check.sh packages): makes the packages, installs them, builds and runs a
# program with them, removes them without a trace, and tests the archive where it is unpacked.
set -euo pipefail
cd "$(dirname "$0")/../.."
top=$PWD
. scripts/support/progress.sh

as_root() { if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi; }
apt() { as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 "$@"; }
fail() { echo "packages.sh: $*" >&2; exit 1; }

# All files that an installation may leave.
what_is_there() { find /usr /etc /opt -xdev ! -name 'ld.so.cache*' ! -path '/usr/share/mime/*' ! -path '*/__pycache__*' | LC_ALL=C sort; }

scripts/package.sh
quietly "Looking at the packages" lintian --fail-on error build/package/lib*.deb build/package/zbase-tools*.deb
for package in build/package/*.deb; do
    scripts=$(dpkg-deb -I "$package" | grep -E ' (pre|post)(inst|rm) ' || :)
    [ -z "$scripts" ] || fail "$package runs $scripts"
done

work=$(mktemp -d)
trap 'end_progress; rm -rf "$work"' EXIT
quietly "Installing what the packages need" apt install -y --no-install-recommends pkg-config cmake make man-db libdw1 libexpat1 libuuid1
what_is_there >"$work/before"
quietly "Installing the packages" apt install -y --no-install-recommends ./build/package/lib*.deb ./build/package/zbase-tools*.deb

cp -R examples/consumer "$work/consumer"
quietly "Building a program with them, by CMake" sh -c "cmake -S '$work/consumer' -B '$work/build' && cmake --build '$work/build'"
"$work/build/consumer"
"$work/build/consumer_xml"
g++ "$work/consumer/main.cpp" -o "$work/by-pkg-config" $(pkg-config --cflags --libs zbase)
"$work/by-pkg-config"
g++ "$work/consumer/xml.cpp" -o "$work/xml-by-pkg-config" $(pkg-config --cflags --libs zlitexml)
"$work/xml-by-pkg-config"
[[ $(zbase error 2) == *ENOENT* ]] || fail "zbase error 2 said: $(zbase error 2)"
[ -f /usr/share/man/man1/zbase.1.gz ] || fail "there is no man page"

quietly "Removing the packages" apt purge -y libzbase1 libzbase-dev zbase-tools
what_is_there >"$work/after"
diff "$work/before" "$work/after" || fail "something was left, or taken"

place="$work/a place with blanks"
mkdir "$place"
tar -xzf build/package/zbase-*.tar.gz -C "$place" --strip-components=1
[[ $("$place/bin/zbase" error 2) == *ENOENT* ]] || fail "the archive's command does not run"
PKG_CONFIG_PATH=$(dirname "$(find "$place" -name zbase.pc)") 
export PKG_CONFIG_PATH
libraries=$(dirname "$PKG_CONFIG_PATH")
eval "g++ $(printf %q "$work/consumer/main.cpp") -o $(printf %q "$work/moved") $(pkg-config --cflags --libs zbase)"
LD_LIBRARY_PATH=$libraries "$work/moved"
cd "$top"
echo "The packages are installed, used and removed, and the archive can be moved."
