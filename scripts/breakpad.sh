#!/bin/sh
# breakpad.sh [PLACE]: puts Breakpad, its dump tools and our patches into PLACE, third_party/breakpad/node_modules by
# default. Does nothing when they are there already, or are not wanted (ZBASE_CRASH_REPORTING=OFF).
#
# It is the pinned package of package-lock.json: from ZBASE_BREAKPAD_DIR, which has the package, packed or unpacked, else
# from npm's registry, through npm or, without it, through curl and Debian's node-registry-url.
#
# breakpad.sh --needs-fetching: whether the registry would be used.
set -eu
cd "$(dirname "$0")/.."
. scripts/support/progress.sh
pinned=$PWD/third_party/breakpad
place=$pinned/node_modules
[ "${1:-}" = "" ] || [ "$1" = --needs-fetching ] || place=$1

field() { sed -n "s/^.*\"$1\": \"\(.*\)\".*$/\1/p" "$2" | head -n 1; }
version=$(field minidump "$pinned/package.json")
state=$(cat "$pinned/package.json" "$pinned/package-lock.json" "$pinned"/*.patch scripts/breakpad.sh | sha256sum)

isThere=0
[ "$(cat "$place/.installed" 2>/dev/null)" != "$state" ] || isThere=1
case ${ZBASE_CRASH_REPORTING:-ON} in [Oo][Ff][Ff] | [Nn][Oo] | [Ff][Aa][Ll][Ss][Ee] | 0) isThere=1 ;; esac
if [ "${1:-}" = --needs-fetching ]; then
    [ "$isThere" = 0 ] && [ -z "${ZBASE_BREAKPAD_DIR:-}" ]
    exit
fi
[ "$isThere" = 0 ] || exit 0

refuse() {
    echo "breakpad.sh: $1" >&2
    exit 1
}

without_registry() {
    cat >&2 <<END
breakpad.sh: Breakpad's package, minidump $version, can't be had from npm's registry$1.
Each of these helps:
  - a registry that answers:   npm_config_registry=ADDRESS, or https_proxy=ADDRESS for one behind a proxy
  - the package put by hand:   "npm pack minidump@$version" where the registry answers; then here, once,
                               ZBASE_BREAKPAD_DIR=/path/to/minidump-$version.tgz scripts/setup.sh build
  - no crash reporting:        ZBASE_CRASH_REPORTING=OFF in the environment of these scripts
END
    exit 1
}

# The octets of the pinned SHA-512 as sha512sum writes them.
check_package() {
    expected=$(field integrity "$pinned/package-lock.json" | sed 's/^sha512-//' | base64 -d | od -An -v -tx1 | tr -d ' \n')
    [ "$(sha512sum <"$1" | cut -d ' ' -f 1)" = "$expected" ] ||
        refuse "$1 is not the pinned package minidump $version: its SHA-512 is another"
}

unpack() {
    check_package "$1"
    mkdir "$work/minidump"
    tar -xzf "$1" -C "$work/minidump" --strip-components=1
}

by_npm() {
    cp "$pinned/package.json" "$pinned/package-lock.json" "$work"
    quick="--fetch-retries=1 --fetch-retry-mintimeout=1000 --fetch-retry-maxtimeout=1000 --fetch-timeout=20000"
    (cd "$work" && timeout 300 npm ci --ignore-scripts --no-audit --no-fund $quick) && mv "$work/node_modules/minidump" "$work"
}

by_curl() {
    registry=$(cd "$pinned" && node --input-type=module -e 'import url from "/usr/share/nodejs/registry-url/index.js"; console.log(url())') &&
        get="curl --fail --silent --show-error --location --connect-timeout 10 --retry 1 --retry-delay 2 --retry-all-errors --speed-limit 1000 --speed-time 20 --max-time 300" &&
        $get "${registry}minidump/$version" -o "$work/about.json" &&
        tarball=$(node -p 'JSON.parse(require("fs").readFileSync(process.argv[1])).dist.tarball' "$work/about.json") &&
        $get "$tarball" -o "$work/minidump.tgz"
}

mkdir -p "$place"
work=$(mktemp -d "$place/.installing-XXXXXX")
trap 'rm -rf "$work"; end_progress' EXIT
given=${ZBASE_BREAKPAD_DIR:-}
case $given in "" | /*) ;; *) refuse "ZBASE_BREAKPAD_DIR=$given: it has to be an absolute path" ;; esac
if [ -d "$given" ]; then
    [ "$(field name "$given/package.json" 2>/dev/null)" = minidump ] && [ -d "$given/deps/breakpad/src" ] ||
        refuse "ZBASE_BREAKPAD_DIR=$given does not hold the package minidump: package.json and deps/breakpad/src"
    [ "$(field version "$given/package.json")" = "$version" ] ||
        refuse "ZBASE_BREAKPAD_DIR=$given holds minidump $(field version "$given/package.json"), wanted is $version"
    cp -R "$given" "$work/minidump"
elif [ -n "$given" ]; then
    [ -f "$given" ] || refuse "ZBASE_BREAKPAD_DIR=$given: there is nothing"
    unpack "$given"
elif command -v npm >/dev/null; then
    if ! run_logged "$work/log" "Fetching Breakpad" by_npm; then
        grep -i '^npm err' "$work/log" | grep -v -i -e 'complete log' -e '    at ' | head -n 5 >&2
        without_registry " $(npm config get registry 2>/dev/null)"
    fi
else
    if ! run_logged "$work/log" "Fetching Breakpad" by_curl; then
        grep "^curl: " "$work/log" >&2 || tail -n 3 "$work/log" >&2
        without_registry ""
    fi
    unpack "$work/minidump.tgz"
fi

cd "$work/minidump"
apply() { patch --force --silent --no-backup-if-mismatch --directory=deps/breakpad/src -p1 "$@"; }
# ZBASE_BREAKPAD_DIR may already have the patches. One patch may depend on another.
for patch in $(cd "$pinned" && printf '%s\n' *.patch | sort -r); do
    if apply --reverse --dry-run <"$pinned/$patch" >/dev/null 2>&1; then apply --reverse <"$pinned/$patch" >&2; fi
done
for patch in "$pinned"/*.patch; do
    apply <"$patch" >&2 || refuse "$(basename "$patch") does not fit the package"
done
ln -sfn ../../../third_party/lss deps/breakpad/src/third_party/lss
chmod +x bin/linux-x64/*
rm -rf "$place/minidump"
mv "$work/minidump" "$place/minidump"
echo "$state" >"$place/.installed"
