#!/usr/bin/env bash
# coverage_test.sh <C compiler>
#
# scripts/coverage says what was reached, and fails when that is too little.
set -uo pipefail
compiler=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
broken=0
mkdir -p "$work"/{scripts,lib,database,build/coverage}
cp "$QIM_SOURCE_DIR/scripts/coverage" "$work/scripts/"
cd "$work/build/coverage" || exit

complain() {
  echo "coverage_test: $*"
  broken=1
}

put() { # <file> <function>
  echo "int $2(int x) {
  if (x > 1) return 1;
  return 2;
}" >"$work/$1"
}

# Runs the program with its arguments: which of both ways each function goes.
report() { # <library> <database>...
  find . -name '*.gcda' -delete
  ./program "$@"
  "$work/scripts/coverage" --report 2>&1
}

put lib/a.c library
put database/b.c database
cat >main.c <<'EOF'
#include <stdlib.h>
int library(int);
int database(int);
int main(int count, char **words) {
  for (int i = 1; i + 1 < count; i += 2) {
    library(atoi(words[i]));
    database(atoi(words[i + 1]));
  }
  return 0;
}
EOF
"$compiler" --coverage -O0 -c ../../lib/a.c -o a.o
"$compiler" --coverage -O0 -c ../../database/b.c -o b.o
"$compiler" main.c a.o b.o --coverage -o program || complain "the program does not build"

said=$(report 1 1 2 2) || complain "all was reached, and it failed: $said"
grep -qF "the library: lines: 100.0% branches: 100.0%, needed are 100% and 100%" <<<"$said" ||
  complain "the library's figures are not there: $said"

said=$(report 1 1 1 2) && complain "half of the library is enough: $said"
grep -q "the library: lines: [0-9.]*% branches: 50.0%" <<<"$said" ||
  complain "the library's figures are wrong: $said"

said=$(report 1 1 2 1) && complain "half of the database is enough: $said"
grep -q "the database, the tool and the processes: lines: [0-9.]*% branches: 50.0%" <<<"$said" ||
  complain "the database's figures are wrong: $said"

exit $broken
