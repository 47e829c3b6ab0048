#!/usr/bin/env bash
# Builds the fuzz targets with clang (ASan and UBSan) and runs each for a
# while, seeded from the golden cases, the example and the converter's
# fixtures. Fails when a target finds a crash, a leak, a hang or a sanitizer
# report; what it found is kept in build-fuzz/findings/.
#   scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]
# MRSET_FUZZ_SEED fixes the fuzzers' seed, so that a run meets the same
# inputs each time (CI's); without it every run explores anew.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-30}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(syntax_fuzzer codebook_fuzzer database_fuzzer formats_fuzzer cases_fuzzer)

bash scripts/setup.sh
dir=build-fuzz
cmake -S . -B "$dir" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DMRSET_BUILD_FUZZERS=ON -DMRSET_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" -j2 --target "${targets[@]}" mrset-convert

seeds=$dir/seeds
rm -rf "$seeds"
mkdir -p "$seeds"/{syntax_fuzzer,codebook_fuzzer,database_fuzzer,formats_fuzzer,cases_fuzzer}

# Syntax: the commands of every golden case and the example.
n=0
for test in tests/programs/mrset/cases/*.test; do
  awk '/^==== run/{on=1; next} /^==== /{on=0} on' "$test" >"$seeds/syntax_fuzzer/$(basename "$test" .test).mrs"
done
cp examples/survey.mrs "$seeds/syntax_fuzzer/"

# Stores: every codebook the tests use, and each as a database.
for json in examples/survey.json tests/programs/mrset/data/*.json tests/programs/mrset-convert/fixtures/survey.json; do
  n=$((n + 1))
  cp "$json" "$seeds/codebook_fuzzer/$n.json"
  "$dir/bin/mrset-convert" "$json" "$seeds/database_fuzzer/$n.db" >/dev/null 2>&1 || true
done

# Case data: the golden cases' case files.
cp tests/programs/mrset/data/mrfreq*.csv "$seeds/cases_fuzzer/"

# Formats: the first byte picks the input's name (0 .json, 1 datapackage.json,
# 2 .xml, 3 .sss, 4 .csv), the rest is the file.
with_name() { { printf "\\x$(printf %02x "$1")"; cat "$2"; } >"$3"; }
fixtures=tests/programs/mrset-convert/fixtures
with_name 0 examples/survey.json "$seeds/formats_fuzzer/codebook"
with_name 1 $fixtures/datapackage.json "$seeds/formats_fuzzer/datapackage"
with_name 2 $fixtures/archive.xml "$seeds/formats_fuzzer/ddi"
with_name 3 $fixtures/study.sss "$seeds/formats_fuzzer/triple-s"
with_name 4 $fixtures/platform.csv "$seeds/formats_fuzzer/csv"
with_name 0 "$seeds/database_fuzzer/1.db" "$seeds/formats_fuzzer/database"

export ASAN_OPTIONS=detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
seed=()
[ -z "${MRSET_FUZZ_SEED:-}" ] || seed=(-seed="$MRSET_FUZZ_SEED")
status=0
for target in "${targets[@]}"; do
  corpus=$dir/corpus/$target
  findings=$dir/findings/$target
  mkdir -p "$corpus" "$findings"
  echo "== $target for ${seconds}s"
  if ! "$dir/bin/$target" "$corpus" "$seeds/$target" "${seed[@]}" -max_total_time="$seconds" -timeout=20 \
    -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 -artifact_prefix="$findings/" \
    >"$dir/$target.log" 2>&1; then
    echo "$target FAILED; its log: $dir/$target.log; the input: $(ls "$findings")"
    tail -n 40 "$dir/$target.log"
    status=1
  else
    grep -E "^stat::(number_of_executed_units|new_units_added)" "$dir/$target.log" || true
  fi
done
exit $status
