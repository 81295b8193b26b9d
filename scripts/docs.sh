#!/bin/bash
# docs.sh: makes the pages and the reference as HTML in build/docs, to be read without a server from build/docs/index.html.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/support/progress.sh
scripts/setup.sh docs
rm -rf build/docs build/docs-source
mkdir -p build/docs/tree build/docs-source

# Link targets that Doxygen doesn't make are copied.
python3 scripts/support/site_source.py --linked | xargs -d '\n' cp -R --parents -t build/docs/tree
python3 scripts/support/site_source.py build/docs-source
find docs -name '*.svg' -exec cp --parents -t build/docs-source {} +
quietly "Making pages and reference" env -C build/docs-source doxygen "$PWD/docs/Doxyfile"
rm -rf build/docs-source
echo "build/docs/index.html"
