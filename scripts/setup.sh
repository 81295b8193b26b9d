#!/bin/sh
# setup.sh GROUP...: installs the Debian packages of a group that are missing.
#   build  the library and the zbase command
#   test   the tests
#   check  formatting, static analysis, the second compilers, fuzzers, the emulator that counts instructions
#   wine   what runs and tests what is built for 64-bit Windows
#   windows  the compiler for 64-bit Windows, and Wine to run what it makes
#   bench  the benchmarks and their peers
#   package  Debian packages, and what looks at them
#   docs   the pages and the reference as HTML
#   browse a browser that looks at them
#   arm64  what knows no processor, and its tests, for ARM64 under an emulator
#   bare   a bare system to try all of it on
set -eu
cd "$(dirname "$0")/.."
. scripts/support/progress.sh

build="g++ cmake ninja-build patch libcurl4 ca-certificates libcli11-dev libdw-dev libexpat1-dev nlohmann-json3-dev pkg-config uuid-dev zlib1g-dev"
# Breakpad comes through npm if that is installed. Debian's own would bring 372 packages, curl and node-registry-url 19.
scripts/breakpad.sh --needs-fetching && ! command -v npm >/dev/null && build="$build curl node-registry-url"
test="$build gettext libgtest-dev libcpp-httplib-dev openssl libicu-dev locales elfutils fortunes-ru fortunes-zh gdb libxml2-utils uuid-runtime"
check="$test abigail-tools clang-16 clang-format-16 clang-tidy-16 gcovr iproute2 libclang-rt-16-dev lld-16 llvm-16 g++-mingw-w64-x86-64-posix python3 valgrind"
package="$build dpkg-dev fakeroot file lintian"
wine="googletest wine64"
windows="$test $wine clang-16 dpkg-dev g++-mingw-w64-x86-64-posix libz-mingw-w64-dev lld-16"
docs="doxygen python3"
browse="$docs chromium"
arm64="cmake ninja-build g++-aarch64-linux-gnu googletest qemu-user"
bench="$build debian-faq-fr fortunes-min fortunes-ru fortunes-zh gzip libabsl-dev libbenchmark-dev libfmt-dev libicu-dev libmimalloc-dev libprotobuf-dev libunwind-dev python3"

wanted=""
breakpad=""
for group in "$@"; do
    case $group in
        build) wanted="$wanted $build" breakpad=1 ;;
        test) wanted="$wanted $test" breakpad=1 ;;
        check) wanted="$wanted $check" breakpad=1 ;;
        wine) wanted="$wanted $wine" ;;
        windows) wanted="$wanted $windows" breakpad=1 ;;
        bench) wanted="$wanted $bench" breakpad=1 ;;
        package) wanted="$wanted $package" breakpad=1 ;;
        docs) wanted="$wanted $docs" ;;
        browse) wanted="$wanted $browse" ;;
        arm64) wanted="$wanted $arm64" ;;
        bare) wanted="$wanted debootstrap" ;;
        *) echo "setup.sh: no group \"$group\": build, test, check, wine, windows, bench, package, docs, browse, arm64 or bare" >&2; exit 2 ;;
    esac
done

packages=$(printf '%s\n' $wanted | sort -u)
installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' $packages 2>/dev/null | sed -n 's/ installed$//p') || :
missing=""
for package in $packages; do
    case "
$installed
" in
        *"
$package
"*) ;;
        *) missing="$missing $package" ;;
    esac
done

refuse() {
    echo "setup.sh: $1. These packages are missing; as root:" >&2
    echo "    apt-get install --no-install-recommends$missing" >&2
    exit 1
}

# apt waits for the lock of dpkg by itself, but not for that of its lists.
update() {
    tries=0
    echo "asking for the lists of packages"
    until said=$($as_root env LC_ALL=C apt-get $options update 2>&1); do
        echo "$said"
        case $said in *"/lists/lock"*) ;; *) break ;; esac
        tries=$((tries + 1))
        [ "$tries" -lt 300 ] || break
        echo "waiting for another apt to end"
        sleep 2
    done
    # Without the lists, the packages may be there all the same: the installation shows it.
}

install() {
    options="-o DPkg::Lock::Timeout=600 -o APT::Status-Fd=1 -o Acquire::Retries=3"
    update
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get $options install -y --no-install-recommends $missing
}

if [ -n "$missing" ]; then
    as_root=""
    if [ "$(id -u)" != 0 ]; then
        as_root="sudo"
        command -v sudo >/dev/null || refuse "no root rights, and there is no sudo"
        if [ -t 0 ]; then sudo -v; else sudo -n true 2>/dev/null; fi || refuse "no root rights, and sudo refuses them"
    fi
    command -v apt-get >/dev/null || refuse "there is no apt-get"
    echo "Missing:$missing"
    quietly "Installing $(echo $missing | wc -w) packages and what they need" install
fi
[ -z "$breakpad" ] || scripts/breakpad.sh
