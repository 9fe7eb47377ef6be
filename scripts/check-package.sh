#!/usr/bin/env bash
# Builds the Debian package, unpacks it into a scratch root (dpkg -x, as no root is needed) and
# uses it from there: vpath --version, vpath which on the installed example toolbox, and the
# embedding example built against the package's CMake files.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset package >/dev/null
cmake --build --preset package
rm -f build/package/vpath_*.deb
(cd build/package && cpack -G DEB >/dev/null)
deb=$(echo build/package/vpath_*.deb)
echo "package: $deb"
dpkg-deb --field "$deb" Package Version Architecture Depends

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
dpkg -x "$deb" "$root"
vpath="$root/usr/bin/vpath"

"$vpath" --version
found=$("$vpath" --example which area)
expected="$root/usr/share/vpath/examples/toolbox/geometry/area.vl"
if [ "$found" != "$expected" ]; then
    echo "vpath which from the package found '$found', not '$expected'"
    exit 1
fi
echo "vpath which area: $found"
for file in usr/share/man/man1/vpath.1 usr/share/bash-completion/completions/vpath \
    usr/share/zsh/vendor-completions/_vpath; do
    test -s "$root/$file" || { echo "missing from the package: $file"; exit 1; }
done

# The library part: the embedding example against the unpacked package.
cmake -S docs/example -B "$root/example" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$root/usr" >/dev/null
cmake --build "$root/example" >/dev/null
LD_LIBRARY_PATH="$root/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" \
    "$root/example/embedding_example" examples/toolbox/utils examples/toolbox/geometry
