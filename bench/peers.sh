#!/usr/bin/env bash
# Quillon Ravelin against the general tools on two generated trees: about 20,000 small files of
# mixed sizes in nested folders, and four large files of random data. Per tree, side by side in
# one run, the sides alternating round by round:
#   a) cp -a SRC DST, then md5sum over every source file and every copy;
#   b) one ravelin-run collection of SRC (copy, both hashes, verification CSV, job record).
# Prints, per side, the minimum over the rounds of wall seconds and of processor seconds
# (user + system), the ratios b/a, b's peak memory, and the system calls per file of one more
# run of each side under strace -f -c (the whole run: walk, copy, hashes, records).
#
# The trees live on a file system of their own: an ext4 image made for this run and mounted
# through a loop device (as root), so that no earlier deletion on the host's disk slows the
# inode allocator of either side. No copy is deleted during the run either: every round writes
# to a fresh folder on the image. Where a loop mount can't be made, a fresh folder under the
# work folder stands in, and the output says so.
#
# Usage: bench/peers.sh
# Environment:
#   RAVELIN_BENCH_SMALL_FILES  files in the small tree (default 20000)
#   RAVELIN_BENCH_BIG_MB       size of each of the four large files in MiB (default 256)
#   RAVELIN_BENCH_WORK         a folder to work in; a fresh folder is made inside it and removed
#                              at the end (default: a fresh folder under /var/tmp)
#   RAVELIN_BENCH_BUILD        the Release build folder (default build-bench in the checkout)
#   RAVELIN_BENCH_RUNNER       a ravelin-run to time instead of building one (to compare builds)
#   RAVELIN_BENCH_ROUNDS       rounds of each side, alternating; minimums are reported (default 3)
#   RAVELIN_BENCH_TREES        "small big" (default), or one of them
#   RAVELIN_BENCH_STRACE       0 to leave out the counting of system calls
#   RAVELIN_BENCH_LOOP         0 to use a plain folder instead of a loop-mounted image
set -euo pipefail
export LC_ALL=C  # byte-wise strings: bash slices the data pool by bytes, not characters

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
small_files="${RAVELIN_BENCH_SMALL_FILES:-20000}"
big_mb="${RAVELIN_BENCH_BIG_MB:-256}"
build="${RAVELIN_BENCH_BUILD:-$root/build-bench}"
rounds="${RAVELIN_BENCH_ROUNDS:-3}"
trees="${RAVELIN_BENCH_TREES:-small big}"
if [[ ! "$small_files" =~ ^[0-9]+$ || ! "$big_mb" =~ ^[0-9]+$ || ! "$rounds" =~ ^[1-9][0-9]*$ ]]; then
  echo "peers: RAVELIN_BENCH_SMALL_FILES, RAVELIN_BENCH_BIG_MB and RAVELIN_BENCH_ROUNDS take whole numbers" >&2
  exit 64
fi

if [[ -n "${RAVELIN_BENCH_WORK:-}" ]]; then
  mkdir -p "$RAVELIN_BENCH_WORK"
  work="$(mktemp -d "$RAVELIN_BENCH_WORK/ravelin-peers.XXXXXX")"
else
  work="$(mktemp -d /var/tmp/ravelin-peers.XXXXXX)"
