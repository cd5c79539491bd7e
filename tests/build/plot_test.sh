#!/usr/bin/env bash
# The picture in docs/performance.md shows the tables in it.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
docs=$QIM_SOURCE_DIR/docs
"$QIM_SOURCE_DIR/scripts/plot" "$docs/performance.md" "$work/performance.svg"
cmp "$work/performance.svg" "$docs/performance.svg" || {
  echo "plot: draw it anew: scripts/plot docs/performance.md docs/performance.svg" && exit 1
}

# What can't be drawn is said, and nothing is written.
if "$QIM_SOURCE_DIR/scripts/plot" "$docs/README.md" "$work/none.svg" 2>"$work/said"; then
  echo "plot: a file without a table was drawn" && exit 1
fi
grep -q "no reads of nodes" "$work/said"
python=$(python3 -c 'import sys; print(sys.executable)')
if PATH=$work "$python" "$QIM_SOURCE_DIR/scripts/plot" "$docs/performance.md" "$work/none.svg" \
  2>"$work/said"; then
  echo "plot: it draws without gnuplot" && exit 1
fi
grep -q "gnuplot is missing" "$work/said"
[ ! -e "$work/none.svg" ]
