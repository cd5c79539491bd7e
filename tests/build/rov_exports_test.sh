#!/usr/bin/env bash
# The database library exports its interface and nothing of its inside: the names of the list, all of
# them and no others, under one version.
#
#   rov_exports_test.sh LIBRARY LIST
set -euo pipefail
readonly node=ROVCOMMON_1
list=$2
versioned=$(readelf -W --dyn-syms "$1" |
  awk '$5 ~ /GLOBAL|WEAK/ && $7 != "UND" && $7 != "ABS" { print $8 }' | LC_ALL=C sort)
symbols=$(cut -d@ -f1 <<<"$versioned" | LC_ALL=C sort)
status=0

if grep -vE '^(rov_[a-z0-9_]+|tlvo_[a-z0-9_]+|mem_[a-z0-9_]+|memset_s|snprintf_bytes)$' <<<"$symbols"; then
  echo "rov_exports: the names above are not of the interface"
  status=1
fi
if grep -v "@@$node\$" <<<"$versioned"; then
  echo "rov_exports: the names above are not of version $node"
  status=1
fi
LC_ALL=C sort -cu "$list" || { echo "rov_exports: $list is not sorted, or names something twice" && status=1; }
if ! diff "$list" <(echo "$symbols"); then
  echo "rov_exports: names with < are listed but not exported, with > exported but not listed"
  status=1
fi
grep -q '(SONAME).*\[librovcommon\.so\.1\]' <<<"$(readelf -W -d "$1")" ||
  { echo "rov_exports: wrong or no SONAME" && status=1; }

# Every function that a public header declares is there.
declared=$(cat "$QIM_SOURCE_DIR"/database/include/*.h | sed -E ':a; s|/\*[^*]*\*+([^/*][^*]*\*+)*/||g' |
  tr '\n' ' ' | sed -E 's|/\*([^*]\|\*+[^*/])*\*+/||g' |
  grep -oE '\b(rov|tlvo|mem)_[a-z0-9_]+ ?\(|\b(memset_s|snprintf_bytes) ?\(' | tr -d ' (' | LC_ALL=C sort -u)
if LC_ALL=C comm -23 <(echo "$declared") <(echo "$symbols") | grep .; then
  echo "rov_exports: the names above are declared but not exported"
  status=1
fi
echo "rov_exports: $(wc -l <<<"$symbols") names, $(wc -l <<<"$declared") declared"
exit $status
