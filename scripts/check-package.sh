#!/usr/bin/env bash
# Builds the Debian packages (scripts/build-deb.sh), holds them to lintian, unpacks them into a
# scratch root and uses them from there: vpath --version, vpath which on the installed example
# toolbox, and the embedding example of docs/ built against the -dev package through its CMake
# package and through pkg-config.
#
#   scripts/check-package.sh [--install]
#
# With --install (or when CI is set), and as root, it also installs the packages on this machine
# with apt, runs the installed vpath, removes them and purges them, and checks that nothing of
# theirs is left. It refuses when any of them is installed already.
set -euo pipefail
cd "$(dirname "$0")/.."

install=false
case "${1-}" in
--install) install=true ;;
"") [ -n "${CI-}" ] && install=true ;;
*)
    echo "usage: scripts/check-package.sh [--install]" >&2
    exit 2
    ;;
esac

fail() {
    echo "check-package: $*" >&2
    exit 1
}

scripts/build-deb.sh
out=build/deb
version=$(dpkg-parsechangelog --show-field Version)
arch=$(dpkg-architecture -qDEB_HOST_ARCH)
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
mapfile -t packages < <(sed -n 's/^Package: //p' debian/control)

echo "== lintian"
lintian --fail-on error,warning "$out/vpath_${version}_${arch}.changes"

echo "== the packages' contents"
debs=()
for p in "${packages[@]}"; do
    deb="$out/${p}_${version}_${arch}.deb"
    [ -f "$deb" ] || fail "no package $p"
    # Every package with a binary has its debug symbols beside it (the -dev package has none).
    case $p in
    *-dev) ;;
    *) [ -f "$out/${p}-dbgsym_${version}_${arch}.deb" ] || fail "no debug symbols package for $p" ;;
    esac
    debs+=("$deb")
done
# Each file's place, package by package: the libraries only their own, the headers only under
# the project's folder, and nothing where another package's files lie.
for deb in "${debs[@]}"; do
    p=$(dpkg-deb --field "$deb" Package)
    dpkg-deb --fsys-tarfile "$deb" | tar -t | sed -n 's,^\./,/,; /[^/]$/p' | while read -r file; do
        case "$p:$file" in
        lib*0:/usr/lib/$multiarch/libvelmora_*.so.0 | lib*0:/usr/lib/$multiarch/libvelmora_*.so.0.*) ;;
        lib*:/usr/share/doc/"$p"/* | vpath:/usr/share/doc/vpath/*) ;;
        *-dev:/usr/include/velmora/*.hpp | *-dev:/usr/lib/$multiarch/libvelmora_*.so) ;;
        *-dev:/usr/lib/$multiarch/cmake/VelmoraPathManagement/*.cmake) ;;
        *-dev:/usr/lib/$multiarch/pkgconfig/velmora-pathmanagement.pc) ;;
        vpath:/usr/bin/vpath | vpath:/usr/share/man/man1/vpath.1.gz) ;;
        vpath:/usr/share/bash-completion/completions/vpath | vpath:/usr/share/zsh/vendor-completions/_vpath) ;;
        vpath:/usr/share/vpath/examples/toolbox/*) ;;
        vpath:/usr/lib/systemd/user/vpath.service | vpath:/usr/lib/systemd/user/vpath.socket) ;;
        *) fail "$p holds $file, which is not its place" ;;
        esac
    done
done

echo "== used from a scratch root"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
root=$scratch/root
for deb in "${debs[@]}"; do
    dpkg-deb -x "$deb" "$root"
done
libdir=$root/usr/lib/$multiarch
vpath() { LD_LIBRARY_PATH=$libdir "$root/usr/bin/vpath" "$@"; }

vpath --version
# The unpacked command runs on the unpacked libraries, not on any installed elsewhere.
LD_LIBRARY_PATH=$libdir ldd "$root/usr/bin/vpath" | grep libvelmora_ | grep -v "=> $libdir/" &&
    fail "vpath does not use the unpacked libraries"
found=$(vpath --example which area)
expected=$root/usr/share/vpath/examples/toolbox/geometry/area.vl
[ "$found" = "$expected" ] || fail "vpath which from the package found '$found', not '$expected'"
echo "vpath which area: $found"
zcat "$root/usr/share/man/man1/vpath.1.gz" | grep -q '^\.TH VPATH 1' || fail "no man page"

# The embedding example resolves area on utils, adds geometry in front, and then finds
# geometry's area.
check_example() {
    local output
    output=$(LD_LIBRARY_PATH=$libdir "$1" examples/toolbox/utils examples/toolbox/geometry)
    echo "$output" | grep -q '^area -> .*/geometry/area\.vl$' ||
        fail "$1 printed:"$'\n'"$output"
}
cmake -S docs/example -B "$scratch/cmake-example" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$root/usr" >/dev/null
cmake --build "$scratch/cmake-example" >/dev/null
check_example "$scratch/cmake-example/embedding_example"
echo "embedding example, through CMake: ok"

pc=(pkg-config --define-variable=prefix="$root/usr")
export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046 # the flags are words
c++ -std=c++20 docs/example/main.cpp $("${pc[@]}" --cflags --libs velmora-pathmanagement) \
    -o "$scratch/pc-example"
check_example "$scratch/pc-example"
echo "embedding example, through pkg-config: ok"

if ! $install; then
    echo "== install and purge: skipped (as root: --install, or set CI)"
    exit 0
fi
[ "$(id -u)" -eq 0 ] || fail "--install needs root"

echo "== installed, removed and purged"
for p in "${packages[@]}"; do
    if dpkg-query -W -f='${db:Status-Abbrev}' "$p" 2>/dev/null | grep -q '^.[^n]'; then
        fail "$p is installed already; this check leaves an installation it did not make alone"
    fi
done
export DEBIAN_FRONTEND=noninteractive
apt-get install -y -q --no-install-recommends "${debs[@]/#/./}" >/dev/null
files=$scratch/files
for p in "${packages[@]}"; do dpkg-query -L "$p"; done | sort -u >"$files"
/usr/bin/vpath --version
[ "$(/usr/bin/vpath --example which area)" = /usr/share/vpath/examples/toolbox/geometry/area.vl ] ||
    fail "the installed vpath does not find the installed example toolbox"

left() {
    local p file
    for p in "${packages[@]}"; do
        if dpkg-query -W -f='${db:Status-Abbrev}' "$p" 2>/dev/null | grep -q '^.[^n]'; then
            fail "after $1, dpkg still knows $p: $(dpkg-query -W -f='${db:Status-Abbrev}' "$p")"
        fi
    done
    # Folders may stay when other packages share them; files and links may not, nor the folders
    # that are the packages' own.
    while read -r file; do
        if [ -L "$file" ] || { [ -e "$file" ] && [ ! -d "$file" ]; }; then
            fail "after $1, $file is left"
        fi
    done <"$files"
    for file in /usr/share/vpath /usr/include/velmora "/usr/lib/$multiarch/cmake/VelmoraPathManagement" \
        "${packages[@]/#//usr/share/doc/}"; do
        [ -e "$file" ] && fail "after $1, $file is left"
    done
    return 0
}
# The packages have no configuration files: remove leaves nothing for purge to take away, and
# dpkg forgets them at once (apt-get purge would no longer know their names).
apt-get remove -y -q "${packages[@]}" >/dev/null
left "apt-get remove"
dpkg --purge "${packages[@]}" >/dev/null 2>&1
left "dpkg --purge"
echo "install, remove and purge: nothing left"
