#!/bin/sh
# package.sh: makes the Debian packages libzbase1, libzbase-dev and zbase-tools, and an archive that works wherever it is
# unpacked, in build/package.
set -eu
cd "$(dirname "$0")/.."
. scripts/support/progress.sh
scripts/setup.sh package
ZBASE_PRESET=package scripts/build.sh
cd build/package
rm -f ./*.deb ./*.ddeb ./*.tar.gz
quietly "Making the packages" cpack -G DEB

# CPack adds scripts that call ldconfig; the package's trigger does the same, without scripts.
for package in ./libzbase?_*.deb; do
    dpkg-deb -R "$package" unpacked
    rm -f unpacked/DEBIAN/postinst unpacked/DEBIAN/postrm
    dpkg-deb --root-owner-group -b unpacked "$package" >/dev/null
    rm -rf unpacked
done
quietly "Making the archive" cpack -G TGZ
ls ./*.deb ./*.ddeb ./*.tar.gz
