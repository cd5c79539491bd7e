#!/usr/bin/env bash
# How long a fleet does without its leader: three members, each in a network of its own, and agents outside;
# then the leader is killed, or cut off from the other members while agents still reach it, or from everybody.
#
#   bench/fleet/leader.sh kill|cut|gone [DEVICES]     of the build in build/native
#
# Prints the seconds from the fault until a push was rolled out that was tried from then on, until the first
# device has it, and until all have it.
set -euo pipefail
cd "$(dirname "$0")/../.."
if [ -z "${QIM_APART-}" ]; then
  QIM_APART=1 exec unshare --map-root-user --net "$0" "$@"
fi
fault=${1-} devices=${2:-8}
case $fault in
  kill | cut | gone) ;;
  *) echo 'leader.sh: say kill, cut or gone' >&2 && exit 2 ;;
esac
bin=$PWD/build/native/bin
export ETCDCTL_API=3

dir=$(mktemp -d)
set -m
finish() {
  local job
  exec 2>/dev/null # the shell tells of each job that is killed
  for job in $(jobs -p); do kill -9 -- "-$job" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$dir"
}
trap finish EXIT
cd "$dir"

now() { date +%s.%N; }
await() { # SECONDS COMMAND...
  local end=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    if [ $SECONDS -ge $end ]; then echo "leader.sh: '$*' does not come true" >&2 && exit 1; fi
    sleep 0.05
  done
}

is_apart() { [ "$(readlink "/proc/$1/ns/net")" != "$(readlink /proc/self/ns/net)" ]; }
address() { echo "10.9.$1.2"; }
member() {
  local n=$1 at cluster
  at=http://$(address "$n")
  cluster=1=http://$(address 1):2380,2=http://$(address 2):2380,3=http://$(address 3):2380
  # It waits until its network leads somewhere.
  unshare --net sh -c 'until ip route | grep -q default; do sleep 0.05; done; exec "$@"' sh \
    etcd --name "$n" --data-dir "$dir/m$n" --log-level error --initial-cluster "$cluster" \
    --listen-client-urls "$at:2379" --advertise-client-urls "$at:2379" \
    --listen-peer-urls "$at:2380" --initial-advertise-peer-urls "$at:2380" >"$dir/m$n.log" 2>&1 &
  members[n]=$!
  await 10 is_apart "${members[n]}"
  await 10 ip link add "v$n" type veth peer name eth0 netns "${members[n]}"
  ip addr add "10.9.$n.1/24" dev "v$n"
  ip link set "v$n" up
  nsenter --target "${members[n]}" --net sh -c \
    "ip link set lo up; ip addr add $(address "$n")/24 dev eth0; ip link set eth0 up
     ip route add default via 10.9.$n.1"
}

device() {
  local own=$dir/d$1
  mkdir -m 700 "$own"
  "$bin/qimctl" fleet keygen "$own/key" --name "d$1" >/dev/null
  {
    cat "$dir/fleet.conf"
    printf '%s\n' "scope = edge" "device = d$1" "database = $own/db" "directory = $own" \
      "signing_key = $own/key" "metrics = $own/metrics"
  } >"$own.conf"
  "$bin/qimd" --config "$own.conf" >"$own.log" 2>&1 &
}
have() { [ "$(cat "$dir"/d*/metrics 2>/dev/null | grep -c "^qimd_revision $1\$")" -ge "$2" ]; }

publish() { # ADDRESS ENDPOINTS
  cat >policy.json <<END
{"ietf-access-control-list:acls":{"acl":[{"name":"a","type":"ipv4-acl-type","aces":{"ace":[{"name":"e",
"matches":{"ipv4":{"destination-ipv4-network":"$1/32"}},"actions":{"forwarding":"accept"}}]}}]}}
END
  { cat fleet.conf && printf '%s\n' "signing_key = $dir/key" 'timeout = 1s'; } |
    sed "s/^endpoints.*/endpoints = $2/" >publisher.conf
  await 60 "$bin/qimctl" fleet --config publisher.conf push edge policy.json
  await 60 "$bin/qimctl" fleet --config publisher.conf rollout start edge
}

# From here on the leader hears no other member, and is heard by none; this host is neither.
cut_off() {
  local n
  ip rule add pref 0 to "10.9.$leader.1" lookup local
  ip rule add pref 1 iif "v$leader" blackhole
  for n in 1 2 3; do
    [ "$n" = "$leader" ] || ip rule add pref 2 iif "v$n" to "$(address "$leader")" blackhole
  done
}

ip link set lo up
echo 1 >/proc/sys/net/ipv4/ip_forward
members=()
for n in 1 2 3; do member $n; done
all=$(address 1):2379,$(address 2):2379,$(address 3):2379
await 60 etcdctl --endpoints "$all" endpoint health
"$bin/qimctl" fleet keygen key --name operator >publishers
printf '%s\n' "endpoints = $all" "publishers = $dir/publishers" >fleet.conf
publish 192.0.2.1 "$all"
for ((n = 1; n <= devices; n++)); do device "$n"; done
await 120 have 1 "$devices"
sleep 3

leader=$(etcdctl --endpoints "$all" endpoint status | sed -n 's/^10\.9\.\(.\)\..*, true,.*/\1/p')
others=$(echo "$all" | tr , '\n' | grep -v "^$(address "$leader"):" | paste -sd,)
begin=$(now)
case $fault in
  kill) kill -9 "${members[leader]}" ;;
  cut) cut_off ;;
  gone) ip link set "v$leader" down ;;
esac
publish 192.0.2.2 "$others"
published=$(now)
await 60 have 2 1
first=$(now)
await 60 have 2 "$devices"
echo "$begin $published $first $(now)" | awk -v what="$fault" -v count="$devices" \
  '{ printf "%s, %d devices: rolled out %.1f s, the first %.1f s, all %.1f s\n", what, count, $2 - $1, $3 - $1, $4 - $1 }'
