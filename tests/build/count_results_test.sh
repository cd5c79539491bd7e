#!/usr/bin/env bash
# scripts/count-results counts cases, and loses no failure.
set -uo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/results"
broken=0

# A line of ctest's report.
test_case() { # <name> <status>
  echo "	<testcase name=\"$1\" classname=\"$1\" time=\"0.1\" status=\"$2\">" >>"$work/results/ctest.xml"
}

suite() { # <executable> <tests> <failures> <disabled> <skipped> <errors>
  {
    echo "<testsuites tests=\"$2\" failures=\"$3\" disabled=\"$4\" errors=\"$6\" name=\"AllTests\">"
    echo "  <testsuite name=\"S\" tests=\"$2\" failures=\"$3\" disabled=\"$4\" skipped=\"$5\" errors=\"$6\">"
  } >"$work/results/$1.xml"
  echo "$1" >>"$work/results/gtest.list"
}

fresh() { rm -f "$work"/results/* && : >"$work/results/gtest.list" && : >"$work/results/ctest.xml"; }

expect() { # <what> <counts>
  local got
  got=$("$QIM_SOURCE_DIR/scripts/count-results" "$work")
  [ "$got" = "$2" ] && return
  echo "count_results: $1: expected '$2', got '$got'"
  broken=1
}

fresh
expect "nothing ran" "0 0 0"

fresh
suite a 10 0 1 2 0
test_case a run
test_case script run
expect "skipped and disabled cases did not run" "8 0 3"

fresh
suite a 10 3 0 0 1
test_case a fail
expect "failures and errors both fail" "6 4 0"

fresh
suite a 5 0 0 0 0
test_case a fail
expect "an executable that fails after its cases is one failure" "5 1 0"

fresh
echo gone >>"$work/results/gtest.list"
test_case gone run
expect "an executable without a report is one failure" "0 1 0"

fresh
suite empty 0 0 0 0 0
test_case empty run
expect "an executable without a case is one failure" "0 1 0"

fresh
test_case script fail
test_case absent notrun
test_case off disabled
expect "scripts count as one each" "0 2 1"

exit $broken
