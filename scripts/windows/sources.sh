#!/bin/sh
# sources.sh PACKAGE FILE PLACE: puts the sources of what the package of headers PACKAGE belongs to, as this Debian has them with
# its corrections, into PLACE/lib, for a system that Debian has no such package for: all that is beside FILE. They come from where
# this machine has its packages from. Costs nothing when they are there.
set -eu
cd "$(dirname "$0")/../.."
. scripts/support/progress.sh
package=$1 file=$2 place=$3
[ ! -e "$place/lib/$file" ] || exit 0

refuse() {
    echo "sources.sh: $1" >&2
    exit 1
}

mkdir -p "$place"
work=$(mktemp -d "$place/.fetching-XXXXXX")
trap 'rm -rf "$work"; end_progress' EXIT
mkdir -p "$work/lists/partial" "$work/sources.list.d" "$work/archives/partial"

# "500 ADDRESS SUITE/COMPONENT amd64 Packages": each place that offers the package offers its source.
apt-cache policy "$package" | awk '$1 ~ /^[0-9]+$/ && $2 ~ /:/ { split($3, part, "/")
    print "deb-src " $2 " " part[1] " " part[2] }' | sort -u >"$work/sources.list"
[ -s "$work/sources.list" ] || refuse "apt knows no place that has $package"
source=$(dpkg-query -W -f '${source:Package}' "$package") || refuse "$package is not installed"
here="-o Dir::Etc::SourceList=$work/sources.list -o Dir::Etc::SourceParts=$work/sources.list.d -o Dir::State::Lists=$work/lists
    -o APT::Sandbox::User= -o Dir::Cache::pkgcache= -o Dir::Cache::srcpkgcache= -o Acquire::Retries=3"
fetch() {
    # With a list that can't be had the source may be there all the same; a mirror may lag behind its lists.
    apt-get $here update || :
    for version in $(apt-cache $here showsrc "$source" | sed -n 's/^Version: //p' | sort -r -V -u); do
        (cd "$work" && rm -rf unpacked && apt-get $here source --download-only "$source=$version" &&
            dpkg-source --no-check -x "${source}_${version#*:}.dsc" unpacked) && return 0
    done
    return 1
}
run_logged "$work/log" "Fetching the sources of $source" fetch ||
    { tail -n 5 "$work/log" >&2; refuse "the sources of $source can't be had"; }
rm -rf "$place/lib"
mv "$(dirname "$(find "$work/unpacked" -name .pc -prune -o -name "$file" -print | head -n 1)")" "$place/lib"
