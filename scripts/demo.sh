#!/usr/bin/env bash
# Sets everything up, builds vpath and resolves names on the bundled example toolbox.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target vpath

vpath=build/default/tools/vpath/vpath
run() {
    echo "\$ vpath $*"
    "$vpath" "$@" || true
    echo
}
run which area clamp mean median histogram
run which shapes/circle shapes/@Polygon/vertices
run which nothing_by_this_name
