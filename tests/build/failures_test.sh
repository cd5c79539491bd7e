#!/usr/bin/env bash
# scripts/failures names what failed and says how.
set -uo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/results"

cat >"$work/results/ctest.xml" <<'END'
<testsuite>
  <testcase name="cases" status="fail"><system-out>all of it</system-out></testcase>
  <testcase name="died" status="fail"><system-out>one
two &lt;
three</system-out></testcase>
  <testcase name="torn" status="fail"><system-out>half a report</system-out></testcase>
  <testcase name="good" status="run"/>
  <testcase name="off" status="disabled"/>
</testsuite>
END
cat >"$work/results/cases.xml" <<'END'
<testsuites><testsuite name="S">
  <testcase name="Good" classname="S"/>
  <testcase name="Bad" classname="S"><failure message="file.cpp:3&#x0A;Expected: x"/></testcase>
</testsuite></testsuites>
END
echo '<testsuites><testsuite name="S"><testcase' >"$work/results/torn.xml"

expected='S.Bad: file.cpp:3 Expected: x
died: ended without naming a failed case; it printed last:
  one
  two <
  three
torn: ended without naming a failed case; it printed last:
  half a report'
got=$("$QIM_SOURCE_DIR/scripts/failures" "$work")
[ "$got" = "$expected" ] && exit
echo "failures: expected"
echo "$expected"
echo "failures: got"
echo "$got"
exit 1
