#!/usr/bin/env bash
# Quillon Ravelin against the general tools on two generated trees: about 20,000 small files of
# mixed sizes in nested folders, and four large files of random data. Per tree, side by side:
#   a) cp -a SRC DST, then md5sum over every source file and every copy;
#   b) one ravelin-run collection of SRC (copy, both hashes, verification CSV, job record).
# Prints wall seconds of a and b, the ratio b/a, and the peak memory of b.
#
# Usage: bench/peers.sh
# Environment:
#   RAVELIN_BENCH_SMALL_FILES  files in the small tree (default 20000)
#   RAVELIN_BENCH_BIG_MB       size of each of the four large files in MiB (default 256)
#   RAVELIN_BENCH_WORK         a folder to work in; a fresh folder is made inside it and removed
#                              at the end (default: a fresh folder under /var/tmp)
#   RAVELIN_BENCH_BUILD        the Release build folder (default build-bench in the checkout)
#   RAVELIN_BENCH_ROUNDS       rounds of each side, alternating; medians are reported (default 3)
set -euo pipefail
export LC_ALL=C  # byte-wise strings: bash slices the data pool by bytes, not characters

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
small_files="${RAVELIN_BENCH_SMALL_FILES:-20000}"
big_mb="${RAVELIN_BENCH_BIG_MB:-256}"
build="${RAVELIN_BENCH_BUILD:-$root/build-bench}"
if [[ ! "$small_files" =~ ^[0-9]+$ || ! "$big_mb" =~ ^[0-9]+$ ]]; then
  echo "peers: RAVELIN_BENCH_SMALL_FILES and RAVELIN_BENCH_BIG_MB take whole numbers" >&2
  exit 64
fi

if [[ -n "${RAVELIN_BENCH_WORK:-}" ]]; then
  mkdir -p "$RAVELIN_BENCH_WORK"
  work="$(mktemp -d "$RAVELIN_BENCH_WORK/ravelin-peers.XXXXXX")"
else
  work="$(mktemp -d /var/tmp/ravelin-peers.XXXXXX)"
fi
# The trees go whatever happens, an interrupted run included.
cleanup() { rm -rf -- "$work"; }
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

bash "$root/scripts/setup.sh" >/dev/null
echo "peers: building ravelin-run (Release) in $build" >&2
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DRAVELIN_BENCH=ON -DRAVELIN_GUI=OFF \
  -DRAVELIN_TESTS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target ravelin-run >/dev/null
runner="$build/src/cli/ravelin-run"
timer=/usr/bin/time

