#!/usr/bin/env bash
# The line that compiles a client in README.md does that: the client of examples/, against what is
# installed, and it reads a database that the tool wrote.
#
#   readme_test.sh C-COMPILER LIBRARY-FOLDER
set -euo pipefail
compiler=$1 libdir=$2
line=$(sed -n 's/^    \(cc client\.c .*\)$/\1/p' "$QIM_SOURCE_DIR/README.md")
if [ -z "$line" ] || [ "$(wc -l <<<"$line")" != 1 ]; then
  echo "readme: README.md has not one line that compiles client.c" && exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
DESTDIR=$work cmake --install "$QIM_BUILD_DIR" --prefix /policy >"$work/log"
installed=$work/policy
export PKG_CONFIG_PATH=$installed/$libdir/pkgconfig PKG_CONFIG_LIBDIR=
cd "$work"
cp "$QIM_SOURCE_DIR/examples/client.c" .
cc() { "$compiler" "$@"; } # the one that compiled the libraries
echo "$line"
eval "$line"

export LD_LIBRARY_PATH=$installed/$libdir
# shellcheck disable=SC2086 # a command with its options
$QIM_EMULATOR "$installed/bin/qimctl" --db db import "$QIM_SOURCE_DIR/examples/edge-all-types.json"
# shellcheck disable=SC2086
$QIM_EMULATOR ./a.out db >said
diff - said <<'END'
policy instance 0x04100080, type 5
  interface 0x11223344, VLAN 100
  node 0x04100091
  node 0x04100092
END
