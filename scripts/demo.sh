#!/usr/bin/env bash
# Set up, build, make a small sample tree under demo/ and collect it with the headless runner.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${RAVELIN_BUILD_DIR:-$root/build}"  # another folder may be named for a side build

bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release
cmake --build "$build" -j"$(nproc)" --target ravelin-run

cd "$root"
rm -rf demo
src=demo/source
mkdir -p "$src/Reports/2024" "$src/Photos/Café" "$src/deep/a/b/c/d" "$src/Empty folder" \
         "$src/Ünïcödé 文件"
printf 'Quarter one, as filed.\n' > "$src/Reports/2024/Quarterly report, Q1.txt"
printf 'item,amount\nrent,1200\nfood,300\n' > "$src/Reports/2024/Budget 'final'.csv"
printf 'notes\n' > "$src/deep/a/b/c/d/notes.md"
: > "$src/zero length.dat"
head -c 4096 /dev/urandom > "$src/Photos/Café/été.jpg"
head -c 300000 /dev/urandom > "$src/Photos/Café/naïve résumé.bin"
head -c 2500000 /dev/urandom > "$src/Ünïcödé 文件/big, 'odd' name.raw"
printf 'hello\n' > "$src/Ünïcödé 文件/日本語.txt"

echo "== sample tree"
find "$src" | sort

echo "== ravelin-run --yes --target demo/target --log demo/logs demo/source"
status=0
"$build/src/cli/ravelin-run" --yes --target demo/target --log demo/logs demo/source || status=$?
echo "== exit status: $status"

echo "== demo/logs"
ls -la demo/logs
echo "== demo/logs/_jobfile.rvj"
cat demo/logs/_jobfile.rvj | tr -d '\r'
echo "== demo/target"
find demo/target | sort
exit "$status"
