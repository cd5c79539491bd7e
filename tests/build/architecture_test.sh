#!/usr/bin/env bash
# Every file and function that docs/architecture.md names exists, a function in the file before it.
set -euo pipefail
cd "$QIM_SOURCE_DIR"
broken=0 files=0 functions=0

complain() {
  echo "architecture: $*"
  broken=1
}

# shellcheck disable=SC2016 # the marks of a name
names=$(grep -oE '`[^`]+`' docs/architecture.md | tr -d '`')
file=''
while IFS= read -r name; do
  case $name in
    */*)
      files=$((files + 1)) file=$name
      [ -f "$file" ] || complain "there is no $file"
      ;;
    *)
      functions=$((functions + 1))
      [ -f "$file" ] && ! grep -qw -- "$name" "$file" && complain "$file has no $name"
      ;;
  esac
done <<<"$names"
if [ "$files" -lt 25 ] || [ "$functions" -lt 25 ]; then
  complain "only $files files, $functions functions"
fi
exit $broken
