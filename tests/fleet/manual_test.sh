#!/usr/bin/env bash
# The commands of docs/fleet.md do what it says: members with certificates and roles, publishing, and a
# proxy. They run as they stand there, but for places: addresses become ports of loopback, and files lie
# in a folder that goes away.
set -euo pipefail
document=$QIM_SOURCE_DIR/docs/fleet.md
work=$(mktemp -d)

free_ports() { # COUNT
  python3 -c '
import socket, sys
sockets = [socket.socket() for _ in range(int(sys.argv[1]))]
for each in sockets: each.bind(("127.0.0.1", 0))
print(*[each.getsockname()[1] for each in sockets])' "$1"
}

# What the blocks marked as sh hold.
commands() {
  # shellcheck disable=SC2016 # the marks of a block
  sed -n '/^```sh$/,/^```$/{/^```/d;p}' "$document"
}

# An address and a port each become a port of their own.
moved() {
  local -a edits=()
  local host port ports
  read -r -a ports < <(free_ports 8)
  local i=0
  for host in 10.0.0.1 10.0.0.2 10.0.0.3 10.0.0.9; do
    for port in 2379 2380; do
      edits+=(-e "s|$host:$port|127.0.0.1:${ports[i]}|g")
      i=$((i + 1))
    done
  done
  # Members are given their addresses as words.
  # shellcheck disable=SC2016 # they are expanded by what is read
  edits+=(-e "s|^member a 10.0.0.1|member a 127.0.0.1 ${ports[0]} ${ports[1]}|"
    -e "s|^member b 10.0.0.2|member b 127.0.0.1 ${ports[2]} ${ports[3]}|"
    -e "s|^member c 10.0.0.3|member c 127.0.0.1 ${ports[4]} ${ports[5]}|"
    -e 's|\$2:2379|$2:$3|g' -e 's|\$2:2380|$2:$4|g'
    -e 's|10\.0\.0\.[0-9]|127.0.0.1|g' -e "s|/etc/|$work/etc/|g" -e "s|/var/|$work/var/|g"
    -e "s| examples/| $QIM_SOURCE_DIR/examples/|g")
  sed "${edits[@]}"
}

# Jobs are groups of their own, so that what they started ends with them.
finish() {
  local status=$? job
  for job in $(jobs -p); do kill -9 -- "-$job" 2>/dev/null || true; done
  wait 2>/dev/null || true
  [ $status = 0 ] || tail -n 40 "$work/log"
  rm -rf "$work"
  exit $status
}
set -m
trap finish EXIT

mkdir -p "$work/etc" "$work/var/lib/etcd"
chmod 700 "$work/var/lib/etcd"
export PATH=$QIM_BUILD_DIR/bin:$PATH
unset ROV_DB
commands | moved >"$work/commands"
[ "$(grep -c 'qimctl fleet' "$work/commands")" -ge 10 ] || { echo "manual: too few commands" && exit 1; }
cd "$work"
# shellcheck disable=SC1091 # made above
. "$work/commands" >"$work/log" 2>&1
grep -q '^edge: revision 1 on all' "$work/log"
echo "the commands of docs/fleet.md ran"
