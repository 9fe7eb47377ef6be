#!/usr/bin/env bash
# Builds the Debian packages with dpkg-buildpackage from a copy of the tree, so that the source
# stays clean: build/deb/vpath-VERSION/ is the copy, and the packages land in build/deb/. The
# copy holds the working tree's files that git tracks or would track (not those it ignores), as
# they are now: uncommitted changes and new files included.
#
# The copy's place never changes, and the compiler runs through ccache: a second build of the
# same sources is quick.
set -euo pipefail
cd "$(dirname "$0")/.."

version=$(dpkg-parsechangelog --show-field Version)
out=build/deb
copy=$out/vpath-$version
rm -rf "$copy" "$out"/*.deb "$out"/*.ddeb "$out"/*.changes "$out"/*.buildinfo
mkdir -p "$copy"
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    git ls-files -z --cached --others --exclude-standard |
        while IFS= read -r -d '' file; do
            if [ -e "$file" ] || [ -L "$file" ]; then printf '%s\0' "$file"; fi
        done |
        tar --null -T - -cf - | tar -x -C "$copy"
else
    tar --exclude=./build -cf - . | tar -x -C "$copy"
fi

# debhelper gives the build a HOME of its own: ccache is told where its cache is.
if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache
    CCACHE_DIR=$(ccache -k cache_dir)
    export CCACHE_DIR
fi

(cd "$copy" && dpkg-buildpackage -b -us -uc -Jauto)
ls "$out"/*.deb
