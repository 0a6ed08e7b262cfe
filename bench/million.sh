#!/usr/bin/env bash
# A whole collection (walk, copy, MD5 of source and copy, CSV, job database) of many tiny files,
# against the same collection of a smaller tree: the time per file of each, their ratio, and the
# peak memory of each run. The trees are made by ravelin-bench-enumerate (folders of 100 files,
# one in ten with a few bytes, the rest empty) on an ext4 image of their own, loop-mounted (as
# root; a fresh folder under the work folder otherwise, and the output says so).
#
# Usage: bench/million.sh [FILES [BASE]]   (defaults 1000000 and 20000)
# Environment: RAVELIN_BENCH_WORK (a folder to work in, default /var/tmp), RAVELIN_BENCH_BUILD
# (the Release build folder, default build-bench in the checkout), RAVELIN_BENCH_RUNNER (a
# ravelin-run to time instead of the one built).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
files="${1:-1000000}"
base="${2:-20000}"
if [[ ! "$files" =~ ^[1-9][0-9]*$ || ! "$base" =~ ^[1-9][0-9]*$ ]]; then
  echo "million: FILES and BASE are whole numbers" >&2
  exit 64
fi
build="${RAVELIN_BENCH_BUILD:-$root/build-bench}"
parent="${RAVELIN_BENCH_WORK:-/var/tmp}"
mkdir -p "$parent"
work="$(mktemp -d "$parent/ravelin-million.XXXXXX")"
mnt=""
cleanup() {
  if [[ -n "$mnt" ]]; then umount "$mnt" 2>/dev/null || umount -l "$mnt" 2>/dev/null || true; fi
  rm -rf -- "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

bash "$root/scripts/setup.sh" >/dev/null
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DRAVELIN_BENCH=ON -DRAVELIN_GUI=OFF \
  -DRAVELIN_TESTS=OFF >/dev/null
targets=(ravelin-bench-enumerate)
[[ -z "${RAVELIN_BENCH_RUNNER:-}" ]] && targets+=(ravelin-run)
cmake --build "$build" -j"$(nproc)" --target "${targets[@]}" >/dev/null
runner="${RAVELIN_BENCH_RUNNER:-$build/src/cli/ravelin-run}"
maker="$build/bench/ravelin-bench-enumerate"

# Both trees and both copies: an inode and at most one block each, plus the databases and CSVs
# (about 1 KiB a file).
area="$work/area"
mkdir -p "$area"
fs_note="fresh folder on the host's file system (no loop mount)"
total=$((2 * (files + base)))
if [[ "$(id -u)" == 0 ]] && command -v mkfs.ext4 >/dev/null &&
  truncate -s "$((total * 6 / 1024 + 1024))M" "$work/image" &&
  mkfs.ext4 -q -F -N "$((total + total / 4 + 1000))" "$work/image" 2>/dev/null &&
  mount -o loop "$work/image" "$area" 2>/dev/null; then
  mnt="$area"
  fs_note="loop-mounted ext4 image"
fi

# One collection: "FILES WALL CPU KIB" of the run.
collect() {
  local name="$1" count="$2"
  # The maker counts folders among its entries: about 2 a hundred files.
  "$maker" make "$area/$name" "$((count + count / 50 + 2))" >/dev/null
  local made
  made="$(find "$area/$name" -type f | wc -l)"
  sync
  echo "million: collecting $made files ($name)" >&2
  /usr/bin/time -f '%e %U %S %M' -o "$work/$name.time" "$runner" --yes \
    --target "$area/$name-target" --log "$area/$name-logs" "$area/$name" >"$work/$name.out" \
    2>"$work/$name.err" || { echo "million: ravelin-run failed" >&2; tail -5 "$work/$name.err" >&2; }
  grep '^Files copied' "$work/$name.out" | head -1 >&2 || true
  read -r wall user sys kib <"$work/$name.time"
  echo "$made $wall $(awk -v u="$user" -v s="$sys" 'BEGIN { printf "%.2f", u + s }') $kib"
}

read -r bf bw bc bk < <(collect base "$base")
read -r mf mw mc mk < <(collect many "$files")
echo "whole collections (walk, copy, MD5 of both, CSV, database) of tiny files, on a $fs_note"
echo "load: $(cut -d' ' -f1-3 /proc/loadavg)"
awk -v bf="$bf" -v bw="$bw" -v bc="$bc" -v bk="$bk" -v mf="$mf" -v mw="$mw" -v mc="$mc" -v mk="$mk" 'BEGIN {
  printf "%8d files: wall %8.2f s (%.1f us/file), cpu %8.2f s (%.1f us/file), peak %.1f MiB\n",
    bf, bw, bw / bf * 1e6, bc, bc / bf * 1e6, bk / 1024
  printf "%8d files: wall %8.2f s (%.1f us/file), cpu %8.2f s (%.1f us/file), peak %.1f MiB\n",
    mf, mw, mw / mf * 1e6, mc, mc / mf * 1e6, mk / 1024
  printf "per file, %d against %d: wall %.2fx, cpu %.2fx\n", mf, bf, (mw / mf) / (bw / bf), (mc / mf) / (bc / bf)
}'
