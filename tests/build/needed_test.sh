#!/usr/bin/env bash
# At run time the library needs libc and librovcommon, nothing else, and says its own name.
#
#   needed_test.sh LIBRARY
set -euo pipefail
dynamic=$(readelf -W -d "$1")
status=0

complain() {
  echo "needed: $*"
  status=1
}

# The dynamic loader is part of libc; some targets name it.
while read -r name; do
  case $name in
    libc.so.6 | librovcommon.so.1 | ld-linux*.so.* | ld.so.1 | ld64.so.*) ;;
    *) complain "the library needs $name" ;;
  esac
done < <(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic")

grep -q '(NEEDED).*\[librovcommon\.so\.1\]' <<<"$dynamic" || complain "librovcommon is not needed"
grep -q '(SONAME).*\[libqimcommon\.so\.1\]' <<<"$dynamic" || complain "wrong or no SONAME"
! grep -q '(TEXTREL)' <<<"$dynamic" || complain "the code needs relocation"
! grep -qE 'GNU_STACK.*RWE' <<<"$(readelf -W -l "$1")" || complain "the stack is executable"
! readelf -W --dyn-syms "$1" | awk '$7 == "UND" { print $8 }' | grep -E '^(_Z|__cxa_(throw|guard)|__gxx)' ||
  complain "the names above are of the C++ runtime"
# It loads against any librovcommon of the interface, whatever its versions, and has a copy of its own of
# what other libraries might have, too.
! readelf -W --version-info "$1" | grep 'ROVCOMMON' || complain "versions of librovcommon are asked for"
! readelf -W --dyn-syms "$1" | grep -wE 'memset_s|snprintf_bytes' || complain "the names above are common"
# A run path other than the library's own folder would let another place decide what is loaded.
# shellcheck disable=SC2016 # the loader expands it
! grep -E '\((RPATH|RUNPATH)\)' <<<"$dynamic" | grep -vF '[$ORIGIN]' || complain "stray run path"
exit $status
