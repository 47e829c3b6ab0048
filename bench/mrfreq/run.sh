#!/usr/bin/env bash
# MRFREQ against DuckDB and `wc -l` on 1,000,000 cases x 200 columns.
#   bash bench/mrfreq/run.sh [CASES] [RUNS]
# Makes the case file and codebook (the same bytes every time) under
# build/bench-mrfreq/, installs DuckDB's Node package there (never a
# dependency of the build or the tests), and times, RUNS times each: mrset
# running the frequencies of the 10-member set $q and its crosstab by region
# (one MRFREQ command, one pass), DuckDB computing the same counts, and
# `wc -l`. Prints the medians, the ratios and mrset's peak memory.
set -euo pipefail
cd "$(dirname "$0")/../.."
cases=${1:-1000000}
runs=${2:-5}
work=build/bench-mrfreq
mkdir -p "$work"

[ -x build/bin/mrset ] || bash scripts/build.sh
if [ ! -f "$work/cases.csv" ] || [ "$(cat "$work/cases.count" 2>/dev/null)" != "$cases" ]; then
  c++ -O2 -std=c++20 -o "$work/make_cases" bench/mrfreq/make_cases.cpp
  "$work/make_cases" "$cases" "$work"
  echo "$cases" >"$work/cases.count"
fi
if [ ! -d "$work/node_modules/@duckdb/node-api" ]; then
  npm install --silent --prefix "$work" @duckdb/node-api >/dev/null
fi
cp bench/mrfreq/duckdb_counts.mjs "$work/"

syntax='MRFREQ /TABLES=$q /TABLES=$q BY region.'
ls -l "$work/cases.csv" | awk '{printf "case file: %.0f MB, ", $5 / 1e6}'
echo "$cases cases x 200 columns"

# Seconds (wall), peak resident kilobytes and processor seconds (user and
# system) of one run. On a shared machine the processor time says more.
# The wall clock is read to the microsecond (time's own is in hundredths,
# coarse beside `wc -l`'s few hundredths).
measure() {
  local start=$EPOCHREALTIME
  /usr/bin/time -f '%M %U %S' -o "$work/time.txt" "$@" >"$work/out.txt"
  local end=$EPOCHREALTIME
  awk -v s="$start" -v e="$end" '{printf "%.4f %s %.2f\n", e - s, $1, $2 + $3}' "$work/time.txt"
}
median() { sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

cat "$work/cases.csv" >/dev/null  # warm the page cache for everyone
for name in mrset duckdb wc; do : >"$work/$name.times"; : >"$work/$name.cpu"; done
: >"$work/mrset.memory"
record() {  # NAME COMMAND...
  local name=$1 seconds kb cpu
  shift
  read -r seconds kb cpu < <(measure "$@")
  echo "$seconds" >>"$work/$name.times"
  echo "$cpu" >>"$work/$name.cpu"
  [ "$name" = mrset ] && echo "$kb" >>"$work/mrset.memory"
  cp "$work/out.txt" "$work/$name.out"
}
for _ in $(seq "$runs"); do
  record mrset build/bin/mrset --no-save -d "$work/codebook.json" -e "$syntax"
  record duckdb node "$work/duckdb_counts.mjs" "$work/cases.csv"
  record wc wc -l "$work/cases.csv"
done

for kind in times cpu; do
  mrset=$(median <"$work/mrset.$kind")
  duckdb=$(median <"$work/duckdb.$kind")
  wc=$(median <"$work/wc.$kind")
  [ "$kind" = times ] && what="wall seconds" || what="processor seconds"
  echo "median of $runs runs, $what: mrset $mrset, DuckDB $duckdb, wc -l $wc"
  awk -v m="$mrset" -v d="$duckdb" -v w="$wc" 'BEGIN {
    printf "  mrset / DuckDB: %.2fx (target at most 1x); mrset / wc -l: %.2fx (target at most 3x)\n",
      m / d, m / w
  }'
done
memory=$(median <"$work/mrset.memory")
awk -v k="$memory" 'BEGIN { printf "mrset peak memory: %.1f MB (target at most 100 MB)\n", k / 1024 }'
echo "counts: $work/mrset.out (mrset), $work/duckdb.out (DuckDB)"
