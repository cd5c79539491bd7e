#!/usr/bin/env bash
# THIRD_PARTY.md names every package that scripts/setup installs.
set -euo pipefail
cd "$QIM_SOURCE_DIR"
# Needs stand one a line, the package last, in functions called needs_<group>.
packages=$(sed -n '/^needs_/,/^}/p' scripts/setup |
  sed -nE 's/^ *(echo ")?(!?[^ ]+) ([a-z0-9][a-z0-9.+:-]+)"?$/\3/p' | sort -u)
[ "$(wc -l <<<"$packages")" -ge 30 ] || { echo "third party: too few packages found" && exit 1; }
broken=0
for package in $packages; do
  grep -qF "\`$package\`" THIRD_PARTY.md && continue
  echo "third party: THIRD_PARTY.md does not name $package"
  broken=1
done
exit $broken
