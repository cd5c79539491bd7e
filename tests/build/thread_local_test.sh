#!/usr/bin/env bash
# What a thread has of its own in the database library is found without a call, which reads look at dozens
# of times, and is small enough for the room that the loader keeps for libraries that are opened later.
#
#   thread_local_test.sh LIBRARY
set -euo pipefail
status=0

called=$(readelf -W -r "$1" | grep -cE 'DTPMOD|TLSDESC|tls_get_addr' || true)
if [ "$called" != 0 ]; then
  echo "thread_local: $called relocations ask for a call; is a layer compiled without -ftls-model?"
  status=1
fi
size=$((0x$(readelf -W -l "$1" | awk '$1 == "TLS" { sub("0x", "", $6); print $6 }')))
if [ "$size" = 0 ] || [ "$size" -ge 256 ]; then
  echo "thread_local: a thread has $size bytes of its own, which is not between 1 and 255"
  status=1
fi
echo "thread_local: $size bytes"
exit $status
