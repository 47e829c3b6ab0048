#!/usr/bin/env bash
# The example's HTML page in a real browser (headless Chromium): it loads
# without a console message (the page has no script, so any is a fault),
# and its tables hold the expected cells.
#   browser_test.sh MRSET_PROGRAM SOURCE_DIR
set -euo pipefail
program=$1
source_dir=$2

browser=$(command -v chromium || command -v chromium-browser || true)
if [ -z "$browser" ]; then
  echo "SKIP: no chromium (scripts/setup.sh installs it)"
  exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$source_dir/examples/survey.json" "$work/survey.json"
"$program" -d "$work/survey.json" --no-save -f html -o "$work/page.html" \
  "$source_dir/examples/survey.mrs"

# Prints the page's DOM; the console goes to $work/console.
load() {
  timeout 120 "$browser" --headless --no-sandbox --disable-gpu --no-first-run \
    --user-data-dir="$work/profile" --enable-logging=stderr --v=0 \
    --dump-dom "file://$1" 2>"$work/console"
}

# The console check must see a faulty page, else it proves nothing.
echo '<html><body><script>undefinedFunction();</script></body></html>' >"$work/bad.html"
if ! load "$work/bad.html" >/dev/null; then
  echo "SKIP: chromium cannot start here: $(tail -n 3 "$work/console")"
  exit 77
fi
if ! grep -q 'CONSOLE.*undefinedFunction' "$work/console"; then
  echo "FAIL: the console of a page with an error showed nothing"
  exit 1
fi

dom=$(load "$work/page.html")
failed=0
if grep 'CONSOLE' "$work/console"; then
  echo "FAIL: the page wrote to the console"
  failed=1
fi
expect() {
  if ! grep -qF -- "$1" <<<"$dom"; then
    echo "FAIL: the page lacks $1"
    failed=1
  fi
}
expect '<title>mrset output: survey.json</title>'
expect '<td><span class="user-data">Sources of news</span></td><td>Dichotomies</td><td><span class="user-data">1</span></td><td>Numeric</td>'
expect '<ul class="members"><li><span class="user-data">News from television</span></li>'
expect '<sup><a href="#note-1-a">a</a></sup>'
expect '<li id="note-1-a"><sup>a</sup> Using variable value labels</li>'
expect '<li id="note-2-a"><sup>a</sup> Using variable value labels</li>'
if [ "$(grep -o '<table>' <<<"$dom" | wc -l)" -ne 2 ]; then
  echo "FAIL: the page should hold two tables"
  failed=1
fi
exit "$failed"
