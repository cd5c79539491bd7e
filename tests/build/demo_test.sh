#!/usr/bin/env bash
# The demo fits a screen: 60 lines of 100 columns, and every step says what it shows and why.
set -euo pipefail
export LC_ALL=C.UTF-8
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$QIM_SOURCE_DIR/scripts/demo" "$QIM_BUILD_DIR" >"$work/said"
lines=$(wc -l <"$work/said") columns=$(wc -L <"$work/said")
[ "$lines" -le 60 ] || { echo "demo: it prints $lines lines, 60 at most" && exit 1; }
[ "$columns" -le 100 ] || { echo "demo: it prints $columns columns, 100 at most" && exit 1; }

# A step is an empty line, what it shows and why, and a command.
steps=$(grep -c '^\$ qimctl ' "$work/said")
titles=$(grep -B1 '^\$ qimctl ' "$work/said" | grep -c '[:,].*[,;] .*\.$')
[ "$steps" -ge 6 ] || { echo "demo: it has $steps steps" && exit 1; }
[ "$titles" = "$steps" ] || { echo "demo: $titles of $steps steps say what and why" && exit 1; }
