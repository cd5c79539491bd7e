#!/usr/bin/env bash
# The database library exports its interface and nothing of its inside, without a symbol version:
# what was linked against it has to load against any library of the same interface.
#
#   rov_exports_test.sh LIBRARY
set -euo pipefail
symbols=$(readelf -W --dyn-syms "$1" | awk '$5 ~ /GLOBAL|WEAK/ && $7 != "UND" { print $8 }' | sort)
status=0

if grep -vE '^(rov_[a-z0-9_]+|tlvo_[a-z0-9_]+|mem_[a-z0-9_]+|memset_s|snprintf_bytes)$' <<<"$symbols"; then
  echo "rov_exports: the names above are not of the interface, or carry a version"
  status=1
fi
grep -q '(SONAME).*\[librovcommon\.so\.1\]' <<<"$(readelf -W -d "$1")" ||
  { echo "rov_exports: wrong or no SONAME" && status=1; }

# Every function that a public header declares is there.
declared=$(cat "$QIM_SOURCE_DIR"/database/include/*.h | sed -E ':a; s|/\*[^*]*\*+([^/*][^*]*\*+)*/||g' |
  tr '\n' ' ' | sed -E 's|/\*([^*]\|\*+[^*/])*\*+/||g' |
  grep -oE '\b(rov|tlvo|mem)_[a-z0-9_]+ ?\(|\b(memset_s|snprintf_bytes) ?\(' | tr -d ' (' | sort -u)
if comm -23 <(echo "$declared") <(sort -u <<<"$symbols") | grep .; then
  echo "rov_exports: the names above are declared but not exported"
  status=1
fi
echo "rov_exports: $(wc -l <<<"$symbols") names, $(wc -l <<<"$declared") declared"
exit $status
