#!/usr/bin/env bash
# The public records are laid out as the checked-in text says, for this build's word size. Both byte
# orders of the device's ABI share one text.
#
#   layout_test.sh C-COMPILER GOLDEN
set -euo pipefail
compiler=$1 golden=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$QIM_SOURCE_DIR/scripts/golden" --layout "$compiler" >"$work/layout"
[ "$(grep -c 'size:' "$work/layout")" -gt 30 ] || { echo "layout: too few records were found"; exit 1; }
if ! diff -u "$golden" "$work/layout"; then
  echo "layout: the public records changed. If that is meant, run scripts/golden and review the difference"
  exit 1
fi
echo "layout: $(grep -c 'size:' "$golden") records as they should be"
