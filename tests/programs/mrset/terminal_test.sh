#!/usr/bin/env bash
# The prompt on a real terminal (tmux), typed as a person would: the hint,
# a half-typed command dropped by Ctrl-C, a command over two lines, tab
# completion, .vars, .help, .quit; then the history file, private, holding
# the two-line command as one entry.
#   terminal_test.sh MRSET_PROGRAM SOURCE_DIR
set -euo pipefail
program=$1
source_dir=$2

if ! command -v tmux >/dev/null; then
  echo "SKIP: no tmux (scripts/setup.sh installs it)"
  exit 77
fi

work=$(mktemp -d)
socket="mrset-test-$$"
cleanup() {
  tmux -L "$socket" kill-server 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
cp "$source_dir/examples/survey.json" "$work/survey.json"

tmux -L "$socket" -f /dev/null new-session -d -s prompt -x 120 -y 50 \
  "cd '$work' && MRSET_HISTORY='$work/history' '$program' -d survey.json; echo \"exit=\$?\"; sleep 60"

screen() { tmux -L "$socket" capture-pane -p -t prompt -S -200; }
keys() { tmux -L "$socket" send-keys -t prompt "$@"; }
# Waits up to 20 seconds for the screen to show the text.
expect() {
  for _ in $(seq 200); do
    if screen | grep -qF -- "$1"; then return 0; fi
    sleep 0.1
  done
  echo "FAIL: the screen never showed: $1"
  screen
  exit 1
}
# Waits until the last line shown is the prompt and nothing typed after it:
# keys sent while a command still runs reach the terminal, not the editor.
last_line() { screen | sed -e 's/[[:space:]]*$//' | grep -v '^$' | tail -n 1; }
expect_prompt() {
  for _ in $(seq 200); do
    if [ "$(last_line)" = "$1" ]; then return 0; fi
    sleep 0.1
  done
  echo "FAIL: the prompt never came back as: $1"
  screen
  exit 1
}

expect 'enter .help for help'
expect_prompt 'mrset>'
keys 'MRSET /DISPLAY NAM'
expect 'MRSET /DISPLAY NAM'
# Had Ctrl-C not dropped it, the next line would go on with it (an error);
# had it ended the program, nothing below would show.
keys C-c
expect_prompt 'mrset>'
keys 'MRSET /MCGROUP NAME=$both' Enter
expect_prompt '    >'
keys '  VARIABLES=fruit1 fr' Tab
expect 'VARIABLES=fruit1 fruit'
keys '2.' Enter
expect_prompt 'mrset>'
keys 'MRSET /DISPLAY NAME=[$bo' Tab
expect 'NAME=[$both'
keys '].' Enter
expect '| $both'
expect_prompt 'mrset>'
keys '.vars fruit' Enter
expect 'fruit3  numeric'
expect_prompt 'mrset>'
keys '.help' Enter
expect '.quit               end'
expect_prompt 'mrset>'
keys '.quit' Enter
expect 'exit=0'

if screen | grep -q 'Error'; then
  echo "FAIL: an error was shown"
  screen
  exit 1
fi
mode=$(stat -c %a "$work/history")
[ "$mode" = 600 ] || { echo "FAIL: the history file has mode $mode"; exit 1; }
grep -qF 'MRSET\040/MCGROUP\040NAME=$both\040VARIABLES=fruit1\040fruit2.' "$work/history" ||
  grep -qF 'MRSET /MCGROUP NAME=$both VARIABLES=fruit1 fruit2.' "$work/history" ||
  { echo "FAIL: the history lacks the two-line command:"; cat "$work/history"; exit 1; }
if grep -q 'DISPLAY NAM$\|DISPLAY\\040NAM$' "$work/history"; then
  echo "FAIL: the dropped command is in the history"
  exit 1
fi
echo "PASS"
