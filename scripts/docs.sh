#!/bin/bash
# docs.sh: makes the pages and the reference as HTML in build/docs, to be read without a server from build/docs/index.html.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/progress.sh
scripts/setup.sh docs
rm -rf build/docs
mkdir -p build/docs/tree

# What pages link to and Doxygen doesn't make goes along.
grep -oh '](\.\./[^)]*)' docs/*.md | sed 's|^](\.\./||; s|)$||' | grep -v '\.h$' | sort -u | xargs -d '\n' cp -R --parents -t build/docs/tree
quietly "Making pages and reference" doxygen docs/Doxyfile
echo "build/docs/index.html"
