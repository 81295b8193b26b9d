#!/bin/bash
# builds.sh [WAY...]: builds the library in the ways in which others build it: each type, generator and compiler that is
# here, as a part of another project, static, with flags of a distribution, below a path with blanks. Each is built beside
# the tree, and a program that uses it is run. Without a WAY all of them; --list names them.
set -euo pipefail
cd "$(dirname "$0")/../.."
top=$PWD
. scripts/progress.sh
work=$(mktemp -d "${TMPDIR:-/var/tmp}/zbase-builds-XXXXXX")
trap 'end_progress; rm -rf "$work"' EXIT

fail() { echo "builds.sh: $*" >&2; exit 1; }
alone() { ("$@"); }  # what fails in it is told with all that was said before
plain="-DZBASE_BUILD_TESTS=OFF -DZBASE_BUILD_EXAMPLES=OFF"

# built BUILD [ARGUMENT...]: the tree, configured with no preset, and what its command says.
built() {
    local build=$1
    shift
    cmake -S "$top" -B "$build" $plain "$@" && cmake --build "$build" -j "$(nproc)" && runs "$build"
}

runs() {
    local command
    command=$(find "$1" -name zbase -type f -perm -u+x | head -n 1)
    [[ $("$command" error 2) == *ENOENT* ]] || fail "$command does not run"
}

way_type_none() { built "$work/b"; }
way_type_debug() { built "$work/b" -DCMAKE_BUILD_TYPE=Debug; }
way_type_release() { built "$work/b" -DCMAKE_BUILD_TYPE=Release -DZBASE_WERROR=ON; }
way_type_small() { built "$work/b" -DCMAKE_BUILD_TYPE=MinSizeRel; }
way_make() { built "$work/b" -G "Unix Makefiles" -DCMAKE_BUILD_TYPE=RelWithDebInfo; }

way_multi() {
    cmake -S "$top" -B "$work/b" -G "Ninja Multi-Config" $plain
    local type
    for type in Debug Release; do cmake --build "$work/b" --config $type && runs "$work/b/tools/zbase/$type" || return; done
}

with_compiler() { CXX=$1 built "$work/b" -G Ninja -DCMAKE_BUILD_TYPE=Release; }
for number in 12 13 14; do eval "way_gcc_$number() { with_compiler g++-$number; }"; done
for number in 14 15 16 17 18 19; do eval "way_clang_$number() { with_compiler clang++-$number; }"; done

