#!/usr/bin/env bash
# The demonstration of a fleet shows what it is to show.
set -uo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
broken=0

"$QIM_SOURCE_DIR/scripts/fleet-demo" "$QIM_BUILD_DIR" >"$work/shown" 2>"$work/complaints" || broken=1
[ ! -s "$work/complaints" ] || broken=1

shows() { # <times> <text>
  [ "$(grep -cF -- "$2" "$work/shown")" -ge "$1" ] && return
  echo "fleet-demo: '$2' is not shown $1 times"
  broken=1
}

shows 1 'edge: revision 1 on 20 % and canary'
shows 1 'edge   edge-1  refused  1    2      2        node 0x'
shows 1 "has a match that this device can't d"
shows 1 '1 device refused revision 2, and 0 may: it is held'
shows 1 'kill -9 '
shows 5 '  current  3    3 '
shows 1 'edge: revision 3 on all'
shows 15 '  current  1    1 '
[ $broken = 0 ] || cat "$work/shown" "$work/complaints"
exit $broken
