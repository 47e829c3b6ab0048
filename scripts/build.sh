#!/usr/bin/env bash
# Sets up the machine and builds the project.
#   scripts/build.sh [--sanitize]   build/ (or build-sanitize/ with ASan+UBSan)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

dir=build
flags=()
if [ "${1:-}" = "--sanitize" ]; then
  dir=build-sanitize
  flags+=(-DMRSET_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug)
fi
cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$dir" -j2
