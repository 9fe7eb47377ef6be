#!/usr/bin/env bash
# Sets everything up, then builds and runs the whole test suite: the formatting check, the normal
# build, and the sanitizer builds (AddressSanitizer with UndefinedBehaviorSanitizer, and
# ThreadSanitizer).
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
