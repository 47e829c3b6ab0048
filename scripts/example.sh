#!/usr/bin/env bash
# Sets up, builds and runs mrset on the bundled survey (the file is left as it is).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/build.sh >/dev/null
build/bin/mrset --data examples/survey.json --no-save examples/survey.mrs
