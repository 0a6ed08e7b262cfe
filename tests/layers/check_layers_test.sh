#!/usr/bin/env bash
# The layer check itself: quiet on a tree whose includes go down, failing on one that goes up,
# sideways between peers, or into a folder the order does not place.
set -euo pipefail
check="$1"
tree="$(mktemp -d)"
trap 'rm -rf "$tree"' EXIT

mkdir -p "$tree"/core/{platform,run,copy,verify} "$tree"/gui "$tree"/cli
echo '#include "platform/a.h"' > "$tree/core/run/b.h"
echo '#include "verify/c.h"' > "$tree/core/copy/d.cpp"
echo '#include "run/b.h"' > "$tree/gui/e.cpp"
echo '#include <string>' > "$tree/cli/f.cpp"

expect() {  # expect STATUS TEXT: the check over the tree exits with STATUS
  local status=0
  bash "$check" "$tree" > /dev/null 2>&1 || status=$?
  if [ "$status" -ne "$1" ]; then
    echo "FAIL: $2 (exit $status, expected $1)" >&2
    exit 1
  fi
}

expect 0 "includes that go down"
echo '  #include "copy/d.h"' >> "$tree/core/verify/g.cpp"
expect 1 "a stage including a later stage"
rm "$tree/core/verify/g.cpp"
echo '#include "cli/f.h"' >> "$tree/gui/e.cpp"
expect 1 "gui including its peer cli"
sed -i '$d' "$tree/gui/e.cpp"
expect 0 "the tree put back"
mkdir "$tree/core/extra"
expect 1 "a folder without a place"
echo "ok"