# About 20,000 files, most of them small: half under 1 KiB (empty ones among them), most of the
# rest under 64 KiB, one in twenty up to 256 KiB. Written by the shell itself from one pool of
# random text, so making the tree costs no process per file. A fixed seed makes every run's tree
# the same.
make_small_tree() {
  local dir="$1" count="$2"
  local pool i r size max off folder
  pool="$(head -c 196608 /dev/urandom | base64 -w0)"  # 262,144 bytes
  RANDOM=20260
  for ((i = 0; i < count; i++)); do
    r=$((RANDOM % 100))
    if ((r < 50)); then max=1024
    elif ((r < 80)); then max=8192
    elif ((r < 95)); then max=65536
    else max=262144
    fi
    size=$(((RANDOM << 15 | RANDOM) % (max + 1)))
    off=$(((RANDOM << 15 | RANDOM) % (${#pool} - size + 1)))
    folder="$dir/p$((i % 20))/q$((i / 20 % 10))"
    ((i % 3 == 0)) && folder="$folder/r$((i % 4))"
    [[ -d "$folder" ]] || mkdir -p "$folder"
    printf '%s' "${pool:off:size}" >"$folder/file_$i.dat"
  done
}

make_big_tree() {
  local dir="$1" mb="$2" i
  mkdir -p "$dir"
  for i in 1 2 3 4; do
    head -c "$((mb * 1024 * 1024))" /dev/urandom >"$dir/big_$i.bin"
  done
}

# Wall seconds and peak memory (KiB) of a command, as "SECONDS KIB", into the named file.
timed() {
  local out="$1"
  shift
  sync
  "$timer" -f '%e %M' -o "$out" "$@"
}

# Needs room for the source and one copy at a time, and a little for logs and the database.
check_space() {
  local tree="$1" bytes avail
  bytes="$(du -sb "$tree" | cut -f1)"
  avail="$(df --output=avail -B1 "$work" | tail -1 | tr -d ' ')"
  if ((avail < bytes + bytes / 10 + 64 * 1024 * 1024)); then
    echo "peers: not enough room in $work for a copy of $tree ($bytes bytes)" >&2
    exit 1
  fi
}

results=()
rounds="${RAVELIN_BENCH_ROUNDS:-3}"

median() {
  printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'
}

bench_tree() {
  local label="$1" src="$work/$2"
  local files bytes a_s b_s b_kib status copied
  files="$(find "$src" -type f | wc -l)"
  bytes="$(find "$src" -type f -printf '%s\n' | awk '{ s += $1 } END { print s + 0 }')"

  # Writeback of one side's files must not land on the other's clock: every timed step starts
  # from a flushed page cache, and the two sides alternate over several rounds, medians kept.
  local round a_all=() b_all=() b_kib_all=()
  for ((round = 1; round <= rounds; round++)); do
    check_space "$src"
    echo "peers: $label: round $round: cp -a and md5sum" >&2
    sync
    timed "$work/a.time" bash -c '
      set -e
      cp -a "$1" "$2"
      (cd "$1" && find . -type f -print0 | xargs -0 -r md5sum >/dev/null)
      (cd "$2" && find . -type f -print0 | xargs -0 -r md5sum >/dev/null)' _ "$src" "$work/cp-target"
    rm -rf -- "$work/cp-target"
    read -r a_s _ <"$work/a.time"
    a_all+=("$a_s")

    check_space "$src"
    echo "peers: $label: round $round: ravelin-run" >&2
    status=0
    sync
    timed "$work/b.time" "$runner" --yes --target "$work/rv-target" --log "$work/rv-logs" "$src" \
      >"$work/b.out" 2>"$work/b.err" || status=$?
    copied="$(sed -n 's/^Files copied: //p' "$work/b.out" | head -1)"
    if ((status != 0)); then
      echo "peers: $label: ravelin-run ended with status $status" >&2
      tail -5 "$work/b.err" >&2 || true
    fi
    rm -rf -- "$work/rv-target" "$work/rv-logs"
    read -r b_s b_kib <"$work/b.time"
    b_all+=("$b_s")
    b_kib_all+=("$b_kib")
  done
  a_s="$(median "${a_all[@]}")"
  b_s="$(median "${b_all[@]}")"
  b_kib="$(printf '%s\n' "${b_kib_all[@]}" | sort -n | tail -1)"
  echo "peers: $label: a rounds ${a_all[*]} s; b rounds ${b_all[*]} s" >&2

  results+=("$(awk -v l="$label" -v f="$files" -v by="$bytes" -v a="$a_s" -v b="$b_s" \
    -v k="$b_kib" -v c="${copied:-?}" -v st="$status" 'BEGIN {
      ratio = a > 0 ? sprintf("%.2f", b / a) : "n/a"
      printf "%-6s %8d files %10.1f MiB | a %8.2f s | b %8.2f s | b/a %6s | b peak %7.1f MiB | b copied %s (status %d)\n",
        l, f, by / 1048576, a, b, ratio, k / 1024, c, st }')")
}

echo "peers: making the small tree ($small_files files) in $work" >&2
make_small_tree "$work/small" "$small_files"
bench_tree small small
rm -rf -- "$work/small"

echo "peers: making the large tree (4 x $big_mb MiB) in $work" >&2
make_big_tree "$work/big" "$big_mb"
bench_tree big big
rm -rf -- "$work/big"

echo "a: cp -a, then md5sum over sources and copies; b: ravelin-run --yes (copy, MD5 of both, CSV)"
printf '%s\n' "${results[@]}"
