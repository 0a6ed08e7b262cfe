#!/usr/bin/env bash
# Enumeration of a generated tree of ENTRIES files and folders (default a million), with
# copying switched off: entries a second and peak memory. Usage: bench/enumerate.sh [ENTRIES]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
entries="${1:-1000000}"
build="${RAVELIN_BENCH_BUILD:-$root/build-bench}"
work="${RAVELIN_BENCH_WORK:-$(mktemp -d)}"
mkdir -p "$work"

bash "$root/scripts/setup.sh" >/dev/null
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DRAVELIN_BENCH=ON -DRAVELIN_GUI=OFF \
  -DRAVELIN_TESTS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target ravelin-bench-enumerate >/dev/null

bench="$build/bench/ravelin-bench-enumerate"
"$bench" make "$work/tree" "$entries"
sync
"$bench" run "$work/tree" "$work/job" "$entries"
rm -rf "$work"
