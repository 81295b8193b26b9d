#!/bin/bash
# builds.sh [WAY...]: builds the library in the ways of its users: each type, generator and installed compiler, as a part of
# another project, static, with flags of a distribution, below a path with blanks. Each is built beside the tree, and a
# program that uses it is run. Without a WAY those that ZBASE_WAYS names, or all of them, and in the end the failed ones;
# --list prints their names.
# builds.sh --configure [WAY...]: only configures, and checks what would be built. That takes seconds.
set -euo pipefail
cd "$(dirname "$0")/../.."
top=$PWD
. scripts/support/progress.sh
work=$(mktemp -d "${TMPDIR:-/var/tmp}/zbase-builds-XXXXXX")
trap 'end_progress; rm -rf "$work"' EXIT

fail() { echo "builds.sh: $*" >&2; exit 1; }
alone() { ("$@"); }  # what fails in it is told with all that was said before
plain="-DZBASE_BUILD_TESTS=OFF -DZBASE_BUILD_EXAMPLES=OFF"
only_configure=""

make_it() { [ -n "$only_configure" ] || cmake --build "$@" -j "$(nproc)"; }

# commands BUILD SOURCE: how the build would compile the sources of that name.
commands() { grep '"command":' "$1/compile_commands.json" | grep -e " -c .*$2\>"; }

# built BUILD [ARGUMENT...]: the tree, configured without a preset, and the output of its command.
built() {
    local build=$1
    shift
    cmake -S "$top" -B "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON $plain "$@" && make_it "$build" && warns "$build" && runs "$build"
}

# Warnings are errors only for users that ask for it.
warns() {
    [ -f "$1/compile_commands.json" ] || return 0
    local strict
    strict=$(commands "$1" /Message.cpp | grep -c -e -Werror || :)
    [ "$strict" = "$(grep -c 'ZBASE_WERROR:BOOL=ON' "$1/CMakeCache.txt")" ] || fail "warnings are errors: $strict"
}

runs() {
    [ -z "$only_configure" ] || return 0
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
    cmake -S "$top" -B "$work/b" -G "Ninja Multi-Config" $plain || return
    local type
    for type in Debug RelWithDebInfo; do make_it "$work/b" --config $type && runs "$work/b/tools/zbase/$type" || return; done
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
            make_it "$place/build" || return
        [ -n "$only_configure" ] || DESTDIR=$place/installed cmake --install "$place/build" || return
    done
    [ -z "$only_configure" ] || return 0
    diff -r "$work/one/installed" "$work/another/place/installed" || fail "the place is in what is installed"
}

way_absolute() {
    cmake -S "$top" -B "$work/b" -G Ninja $plain -DCMAKE_INSTALL_PREFIX="$work/p" -DCMAKE_INSTALL_LIBDIR="$work/elsewhere/lib" &&
        make_it "$work/b" || return
    [ -z "$only_configure" ] || return 0
    cmake --install "$work/b" && runs "$work/p/bin" &&
        [ -f "$(PKG_CONFIG_PATH=$work/elsewhere/lib/pkgconfig pkg-config --variable=includedir zbase)/Base/ZBase.h" ] &&
        outside "$work/o" "-DCMAKE_PREFIX_PATH=$work/elsewhere;$work/p" "-DZBase_DIR=$work/elsewhere/lib/cmake/ZBase"
}

# outside BUILD [ARGUMENT...]: a project that uses the installation.
outside() {
    local build=$1
    shift
    cmake -S "$top/examples/consumer" -B "$build" "$@" && cmake --build "$build" && "$build/consumer" && "$build/consumer_xml"
}

# parent WAY [ARGUMENT...]: a project with targets, flags, tests and an installation of its own that includes the tree by
# the command WAY, below a path with blanks.
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
get_cmake_property(own CACHE_VARIABLES)
$1
foreach(name IN ITEMS CMAKE_CXX_STANDARD=17 CMAKE_CXX_VISIBILITY_PRESET= CMAKE_POSITION_INDEPENDENT_CODE= CMAKE_MODULE_PATH=)
    string(REGEX MATCH "^(.*)=(.*)$" both \${name})
    if(NOT "\${\${CMAKE_MATCH_1}}" STREQUAL "\${CMAKE_MATCH_2}")
        message(FATAL_ERROR "\${CMAKE_MATCH_1} became \${\${CMAKE_MATCH_1}}")
    endif()
