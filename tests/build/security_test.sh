#!/usr/bin/env bash
# Every promise in docs/security.md names a test, and every test that it names is there.
# shellcheck disable=SC2016 # the marks of a name
set -euo pipefail
cd "$QIM_SOURCE_DIR"
page=docs/security.md
status=0

while IFS=. read -r suite name; do
  grep -rqE "TEST(_F)?\($suite, $name\)" tests/ || { echo "security: no test $suite.$name" && status=1; }
done < <(grep -oE '`[A-Za-z]+\.[A-Za-z_]+`' "$page" | tr -d '`' | grep -v '\.md$' | sort -u)

# A row of a table with promises ends with a test's name.
while read -r row; do
  echo "security: a promise without a test: $row"
  status=1
done < <(awk '/^## What is made/ { on = 1 } /^## How/ { on = 0 } on && /^\|/ && !/^\|[ -]*-/ && !/ test \|$/ && !/`[A-Za-z]+\.[A-Za-z_]+` \|$/' "$page")
while read -r script; do
  [ -e "tests/build/$script" ] || { echo "security: no $script" && status=1; }
done < <(grep -oE '`[a-z_]+\.sh`' "$page" | tr -d '`')
exit $status
