#!/usr/bin/env bash
# Builds the fuzz targets with clang (AddressSanitizer, UndefinedBehaviorSanitizer, libFuzzer)
# in build-fuzz/ and runs each over its corpus in fuzz/corpus for a bounded time
# (RAVELIN_FUZZ_SECONDS, 30 by default). New inputs go to a temporary folder, never into the
# repository; a crash leaves its input there and fails the script.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${RAVELIN_FUZZ_BUILD_DIR:-$root/build-fuzz}"
seconds="${RAVELIN_FUZZ_SECONDS:-30}"

bash "$root/scripts/setup.sh" clang libclang-rt-14-dev
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DRAVELIN_FUZZ=ON -DRAVELIN_GUI=OFF -DRAVELIN_TESTS=OFF
cmake --build "$build" -j"$(nproc)"

work="$(mktemp -d)"
status=0
for corpus in "$root"/fuzz/corpus/*/; do
  name="$(basename "$corpus")"
  mkdir -p "$work/$name"
  echo "fuzz: $name for ${seconds}s"
  if ! "$build/fuzz/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix="$work/$name-" -print_final_stats=1 "$work/$name" "$corpus" \
      >"$work/$name.log" 2>&1; then
    echo "fuzz: $name FAILED; input and log kept in $work" >&2
    tail -40 "$work/$name.log" >&2
    status=1
  else
    grep -E "^stat::number_of_executed_units|^Done" "$work/$name.log" || true
  fi
done
if ((status == 0)); then rm -rf "$work"; fi
exit "$status"
