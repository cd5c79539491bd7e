#!/usr/bin/env bash
# The library exports the names of the list, all of them and no others, under one version.
#
#   exports_test.sh LIBRARY LIST
set -euo pipefail
library=$1 list=$2
readonly node=QIMCOMMON_1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Defined and global or weak; the version node itself is an absolute symbol.
readelf -W --dyn-syms "$library" |
  awk '$5 ~ /GLOBAL|WEAK/ && $7 != "UND" && $7 != "ABS" { print $8 }' | sort >"$work/versioned"
sed 's/@.*//' "$work/versioned" | sort >"$work/exported"
grep -E '^[A-Za-z_]' "$list" >"$work/listed" || true
status=0

if ! LC_ALL=C sort -cu "$work/listed"; then
  echo "exports: $list is not sorted, or names something twice"
  status=1
fi
if ! LC_ALL=C sort "$work/listed" | diff - <(LC_ALL=C sort "$work/exported") >"$work/difference"; then
  echo "exports: lines with < are listed but not exported, with > exported but not listed:"
  grep '^[<>]' "$work/difference"
  status=1
fi
if grep -v "@@$node\$" "$work/versioned"; then
  echo "exports: the names above are not of version $node"
  status=1
fi
[ -s "$work/listed" ] || { echo "exports: $list is empty" && status=1; }
echo "exports: $(wc -l <"$work/exported") names"
exit $status
