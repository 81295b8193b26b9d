#!/bin/bash
# bare.sh [SCRIPT...]: runs demo.sh and test.sh, or scripts given by their paths in the tree, of the committed tree on a
# bare system: the smallest Debian, git, the certificates, and this machine's own settings of apt and npm. Needs root. It is
# removed afterwards, whatever happens. ZBASE_BARE_SUITE names another Debian than this machine's. With ccache in the
# environment (CMAKE_CXX_COMPILER_LAUNCHER, CCACHE_DIR) its objects are used.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/support/progress.sh

# TMPDIR does not exist there.
in_root() { env -u TMPDIR chroot "$root" "$@"; }

fetch_system() {
    local own suite mirror
    own=$(. /etc/os-release && echo "$VERSION_CODENAME")
    suite=${ZBASE_BARE_SUITE:-$own}
    mirror=$(apt-get indextargets --format '$(REPO_URI)' "Release: $own" "Component: main" | head -n 1)
    eval "$(apt-config shell http_proxy Acquire::http::Proxy https_proxy Acquire::https::Proxy)"
    export http_proxy https_proxy
    env -u TMPDIR debootstrap --variant=minbase --include=git,ca-certificates "$suite" "$root" "${mirror:-http://deb.debian.org/debian}"
}

# The sources of another Debian are those of this one under its name.
of_suite() {
    local own
    own=$(. /etc/os-release && echo "$VERSION_CODENAME")
    [ "${ZBASE_BARE_SUITE:-$own}" = "$own" ] || find "$root/etc/apt" -name '*.list' -o -name '*.sources' |
        xargs -r sed -i "s/\\b$own\\b/$ZBASE_BARE_SUITE/g"
}

copy_settings() {
    rm -rf "$root/etc/apt"
    cp -a /etc/apt "$root/etc/apt" && of_suite && cp -a /usr/share/keyrings/. "$root/usr/share/keyrings/" || return
    cp -a /usr/local/share/ca-certificates/. "$root/usr/local/share/ca-certificates/" 2>/dev/null || :
    in_root update-ca-certificates || return
    cp -L /etc/resolv.conf /etc/hosts "$root/etc/"
    local settings
    for settings in /etc/npmrc /usr/etc/npmrc "$HOME/.npmrc"; do
        [ ! -e "$settings" ] || install -D -m 600 "$settings" "$root${settings/#$HOME\/.npmrc//root/.npmrc}"
    done
}

# Below a root that is not a mount point no namespace can be made.
mount_kernel() {
    mount --bind "$root" "$root"
    mount -t proc proc "$root/proc"
    mount --rbind /dev "$root/dev"
    mount -t sysfs sysfs "$root/sys"
}

# The variables of this machine's environment that are passed on.
environment() {
    echo "HOME=/root"
    echo "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
    env | grep -i -E '^(https?_proxy|no_proxy|npm_config_[a-z_]*)=' || :
    env | grep -E '^(ZBASE_PROGRESS_SECONDS|ZBASE_CRASH_REPORTING|ZBASE_WAYS)=' || :
    if command -v npm >/dev/null; then echo "npm_config_registry=$(npm config get registry 2>/dev/null)"; fi
    if [ -e "$root/ccache" ]; then
        env | grep -E '^(CMAKE_CXX_COMPILER_LAUNCHER|CCACHE_SLOPPINESS|LANG|LC_[A-Z]*)='  # its keys hold the locale
        printf '%s\n' CCACHE_DIR=/ccache CCACHE_BASEDIR=/root CCACHE_NOHASHDIR=1
    fi
}

run_inside() { in_root /usr/bin/env -i "${inside[@]}" "$@"; }

use_ccache() {
    mkdir "$root/ccache" && mount --bind "$CCACHE_DIR" "$root/ccache" && in_root apt-get update &&
        in_root apt-get install -y --no-install-recommends ccache
}

if [ "${1:-}" != --inside ]; then
    [ "$(id -u)" = 0 ] || { echo "bare.sh: only root can make a system to try it on (debootstrap, mount, chroot)" >&2; exit 1; }
    place=$(mktemp -d "${TMPDIR:-/var/tmp}/zbase-bare-XXXXXX")
    inside=""
    leave() {
        end_progress
        [ -z "$inside" ] || { kill -KILL "$inside" && wait "$inside"; } 2>/dev/null || :
        rm -rf --one-file-system "$place" 2>/dev/null || { sleep 2 && rm -rf --one-file-system "$place"; }
    }
    trap leave EXIT
    [ -z "$(git status --porcelain)" ] || echo "What is not committed is not tried."
    # Mounts and processes of a namespace end with it, however it ends.
    TMPDIR=$place unshare --mount --pid --fork --kill-child --propagation private scripts/checks/bare.sh --inside "$place" "$@" &
    inside=$!
    status=0
    wait "$inside" || status=$?
    inside=""
    exit "$status"
fi

root=$2/root
SECONDS=0
quietly "Fetching a bare system" fetch_system
quietly "Copying the settings of this machine" copy_settings
mount_kernel
if [ "${CMAKE_CXX_COMPILER_LAUNCHER:-}" = ccache ] && [ -d "${CCACHE_DIR:-}" ]; then
    quietly "Installing ccache" use_ccache
fi
git clone -q --no-local "$PWD" "$root/root/zbase"
mapfile -t inside < <(environment)
packages() { in_root dpkg-query -W | wc -l; }
before=$(packages)
shift 2
[ $# -gt 0 ] || set -- scripts/demo.sh scripts/test.sh
for script in "$@"; do
    echo "-- $script"
    run_inside sh -c "cd /root/zbase && $script"
done
echo "The bare system of $before packages passes with $(packages), in $((SECONDS / 60)) minutes."
