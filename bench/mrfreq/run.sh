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

# Seconds (wall) and peak resident kilobytes of one run.
measure() {
  /usr/bin/time -f '%e %M' -o "$work/time.txt" "$@" >"$work/out.txt"
  cat "$work/time.txt"
}
median() { sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

cat "$work/cases.csv" >/dev/null  # warm the page cache for everyone
: >"$work/mrset.times"; : >"$work/duckdb.times"; : >"$work/wc.times"; : >"$work/mrset.memory"
for _ in $(seq "$runs"); do
  read -r seconds kb < <(measure build/bin/mrset --no-save -d "$work/codebook.json" -e "$syntax")
  echo "$seconds" >>"$work/mrset.times"; echo "$kb" >>"$work/mrset.memory"
  cp "$work/out.txt" "$work/mrset.out"
  read -r seconds _ < <(measure node "$work/duckdb_counts.mjs" "$work/cases.csv")
  echo "$seconds" >>"$work/duckdb.times"
  cp "$work/out.txt" "$work/duckdb.out"
  read -r seconds _ < <(measure wc -l "$work/cases.csv")
  echo "$seconds" >>"$work/wc.times"
done

mrset=$(median <"$work/mrset.times")
duckdb=$(median <"$work/duckdb.times")
wc=$(median <"$work/wc.times")
memory=$(median <"$work/mrset.memory")
echo "median of $runs runs (seconds): mrset $mrset, DuckDB $duckdb, wc -l $wc"
awk -v m="$mrset" -v d="$duckdb" -v w="$wc" -v k="$memory" 'BEGIN {
  printf "mrset / DuckDB: %.2fx (target at most 1x)\n", m / d
  printf "mrset / wc -l:  %.2fx (target at most 3x)\n", m / w
  printf "mrset peak memory: %.1f MB (target at most 100 MB)\n", k / 1024
}'
echo "counts: $work/mrset.out (mrset), $work/duckdb.out (DuckDB)"
