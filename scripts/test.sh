#!/usr/bin/env bash
# Set up, build a Release tree in build/ and run every test, the window tests offscreen.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${RAVELIN_BUILD_DIR:-$root/build}"  # another folder may be named for a side build

bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release
cmake --build "$build" -j"$(nproc)"
cd "$build"
QT_QPA_PLATFORM=offscreen ctest --output-on-failure
