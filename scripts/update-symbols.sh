#!/usr/bin/env bash
# Makes debian/*.symbols again from the libraries of freshly built packages: the symbols the
# files list keep their versions, new ones get the changelog's version. C++ names are written
# demangled, with the (c++) tag, so that a change reads as a change of declarations.
#
#   scripts/update-symbols.sh           builds the packages first (scripts/build-deb.sh)
#   scripts/update-symbols.sh --built   uses the packages in build/deb as they are
set -euo pipefail
cd "$(dirname "$0")/.."

[ "${1-}" = --built ] || scripts/build-deb.sh
version=$(dpkg-parsechangelog --show-field Version)
arch=$(dpkg-architecture -qDEB_HOST_ARCH)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

for p in $(sed -n 's/^Package: \(lib.*[0-9]\)$/\1/p' debian/control); do
    dpkg-deb -x "build/deb/${p}_${version}_${arch}.deb" "$scratch/$p"
    # -c0: a symbol that went away is left out here; the package build is what fails on it.
    dpkg-gensymbols -q -c0 -p"$p" -v"$version" -P"$scratch/$p" -O"$scratch/$p.symbols"
    python3 - "$scratch/$p.symbols" >"debian/$p.symbols" <<'PY'
import re, subprocess, sys

# Instances of the standard library's and Boost's templates that the compiler chose to emit: a
# program never links to them through our headers, and another compiler version may inline them.
# They are listed, but optional: their going away does not break the ABI.
THEIRS = re.compile(r"^(?:(?:typeinfo name|typeinfo|vtable|VTT|guard variable) for )?"
                    r"(?:[\w:]+ )?(?:std|boost|__gnu_cxx)::")

lines = open(sys.argv[1]).read().splitlines()
mangled = [l.split()[0].split("@")[0] for l in lines if l.startswith(" _Z")]
demangled = subprocess.run(["c++filt"], input="\n".join(mangled), capture_output=True,
                           text=True, check=True).stdout.splitlines()
names = dict(zip(mangled, demangled))
seen = set()
for line in lines:
    if line.startswith(" _Z"):
        symbol, version = line.split()
        name, _, symbol_version = symbol.partition("@")
        # A constructor's or destructor's variants demangle alike: one line stands for them all.
        pattern = f'"{names[name]}@{symbol_version}"'
        if pattern in seen:
            continue
        seen.add(pattern)
        tags = "c++|optional" if THEIRS.match(names[name]) else "c++"
        line = f" ({tags}){pattern} {version}"
    print(line)
PY
    echo "debian/$p.symbols: $(grep -c '^ ' "debian/$p.symbols") symbols"
done