fi
mnt=""
# The trees go whatever happens, an interrupted run included.
cleanup() {
  if [[ -n "$mnt" ]]; then umount "$mnt" 2>/dev/null || umount -l "$mnt" 2>/dev/null || true; fi
  rm -rf -- "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

if [[ -n "${RAVELIN_BENCH_RUNNER:-}" ]]; then
  runner="$RAVELIN_BENCH_RUNNER"
else
  bash "$root/scripts/setup.sh" >/dev/null
  echo "peers: building ravelin-run (Release) in $build" >&2
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DRAVELIN_BENCH=ON -DRAVELIN_GUI=OFF \
    -DRAVELIN_TESTS=OFF >/dev/null
  cmake --build "$build" -j"$(nproc)" --target ravelin-run >/dev/null
  runner="$build/src/cli/ravelin-run"
fi
timer=/usr/bin/time

# A file system of its own per tree: made empty, so the allocator has no freed inodes to scan.
# Room for the source and every round's two copies (nothing is deleted until the end).
fs_note="loop-mounted ext4 image"
area=""
new_area() {
  local name="$1" mib="$2"
  area="$work/$name"
  mkdir -p "$area"
  if [[ "${RAVELIN_BENCH_LOOP:-1}" != 0 && "$(id -u)" == 0 ]] && command -v mkfs.ext4 >/dev/null; then
    local image="$work/$name.img"
    if truncate -s "${mib}M" "$image" && mkfs.ext4 -q -F -i 8192 "$image" 2>/dev/null &&
      mount -o loop "$image" "$area" 2>/dev/null; then
      mnt="$area"
      return
    fi
    rm -f -- "$image"
  fi
  fs_note="fresh folder on the host's file system (no loop mount)"
}
drop_area() {
  local area="$1"
  if [[ "$mnt" == "$area" ]]; then
    umount "$area"
    mnt=""
    rm -f -- "$area.img"
  fi
  rm -rf -- "$area"
}

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

# Wall seconds, processor seconds (user + system) and peak memory (KiB) of a command, as
# "WALL CPU KIB", into the named file. Dirty pages of the step before are written out first, so
# that their writeback does not land on this step's clock.
timed() {
  local out="$1" wall user sys kib
  shift
  sync
  "$timer" -f '%e %U %S %M' -o "$out.raw" "$@"
  read -r wall user sys kib <"$out.raw"
  awk -v w="$wall" -v u="$user" -v s="$sys" -v k="$kib" 'BEGIN { printf "%s %.2f %s\n", w, u + s, k }' >"$out"
}

side_a() {  # SRC DST
  cp -a "$1" "$2"
  (cd "$1" && find . -type f -print0 | xargs -0 -r md5sum >/dev/null)
  (cd "$2" && find . -type f -print0 | xargs -0 -r md5sum >/dev/null)
}
export -f side_a

minimum() { printf '%s\n' "$@" | sort -g | head -1; }

# System calls of one run of a command under strace, divided by the files of the tree. The
# total line of strace -c reads: % time, seconds, usecs/call, calls, [errors,] total.
calls_per_file() {
  local files="$1" out="$2"
  shift 2
  strace -f -c -o "$out" "$@" >/dev/null 2>&1 || true
  awk -v f="$files" '$NF == "total" { n = $4 }
    END { if (f > 0 && n > 0) printf "%.1f", n / f; else printf "n/a" }' "$out"
}

results=()
bench_tree() {
  local label="$1" area="$2" src="$2/src"
  local files bytes copied=""
  files="$(find "$src" -type f | wc -l)"
  bytes="$(find "$src" -type f -printf '%s\n' | awk '{ s += $1 } END { print s + 0 }')"
  # Warm cache: both sides start with the source read once.
  find "$src" -type f -print0 | xargs -0 -r cat >/dev/null

  local round a_w=() a_c=() b_w=() b_c=() b_kib=0 w c k
  for ((round = 1; round <= rounds; round++)); do
    echo "peers: $label: round $round: cp -a and md5sum" >&2
    timed "$work/a.time" bash -c 'side_a "$1" "$2"' _ "$src" "$area/a$round"
    read -r w c k <"$work/a.time"
    a_w+=("$w"); a_c+=("$c")

    echo "peers: $label: round $round: ravelin-run" >&2
    timed "$work/b.time" "$side_b" "$src" "$area/b$round" "$area/b$round-logs"
    read -r w c k <"$work/b.time"
    b_w+=("$w"); b_c+=("$c")
    ((k > b_kib)) && b_kib="$k"
    copied="$(sed -n 's/^Files copied: //p' "$work/b.out" | head -1)"
  done
  echo "peers: $label: a wall ${a_w[*]} s, cpu ${a_c[*]} s; b wall ${b_w[*]} s, cpu ${b_c[*]} s" >&2

  local a_calls="-" b_calls="-"
  if [[ "${RAVELIN_BENCH_STRACE:-1}" != 0 ]] && command -v strace >/dev/null; then
    echo "peers: $label: counting system calls" >&2
    a_calls="$(calls_per_file "$files" "$work/a.strace" bash -c 'side_a "$1" "$2"' _ "$src" "$area/a-strace")"
    b_calls="$(calls_per_file "$files" "$work/b.strace" "$side_b" "$src" "$area/b-strace" "$area/b-strace-logs")"
  fi

  results+=("$(awk -v l="$label" -v f="$files" -v by="$bytes" \
    -v aw="$(minimum "${a_w[@]}")" -v ac="$(minimum "${a_c[@]}")" \
    -v bw="$(minimum "${b_w[@]}")" -v bc="$(minimum "${b_c[@]}")" \
    -v k="$b_kib" -v c="${copied:-?}" -v ax="$a_calls" -v bx="$b_calls" 'BEGIN {
      rw = aw > 0 ? sprintf("%.2f", bw / aw) : "n/a"
      rc = ac > 0 ? sprintf("%.2f", bc / ac) : "n/a"
      printf "%-5s %7d files %8.1f MiB | wall a %7.2f s b %7.2f s b/a %5s | cpu a %7.2f s b %7.2f s b/a %5s | calls/file a %s b %s | b peak %.1f MiB, copied %s\n",
        l, f, by / 1048576, aw, bw, rw, ac, bc, rc, ax, bx, k / 1024, c }')")
}

# The runner as a command of its own, so that time and strace see exactly one process tree.
side_b="$work/side_b.sh"
cat >"$side_b" <<EOF
#!/usr/bin/env bash
status=0
"$runner" --yes --target "\$2" --log "\$3" "\$1" >"$work/b.out" 2>"$work/b.err" || status=\$?
if ((status != 0)); then
  echo "peers: ravelin-run ended with status \$status" >&2
  tail -5 "$work/b.err" >&2 || true
fi
EOF
chmod +x "$side_b"

for tree in $trees; do
  case "$tree" in
    small)
      # About 16 KiB a file on disk on average; room for the source and 2 × (rounds + 1) copies.
      new_area small $((small_files * 24 * (2 * rounds + 3) / 1024 + 512))
      echo "peers: making the small tree ($small_files files) in $area ($fs_note)" >&2
      make_small_tree "$area/src" "$small_files"
      bench_tree small "$area"
      drop_area "$area"
      ;;
    big)
      new_area big $((4 * big_mb * (2 * rounds + 3) + 512))
      echo "peers: making the large tree (4 x $big_mb MiB) in $area ($fs_note)" >&2
      make_big_tree "$area/src" "$big_mb"
      bench_tree big "$area"
      drop_area "$area"
      ;;
    *) echo "peers: unknown tree $tree" >&2; exit 64 ;;
  esac
done

echo "a: cp -a, then md5sum over sources and copies; b: ravelin-run --yes (copy, MD5 of both, CSV)"
echo "minimum of $rounds alternating rounds, warm cache, trees on a $fs_note; load: $(cut -d' ' -f1-3 /proc/loadavg)"
printf '%s\n' "${results[@]}"
