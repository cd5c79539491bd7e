#!/usr/bin/env bash
# The lines of README.md that compile the examples in C do that, by pkg-config and by CMake, against what
# is installed; and the examples run: one reads what the other, and the tool, wrote.
#
#   readme_test.sh C-COMPILER LIBRARY-FOLDER
set -euo pipefail
compiler=$1 libdir=$2
lines=$(sed -n 's/^    \(cc -o [a-z]* [a-z]*\.c .*\)$/\1/p' "$QIM_SOURCE_DIR/README.md")
if [ "$(wc -l <<<"$lines")" != 2 ]; then
  echo "readme: README.md has not one line for each example: $lines" && exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
DESTDIR=$work cmake --install "$QIM_BUILD_DIR" --prefix /policy >"$work/log"
installed=$work/policy
export PKG_CONFIG_PATH=$installed/$libdir/pkgconfig PKG_CONFIG_LIBDIR=
cd "$work"
cp "$QIM_SOURCE_DIR"/examples/*.c .
cc() { "$compiler" "$@"; } # the one that compiled the libraries
while IFS= read -r line; do
  echo "$line"
  eval "$line"
done <<<"$lines"

{
  echo 'cmake_minimum_required(VERSION 3.20)'
  echo 'project(client C)'
  sed -n '/^    find_package/,/^$/s/^    //p' "$QIM_SOURCE_DIR/README.md"
} >CMakeLists.txt
if ! { CC=$compiler cmake -B built -DCMAKE_PREFIX_PATH="$installed" && cmake --build built; } >log 2>&1; then
  cat log && exit 1
fi

export LD_LIBRARY_PATH=$installed/$libdir
# shellcheck disable=SC2086 # a command with its options
run() { $QIM_EMULATOR "$@"; }
run ./writer db te0/1 20 23
run ./client db >said
run built/client db | diff said -
diff - said <<'END'
list guard, node 0x00300100
  ports: tcp.destination-port 20-23
  applied at te0/1, inbound
END
run "$installed/bin/qimctl" --db db acl guard
run "$installed/bin/qimctl" --db db trace if:te0/1/in 'ipv4 tcp to 192.0.2.1 port 22' | tee traced
grep -q drop traced

# A client that waits is told of the eight nodes that are put again.
run ./client db 8 >said &
client=$!
for _ in $(seq 600); do
  kill -0 $client 2>/dev/null || break
  run ./writer db te0/1 20 24
  sleep 0.1
done
wait $client
grep -c '^node 0x003001..: change 1$' said | grep -qx 8
if run ./client nowhere 2>said; then
  echo "readme: the client reads a database that is not there" && exit 1
fi
grep -q ROV_ERR_OPEN said
if run ./writer db te0/1 3 2 2>said; then
  echo "readme: the writer writes a range that is none" && exit 1
fi
grep -q QIM_ERR_INVALID said
