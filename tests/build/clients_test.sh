#!/usr/bin/env bash
# The programs of docs/clients.md are built against what is installed, by its own lines, and do what it says.
#
#   clients_test.sh C-COMPILER LIBRARY-FOLDER
set -euo pipefail
compiler=$1 libdir=$2
document=$QIM_SOURCE_DIR/docs/clients.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
DESTDIR=$work cmake --install "$QIM_BUILD_DIR" --prefix /policy >"$work/log"
installed=$work/policy
export PKG_CONFIG_PATH=$installed/$libdir/pkgconfig PKG_CONFIG_LIBDIR=
cd "$work"

block() { # <language>
  sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/{/^\`\`\`/d;p}" "$document"
}
block c >ports.c
block python >ports.py
block cmake >CMakeLists.txt
cc() { "$compiler" -Wall -Wextra -Wpedantic -std=c99 -D_POSIX_C_SOURCE=200809L -Werror "$@"; }
line=$(sed -n 's/^    \(cc -o ports .*\)$/\1/p' "$document")
[ -n "$line" ] || { echo "clients: there is no line that compiles" && exit 1; }
eval "$line"
if ! { CC=$compiler cmake -B built -DCMAKE_PREFIX_PATH="$installed" && cmake --build built; } >log 2>&1; then
  cat log && exit 1
fi

export LD_LIBRARY_PATH=$installed/$libdir
# shellcheck disable=SC2086 # a command with its options
run() { $QIM_EMULATOR "$@"; }
lists() { # <port>
  cat <<END
{"ietf-access-control-list:acls": {
  "acl": [{"name": "guard", "type": "ipv4-acl-type", "aces": {"ace": [{"name": "echo",
    "matches": {"udp": {"destination-port": {"operator": "eq", "port": $1}}},
    "actions": {"forwarding": "drop"}}]}}],
  "attachment-points": {"interface": [{"interface-id": "far",
    "ingress": {"acl-sets": {"acl-set": [{"name": "guard"}]}}}]}}}
END
}
change() { lists "$1" >lists.json && run "$installed/bin/qimctl" --db db apply lists.json >applied; }

change 7
run ./ports db >said
run built/ports db | diff said -
diff - said <<'END'
guard
  echo: udp.destination-port 7-7
  at far in
END

# Waits until a program says something, changes the policy, and waits for its end.
follows() { # <what it says at last> <program>...
  local wanted=$1 process
  shift
  "$@" >said &
  process=$!
  for _ in $(seq 600); do
    [ ! -s said ] || break
    sleep 0.1
  done
  change 9
  wait $process
  change 7
  tail -n 3 said | grep -qF "$wanted" || { cat said && exit 1; }
}
follows 'echo: udp.destination-port 9-9' run ./ports db 1

python=$QIM_BUILD_DIR/python
[ -d "$python" ] || exit 0
export PYTHONPATH=$python
follows 'echo: 9-9' /usr/bin/python3 ports.py db once
echo "the clients of docs/clients.md are built, read, and are told of changes"
