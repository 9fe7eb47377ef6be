#!/usr/bin/env bash
# Sets everything up, builds vpath and shows it at work on the bundled example toolbox.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target vpath

vpath=build/default/tools/vpath/vpath
# A path definition file of the demo's own, so that the user's saved path is left alone.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export VPATH_PATHDEF="$scratch/pathdef"

run() {
    echo "\$ vpath $*"
    "$vpath" "$@" || true
    echo
}
# --example searches the bundled example toolbox without saving anything.
run --example which area clamp mean median histogram Sample
run --example which -a area
run --example which shapes/circle shapes/@Polygon/vertices
run --example which --from examples/toolbox/geometry validate_shape
run --example ls --ext .vlp --ext .vlx
# The saved path starts empty; the demo saves its own, naming every folder.
run path
run add examples/toolbox/geometry examples/toolbox/stats examples/toolbox/utils
run which nothing_by_this_name
mkdir -p "$scratch/mytools"
printf '%% area(r): the area of a circle\n' > "$scratch/mytools/area.vl"
run add "$scratch/mytools"
run which -a area
cp "$VPATH_PATHDEF" "$scratch/before"
run rm examples/toolbox/utils
run diff "$scratch/before" "$VPATH_PATHDEF"
