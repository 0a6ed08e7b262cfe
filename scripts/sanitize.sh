#!/usr/bin/env bash
# Builds every test with AddressSanitizer and UndefinedBehaviorSanitizer in build-asan/ (Debug)
# and runs them all, the window tests offscreen.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${RAVELIN_ASAN_BUILD_DIR:-$root/build-asan}"

bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DRAVELIN_ASAN=ON -DRAVELIN_UBSAN=ON
cmake --build "$build" -j"$(nproc)"
cd "$build"
QT_QPA_PLATFORM=offscreen ctest --output-on-failure
