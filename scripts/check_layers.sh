#!/usr/bin/env bash
# The layer rule of ARCHITECTURE.md: a folder includes only folders below it. Fails on an
# include that goes sideways or up, and on a folder the order does not place.
# Usage: check_layers.sh [SRC_DIR]   (default: the src/ beside this script)
set -euo pipefail
src="${1:-$(cd "$(dirname "${BASH_SOURCE[0]}")/../src" && pwd)}"

# Lowest first. The stages share one layer but keep an order among themselves, so that no two
# of them lean on each other. gui and cli are peers: neither may include the other.
rank_of() {
  case "$1" in
    platform) echo 0 ;;
    jobdb) echo 1 ;;
    run) echo 2 ;;
    filetypes) echo 3 ;;
    jobdef) echo 4 ;;
    verify) echo 5 ;;
    copy) echo 6 ;;
    enumerate) echo 7 ;;
    exec) echo 8 ;;
    ui) echo 9 ;;
    gui | cli) echo 10 ;;
    *) echo "" ;;
  esac
}

failures=0
folders=()
for dir in "$src"/core/*/ "$src"/gui/ "$src"/cli/; do
  [ -d "$dir" ] && folders+=("$dir")
done

for dir in "${folders[@]}"; do
  folder="$(basename "$dir")"
  own="$(rank_of "$folder")"
  if [ -z "$own" ]; then
    echo "layers: folder $folder has no place in the layer order" >&2
    failures=$((failures + 1))
    continue
  fi
  # Every quoted include of the form "folder/file": file, line and the folder it names.
  while IFS=: read -r file line used; do
    [ "$used" = "$folder" ] && continue
    theirs="$(rank_of "$used")"
    if [ -z "$theirs" ] || [ "$theirs" -ge "$own" ]; then
      echo "layers: ${file#"$src"/}:$line: $folder may not include $used/" >&2
      failures=$((failures + 1))
    fi
  done < <(grep -rnoE --include='*.h' --include='*.cpp' '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[a-z_]+/' "$dir" |
             sed -E 's/^([^:]+):([0-9]+):.*"([a-z_]+)\/$/\1:\2:\3/')
done

if [ "$failures" -ne 0 ]; then
  echo "layers: $failures include(s) break the layer order" >&2
  exit 1
fi
echo "layers: ${#folders[@]} folders, every include goes down"