endforeach()

# The parent may use any other names of variables and targets: ours have names of our own, or of CMake's own modules.
get_cmake_property(all CACHE_VARIABLES)
list(REMOVE_ITEM all \${own})
list(FILTER all EXCLUDE REGEX "^(ZBASE_|ZBase_|CMAKE_|EXPAT_|PKG_CONFIG_|PC_EXPAT_|pkgcfg_lib_|__pkg_config|prefix_result|FIND_PACKAGE_MESSAGE|FETCHCONTENT_|GIT_EXECUTABLE|_GNUInstallDirs)")
if(all)
    message(FATAL_ERROR "Variables for everybody: \${all}")
endif()
get_property(place TARGET ZBase PROPERTY SOURCE_DIR)
foreach(folder IN ITEMS "" Base DebugHelp ZLiteXML tools/zbase-stack-names tools/zbase-crash-sender)
    get_property(targets DIRECTORY "\${place}/../\${folder}" PROPERTY BUILDSYSTEM_TARGETS)
    list(FILTER targets EXCLUDE REGEX "^(zbase[_-]|ZBase$|ZLiteXML$)")
    if(targets)
        message(FATAL_ERROR "Targets for everybody: \${targets}")
    endif()
endforeach()

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
    cmake -S "$place" -B "$place/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_EXPORT_COMPILE_COMMANDS=ON "$@" &&
        make_it "$place/build" || return
    local own
    own=$(commands "$place/build" own.cpp)
    [[ $own != *-W* && $own != *-fvisibility* && $own != *++20* ]] || fail "the parent's own source is built so: $own"
    [[ $(commands "$place/build" /main.cpp | grep 'parent/main') == *"-std=gnu++20"* ]] || fail "who links the library lacks the standard"
    [ "$(ctest --test-dir "$place/build" -N | sed -n 's/^Total Tests: //p')" = 1 ] || fail "the parent got tests"
    own=$(find "$place/build" -name cmake_install.cmake -exec grep -h 'file(INSTALL' {} +)
    [ "$(wc -l <<<"$own")" = 1 ] || fail "the parent installs more than its own: $own"
    [ -z "$only_configure" ] || return 0
    "$place/build/consumer" && "$place/build/consumer_xml" && "$place/build/own" || return
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

# A machine on which the library was built without its tests.
way_without_test_packages() {
    local said
    said=$(cmake --preset release -B "$work/b" -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_ICU=ON 2>&1) || fail "$said"
    [[ $said == *"The tests are not built"*"setup.sh test"* ]] || fail "nothing was said of the tests: $said"
    make_it "$work/b" --target zbase
}

# On a bare system, with all its compilers.
if [ $# = 0 ] && [ "$(id -u)" = 0 ]; then
    scripts/setup.sh build
    compilers=$(apt-cache pkgnames | grep -E '^(g\+\+-1[2-4]|clang-1[4-9])$' | sort)
    quietly "Installing compilers" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends make git dpkg-dev $compilers
fi

doing=Building
mapfile -t all < <(declare -F | sed -n 's/^declare -f way_//p')
if [ "${1:-}" = --list ]; then printf '%s\n' "${all[@]}"; exit; fi
if [ "${1:-}" = --configure ]; then
    only_configure=1
    doing=Configuring
    shift
fi
[ $# -gt 0 ] || set -- ${ZBASE_WAYS:-${all[@]}}
failed=""
for way in "$@"; do
    declare -F "way_$way" >/dev/null || fail "no way \"$way\": --list names them"
    compiler=""
    case $way in gcc_*) compiler=g++-${way#*_} ;; clang_*) compiler=clang++-${way#*_} ;; esac
    if [ -n "$compiler" ] && ! command -v "$compiler" >/dev/null; then
        echo "$way: not here"
        continue
    fi
    quietly "$doing $way" alone "way_$way" || failed="$failed $way"
    rm -rf "${work:?}"/*
done
[ -z "$failed" ] || fail "these do not build:$failed"
echo "All of these build: $*"
