#!/usr/bin/env bash
# Installs build/ into a temporary prefix and runs the example from there,
# from another folder: the installed programs must find their libraries and
# the command module by their relative run paths alone.
set -euo pipefail
cd "$(dirname "$0")/.."
source_dir=$PWD

prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install build --prefix "$prefix" >/dev/null

cd "$prefix"
cp "$source_dir/examples/survey.json" survey.json
cp "$source_dir/examples/survey.mrs" survey.mrs
env -u LD_LIBRARY_PATH "$prefix/bin/mrset" -d survey.json survey.mrs >output.txt
grep -q '\$pets' output.txt
"$prefix/bin/mrset-convert" --version >/dev/null
"$prefix/bin/mrset-convert" survey.json survey.db
"$prefix/bin/mrset" -d survey.db --cmd '.vars fruit' -e 'MRSET /DISPLAY NAME=ALL.' >/dev/null
man -l "$prefix/share/man/man1/mrset.1" >/dev/null 2>&1 </dev/null || [ ! -x "$(command -v man)" ]
bash -n "$prefix/share/bash-completion/completions/mrset"
echo "install-check: the installed mrset ran the example from $prefix"
