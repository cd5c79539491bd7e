#!/usr/bin/env bash
# A client written in C by somebody else: it is compiled against what is installed, with what
# pkg-config says, and calls every exported function on a database that the tool wrote.
#
#   client_test.sh C-COMPILER LIBRARY-FOLDER EXPORTS
set -euo pipefail
cc=$1 libdir=$2 exports=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
DESTDIR=$work cmake --install "$QIM_BUILD_DIR" --prefix /policy >"$work/log"
installed=$work/policy
export PKG_CONFIG_PATH=$installed/$libdir/pkgconfig PKG_CONFIG_LIBDIR=

sources=("$QIM_SOURCE_DIR"/tests/build/client/*.c)
read -ra flags <<<"$(pkg-config --cflags --libs qimacl)"
"$cc" -std=c99 -pedantic -Wall -Wextra -Werror "${sources[@]}" "${flags[@]}" -pthread \
  -Wl,-rpath,"$installed/$libdir" -o "$work/client"

# What the program takes from the libraries, data included, is what the library exports.
readelf -W --dyn-syms "$work/client" | awk '{ print $8 }' | sed 's/@.*//' |
  grep -E '^(qim_|node_cache_|rov_node_id_(to|from)_qim$)' | LC_ALL=C sort -u >"$work/used"
if ! diff "$exports" "$work/used"; then
  echo "client: the client in tests/build/client does not use the names above (<)"
  exit 1
fi

# shellcheck disable=SC2086 # a command with its options
$QIM_EMULATOR "$installed/bin/qimctl" --db "$work/db" import \
  "$QIM_SOURCE_DIR/examples/edge-all-types.json"
# shellcheck disable=SC2086
$QIM_EMULATOR "$work/client" "$work/db" | tee "$work/said"
sed -n 's/^    {"\(.*\)", \1},$/OK \1/p' "$QIM_SOURCE_DIR/tests/build/client/client.c" \
  >"$work/families"
[ "$(wc -l <"$work/families")" -ge 20 ] || { echo "client: too few families" && exit 1; }
diff "$work/families" "$work/said"
