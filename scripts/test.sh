#!/usr/bin/env bash
# Sets up, builds and runs every test.
#   scripts/test.sh [--sanitize]   the same in a build with ASan and UBSan
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/build.sh "$@"
dir=build
[ "${1:-}" = "--sanitize" ] && dir=build-sanitize
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$dir" --output-on-failure -j2
# The installed tree, run from elsewhere (once, from the plain build).
if [ "$dir" = build ]; then bash scripts/install-check.sh; fi
