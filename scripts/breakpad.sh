#!/bin/sh
# breakpad.sh: installs Breakpad, its dump tools and our patches to it under third_party/breakpad. Costs nothing when they
# are there already.
set -eu
cd "$(dirname "$0")/../third_party/breakpad"
state=$(cat package.json package-lock.json ./*.patch ../../scripts/breakpad.sh | sha256sum)
[ "$(cat node_modules/.installed 2>/dev/null)" != "$state" ] || exit 0

echo "breakpad.sh: installing Breakpad"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! {
    npm ci --ignore-scripts --no-audit --no-fund &&
        for patch in ./*.patch; do
            patch --batch --directory=node_modules/minidump/deps/breakpad/src -p1 <"$patch" || exit 1
        done &&
        ln -sfn ../../../third_party/lss node_modules/minidump/deps/breakpad/src/third_party/lss &&
        chmod +x node_modules/minidump/bin/linux-x64/*
} >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
echo "$state" >node_modules/.installed
