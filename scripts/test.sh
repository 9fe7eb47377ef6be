#!/usr/bin/env bash
# Sets everything up, then builds and runs the whole test suite: the formatting check, the normal
# build, the sanitizer builds (AddressSanitizer with UndefinedBehaviorSanitizer, and
# ThreadSanitizer), the Debian packages held to lintian and used from a scratch root
# (scripts/check-package.sh), and a short run of each fuzz target.
#
#   scripts/test.sh --quick     the formatting check and the normal build with its tests only: a
#                               first check that leaves out the slow sanitizer, package and fuzz runs
#   scripts/test.sh --install   as root, the packages are also installed on this machine, removed
#                               and purged (what CI does, where CI is set)
set -euo pipefail
cd "$(dirname "$0")/.."

quick=false
package_options=()
case "${1-}" in
--quick) quick=true ;;
--install) package_options=(--install) ;;
"") ;;
*)
    echo "usage: scripts/test.sh [--quick | --install]" >&2
    exit 2
    ;;
esac

scripts/install-deps.sh

echo "== formatting"
git ls-files -- '*.cpp' '*.hpp' '*.hpp.in' | xargs clang-format --dry-run --Werror

presets=(default asan tsan)
if $quick; then
    presets=(default)
fi
for preset in "${presets[@]}"; do
    echo "== build and test: $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    ctest --preset "$preset"
done
if $quick; then
    echo "== quick check passed (scripts/test.sh without --quick runs the whole suite)"
    exit 0
fi

echo "== Debian packages"
scripts/check-package.sh "${package_options[@]}"

echo "== fuzz targets (30 s each)"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
fuzz_scratch=$(mktemp -d)
trap 'rm -rf "$fuzz_scratch"' EXIT
fuzz() {
    local target=$1
    shift
    mkdir -p "$fuzz_scratch/$target"
    if ! "build/fuzz/fuzz/$target" -max_total_time=30 -artifact_prefix="$fuzz_scratch/" "$@" \
        "$fuzz_scratch/$target" >"$fuzz_scratch/$target.log" 2>&1; then
        tail -n 60 "$fuzz_scratch/$target.log"
        echo "$target found a failing input"
        exit 1
    fi
    echo "$target: $(grep -o 'stat::number_of_executed_units: [0-9]*' "$fuzz_scratch/$target.log" || true)"
}
fuzz fuzz_text -print_final_stats=1
fuzz fuzz_absolute_iri -print_final_stats=1 -dict=fuzz/absolute_iri.dict
fuzz fuzz_path_cache -print_final_stats=1
fuzz fuzz_path_cache_load -print_final_stats=1
fuzz fuzz_cache_names -print_final_stats=1
fuzz fuzz_path_definition -print_final_stats=1
fuzz fuzz_path_texts -print_final_stats=1
fuzz fuzz_service_protocol -print_final_stats=1
