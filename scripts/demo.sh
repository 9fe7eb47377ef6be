#!/usr/bin/env bash
# Sets everything up, builds vpath and shows it at work on the bundled example toolbox.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target vpath

vpath=build/default/tools/vpath/vpath
# A path definition file of the demo's own, so that it starts from the example toolbox whatever
# the user has saved, and leaves the user's saved path alone.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export VPATH_PATHDEF="$scratch/pathdef"

run() {
    echo "\$ vpath $*"
    "$vpath" "$@" || true
    echo
}
run path
run which area clamp mean median histogram Sample
run which -a area
run which shapes/circle shapes/@Polygon/vertices
run which --from examples/toolbox/geometry validate_shape
run which nothing_by_this_name
run ls --ext .vlp --ext .vlx
mkdir -p "$scratch/mytools"
printf '%% area(r): the area of a circle\n' > "$scratch/mytools/area.vl"
run add "$scratch/mytools"
run which -a area
cp "$VPATH_PATHDEF" "$scratch/before"
run rm examples/toolbox/utils
run diff "$scratch/before" "$VPATH_PATHDEF"
