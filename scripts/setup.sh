#!/usr/bin/env bash
# Installs what building and testing need, from Debian packages only. Safe to run again: a
# machine that has everything is left alone and needs no network.
set -euo pipefail

packages=(build-essential cmake qt6-base-dev libgl-dev libsqlite3-dev libssl-dev
          libgtest-dev googletest libbenchmark-dev util-linux time)
# More packages may be named on the command line (the fuzz targets need clang and libFuzzer).
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if ((${#missing[@]} == 0)); then
  echo "setup: all packages are installed"
  exit 0
fi

sudo_cmd=()
if [[ "$(id -u)" -ne 0 ]]; then
  if command -v sudo >/dev/null 2>&1; then
    sudo_cmd=(sudo)
  else
    echo "setup: missing packages (${missing[*]}), and neither root nor sudo to install them" >&2
    exit 1
  fi
fi

echo "setup: installing ${missing[*]}"
"${sudo_cmd[@]}" apt-get update
"${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y --no-install-recommends "${missing[@]}"
