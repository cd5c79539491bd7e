#!/usr/bin/env bash
# What the library exports, and every type of it, is what the checked-in description says. Additions
# count as differences, too.
#
#   abi_test.sh LIBRARY EXPORTS GOLDEN
set -euo pipefail
library=$1 exports=$2 golden=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
broken=0

"$QIM_SOURCE_DIR/scripts/golden" --abi "$library" >"$work/abi.xml"
status=0
abidiff --harmless "$golden" "$work/abi.xml" || status=$?
if [ $status != 0 ]; then
  echo "abi: $golden (old) and the library (new) differ as said above (abidiff's status $status). If that"
  echo "abi: is meant, run scripts/golden and review the difference"
  broken=1
fi
# What has no description is compared by name only.
grep -o "elf-symbol-id='[^@']*" "$work/abi.xml" | cut -d"'" -f2 | LC_ALL=C sort -u >"$work/described"
if ! diff "$exports" "$work/described"; then
  echo "abi: the debug information does not describe the names above (<), or describes more (>)"
  broken=1
fi
if grep -n -e "$QIM_SOURCE_DIR" -e "path='/" "$work/abi.xml" "$golden"; then
  echo "abi: the lines above name places of one machine"
  broken=1
fi
echo "abi: $(wc -l <"$work/described") names"
exit $broken
