#!/bin/sh
# Builds the Debian packages of the commit that is checked out into OUT_DIR, twice and in different directories, and
# compares; then lintian. Nothing is downloaded. (The path must have no blanks: dpkg then leaves it in the build ids.)
#
#   deb.sh OUT_DIR [once]
#
# packaging/debian becomes debian/ in the tree that is built: an archive of the commit, so that what lies about in a
# working tree does not get into a package.
set -eu

source=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$1"
out=$(cd "$1" && pwd)
times=${2:-twice}
version=$(sed -n 's/^project(cmodel VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
export DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-parallel=$(nproc)}"

build() { # DIRECTORY
    rm -rf "$1"
    mkdir -p "$1"
    git -C "$source" archive --prefix="cmodel-$version/" HEAD | tar -x -C "$1"
    # The tuning page takes a compiler of its own to make; it is in the packages if it lies there made.
    if [ -e "$source/build/page/tuning.html" ]; then
        mkdir -p "$1/cmodel-$version/build/page"
        cp "$source/build/page/tuning.html" "$1/cmodel-$version/build/page"
    fi
    tar -c -C "$1" --sort=name --owner=0 --group=0 --numeric-owner "cmodel-$version" |
        xz -T1 >"$1/cmodel_$version.orig.tar.xz"
    cp -r "$1/cmodel-$version/packaging/debian" "$1/cmodel-$version/debian"
    (cd "$1/cmodel-$version" && LC_ALL=C.UTF-8 dpkg-buildpackage -us -uc >"$1/build.log" 2>&1) || {
        tail -50 "$1/build.log" >&2
        exit 1
    }
}

build "$out/first"
if [ "$times" = twice ]; then
    build "$out/second/place"
    for deb in "$out"/first/*.deb; do
        cmp "$deb" "$out/second/place/$(basename "$deb")"
    done
    rm -rf "$out/second"
    echo "built twice, the same bytes"
fi
rm -f "$out"/*.deb "$out"/*.dsc "$out"/*.tar.* "$out"/*.changes "$out"/*.buildinfo
mv "$out"/first/*.deb "$out"/first/*.dsc "$out"/first/*.tar.* "$out"/first/*.changes "$out"/first/*.buildinfo "$out"
lintian --fail-on error,warning "$out"/*.changes
ls "$out"/*.deb
