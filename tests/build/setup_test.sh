#!/usr/bin/env bash
# scripts/setup names what is missing and leaves the machine alone when nothing is.
set -uo pipefail
setup=$QIM_SOURCE_DIR/scripts/setup
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
broken=0

complain() {
  echo "setup_test: $*"
  broken=1
}

said=$("$setup" --probe native 2>&1) || complain "the tools that built this are missing: $said"
[ -z "$said" ] || complain "it is not quiet: $said"

said=$("$setup" no-such-group 2>&1)
[ $? = 2 ] || complain "an unknown group was accepted"
grep -q "powerpc" <<<"$said" || complain "the groups are not named: $said"

# A machine with a shell and its usual tools only.
for tool in bash dirname sort sed uname cat id xargs; do
  ln -s "$(command -v "$tool")" "$work/$tool"
done
said=$(PATH=$work bash "$setup" --probe powerpc 2>&1)
[ $? = 1 ] || complain "missing tools are no failure"
for package in cmake ninja-build g++-powerpc-linux-gnu qemu-user; do
  grep -q "missing: $package;" <<<"$said" || complain "$package is not named: $said"
done
said=$(PATH=$work bash "$setup" native 2>&1)
[ $? = 1 ] || complain "tools that can't be installed are no failure"
grep -q "no apt-get" <<<"$said" || complain "it does not say why it can't install: $said"

exit $broken
