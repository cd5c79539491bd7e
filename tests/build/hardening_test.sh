#!/usr/bin/env bash
# What is installed is built so that a mistake in it is harder to use: names are looked up at the start
# and what was looked up is read-only then, the stack holds canaries and no code, programs lie somewhere
# else each time, and where the processor has them, indirect jumps have marked targets.
#
#   hardening_test.sh FORTIFIED FILE...     FORTIFIED: 1 when lengths are checked, too
set -euo pipefail
fortified=$1
shift
status=0
checked=0

complain() {
  echo "hardening: $file: $*"
  status=1
}

for file in "$@"; do
  head=$(readelf -W -h "$file")
  segments=$(readelf -W -l "$file")
  dynamic=$(readelf -W -d "$file")
  missing=$(readelf -W --dyn-syms "$file" | awk '$7 == "UND" { print $8 }')
  grep -q 'Type: *DYN' <<<"$head" || complain "it has a fixed place in memory"
  grep -q 'GNU_RELRO' <<<"$segments" || complain "what was looked up can be written to"
  grep -qE '\((FLAGS|FLAGS_1)\).*(BIND_NOW|NOW)' <<<"$dynamic" || complain "names are looked up late"
  ! grep -qE 'GNU_STACK.*RWE' <<<"$segments" || complain "the stack is executable"
  ! grep -qE 'LOAD.*RWE' <<<"$segments" || complain "code can be written to"
  grep -q '^__stack_chk_fail' <<<"$missing" || complain "the stack has no canaries"
  if grep -qE '^__[a-z]+_chk(@|$)' <<<"$missing"; then checked=$((checked + 1)); fi
  if grep -qE 'Machine: .*(X86-64|80386)' <<<"$head"; then
    targets=$(objdump -d --no-show-raw-insn "$file" | grep -cE '\bendbr(64|32)\b' || true)
    [ "$targets" -ge 50 ] || complain "only $targets targets of jumps are marked"
  fi
done

[ "$fortified" = 0 ] || [ "$checked" -gt 0 ] ||
  { echo "hardening: no file has checks of lengths" && status=1; }
echo "hardening: $# files, $checked with checks of lengths"
exit $status
