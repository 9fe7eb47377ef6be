#!/usr/bin/env bash
# Sets everything up, then builds and runs the whole test suite: the formatting check, the normal
# build, the sanitizer builds (AddressSanitizer with UndefinedBehaviorSanitizer, and
# ThreadSanitizer), the Debian package used from a scratch root, and a short run of each fuzz
# target.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

echo "== formatting"
git ls-files -- '*.cpp' '*.hpp' '*.hpp.in' | xargs clang-format --dry-run --Werror

for preset in default asan tsan; do
    echo "== build and test: $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    ctest --preset "$preset"
done

echo "== Debian package"
scripts/check-package.sh

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
