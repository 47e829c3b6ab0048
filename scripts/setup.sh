#!/usr/bin/env bash
# Installs the Debian packages the project builds and tests with, only those
# that are missing. Safe to run again; needs root (or sudo) only when it installs.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libutf8proc-dev nlohmann-json3-dev libcli11-dev libedit-dev libsqlite3-dev libsimdjson-dev
  libpugixml-dev
  python3 python3-jsonschema
  clang-format
  chromium tmux man-db
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "setup: installing ${missing[*]}" >&2
sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