way_lto() { built "$work/b" -G Ninja -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS=-flto"; }
way_assertions() { built "$work/b" -G Ninja -DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS=-D_GLIBCXX_ASSERTIONS"; }
way_hardening() {
    built "$work/b" -G Ninja "-DCMAKE_CXX_FLAGS=$(DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)" \
        "-DCMAKE_SHARED_LINKER_FLAGS=$(DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get LDFLAGS)"
}

# The same octets from two places.
way_twice() {
    local place
    for place in "$work/one" "$work/another/place"; do
        git clone -q "$top" "$place" && ln -sfn "$top/third_party/breakpad/node_modules" "$place/third_party/breakpad/node_modules" &&
            cmake -S "$place" -B "$place/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $plain &&
            cmake --build "$place/build" && DESTDIR=$place/installed cmake --install "$place/build" || return
    done
    diff -r "$work/one/installed" "$work/another/place/installed" || fail "the place is in what is installed"
}

way_absolute() {
    cmake -S "$top" -B "$work/b" -G Ninja $plain -DCMAKE_INSTALL_PREFIX="$work/p" -DCMAKE_INSTALL_LIBDIR="$work/elsewhere/lib" &&
        cmake --build "$work/b" && cmake --install "$work/b" && runs "$work/p/bin" &&
        [ -f "$(PKG_CONFIG_PATH=$work/elsewhere/lib/pkgconfig pkg-config --variable=includedir zbase)/Base/ZBase.h" ] &&
        outside "$work/o" "-DCMAKE_PREFIX_PATH=$work/elsewhere;$work/p" "-DZBase_DIR=$work/elsewhere/lib/cmake/ZBase"
}

# outside BUILD [ARGUMENT...]: the project that uses what is installed.
outside() {
    local build=$1
    shift
    cmake -S "$top/examples/consumer" -B "$build" "$@" && cmake --build "$build" && "$build/consumer" && "$build/consumer_xml"
}

# parent [ARGUMENT...]: a project with targets, flags, tests and an installation of its own that takes the tree in.
parent() {
    local place="$work/a parent"
    mkdir -p "$place"
    cp examples/consumer/main.cpp examples/consumer/xml.cpp "$place"
    cat >"$place/own.cpp" <<'END'
int main() { int unused; float x = 1.5; return static_cast<int>(x) - 1; }
END
    cat >"$place/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(parent LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 17)
get_directory_property(before VARIABLES)
$1
foreach(name IN ITEMS CMAKE_CXX_STANDARD=17 CMAKE_CXX_VISIBILITY_PRESET= CMAKE_POSITION_INDEPENDENT_CODE= CMAKE_MODULE_PATH=)
    string(REGEX MATCH "^(.*)=(.*)$" both \${name})
    if(NOT "\${\${CMAKE_MATCH_1}}" STREQUAL "\${CMAKE_MATCH_2}")
        message(FATAL_ERROR "\${CMAKE_MATCH_1} became \${\${CMAKE_MATCH_1}}")
    endif()
endforeach()
add_library(breakpad INTERFACE)
add_library(test_support INTERFACE)
add_executable(own own.cpp)
enable_testing()
add_test(NAME own COMMAND own)
install(TARGETS own)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE ZBase::ZBase)
add_executable(consumer_xml xml.cpp)
target_link_libraries(consumer_xml PRIVATE ZBase::ZLiteXML)
END
    shift
    cmake -S "$place" -B "$place/build" -G Ninja "$@" && cmake --build "$place/build" || return
    "$place/build/consumer" && "$place/build/consumer_xml" && "$place/build/own" || return
    [ "$(ctest --test-dir "$place/build" -N | sed -n 's/^Total Tests: //p')" = 1 ] || fail "the parent got tests"
    DESTDIR="$place/installed" cmake --install "$place/build" || return
    [ "$(find "$place/installed" -type f | wc -l)" = 1 ] || fail "the parent installs $(find "$place/installed" -type f)"
}
way_subdirectory() { parent "add_subdirectory(\"$top\" zbase)"; }
way_subdirectory_static() { parent "add_subdirectory(\"$top\" zbase)" -DBUILD_SHARED_LIBS=OFF; }
way_fetched() {
    git clone -q "$top" "$work/fetched from" && parent "include(FetchContent)
FetchContent_Declare(zbase GIT_REPOSITORY \"$work/fetched from\" GIT_TAG HEAD)
FetchContent_MakeAvailable(zbase)"
}

# On a system that has nothing, all the compilers that it can have.
if [ "${1:-}" = "" ] && [ "$(id -u)" = 0 ]; then
    scripts/setup.sh build
    compilers=$(apt-cache pkgnames | grep -E '^(g\+\+-1[2-4]|clang-1[4-9])$' | sort)
    quietly "Installing compilers" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends make git dpkg-dev $compilers
fi

mapfile -t all < <(declare -F | sed -n 's/^declare -f way_//p')
if [ "${1:-}" = --list ]; then printf '%s\n' "${all[@]}"; exit; fi
[ $# -gt 0 ] || set -- "${all[@]}"
for way in "$@"; do
    compiler=""
    case $way in gcc_*) compiler=g++-${way#*_} ;; clang_*) compiler=clang++-${way#*_} ;; esac
    if [ -n "$compiler" ] && ! command -v "$compiler" >/dev/null; then
        echo "$way: not here"
        continue
    fi
    quietly "Building $way" alone "way_$way"
    rm -rf "${work:?}"/*
done
echo "All of these build: $*"
