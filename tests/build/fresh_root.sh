#!/usr/bin/env bash
# Installs the Debian packages of a folder into a fresh root, does the main job there, and removes them.
#
#   fresh_root.sh <folder with packages>
#
# Needs root, mmdebstrap and Debian's mirrors.
set -euo pipefail
packages=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
export LC_ALL=C

die() {
  echo "fresh root: $*" >&2
  exit 1
}

inside() { # <command>...
  unshare --mount --pid --fork --mount-proc="$root/proc" chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin ROV_DB=/tmp/qim.db "$@"
}

list_packages() {
  inside dpkg --get-selections | grep -w install | cut -f 1
}

# apt, which takes what the packages depend on, keeps its lists.
mmdebstrap --quiet --variant=apt --skip=cleanup/apt bookworm "$root" >"$work/log" 2>&1 ||
  { tail "$work/log" && die "there is no root"; }
list_packages >"$work/before"
mkdir "$root/packages"
cp "$packages"/*.deb "$root/packages/"
rm -f "$root"/packages/*-dbgsym_*
inside sh -c 'DEBIAN_FRONTEND=noninteractive apt-get install -qq -y --no-install-recommends /packages/*.deb' \
  >"$work/log" 2>&1 || { tail -n 30 "$work/log" && die "they do not install"; }

# Policy from a file to what processes read, what a packet meets, and what the kernel would get.
cat >"$root/tmp/guard.json" <<'EOF'
{"ietf-access-control-list:acls": {
  "acl": [{"name": "guard", "type": "ipv4-acl-type", "aces": {"ace": [{"name": "echo",
    "matches": {"udp": {"destination-port": {"operator": "eq", "port": 7}}},
    "actions": {"forwarding": "drop"}}]}}],
  "attachment-points": {"interface": [{"interface-id": "far",
    "ingress": {"acl-sets": {"acl-set": [{"name": "guard"}]}}}]}}}
EOF
inside qimctl apply /tmp/guard.json >"$work/said" || die "qimctl apply: $(cat "$work/said")"
inside qimctl acl guard >"$work/said"
grep -q echo "$work/said" || die "qimctl acl: $(cat "$work/said")"
inside qimctl trace if:far/in ipv4 udp from 10.0.0.1 to 192.0.2.1 port 7 >"$work/said"
grep -q drop "$work/said" || die "qimctl trace: $(cat "$work/said")"
inside qimctl check >"$work/said" || [ $? = 1 ] || die "qimctl check: $(cat "$work/said")"
inside qim-enforce --dry-run >"$work/said" || die "qim-enforce: $(cat "$work/said")"
grep -q '"lw.guard"' "$work/said" || die "qim-enforce: $(cat "$work/said")"
[ -e "$root/lib/systemd/system/qim-enforce.service" ] || die "qim-enforce has no unit"
for page in man1/qimctl-acl.1 man3/qim_lib_init.3 man5/qim-policy.5 man7/qim-clients.7 man8/qim-enforce.8; do
  [ -e "$root/usr/share/man/$page.gz" ] || die "there is no page $page"
done
[ -s "$root/usr/share/qimctl/words" ] || die "nothing completes qimctl"
# The fleet, where its libraries were there to build it.
if [ -e "$root/usr/bin/qimd" ]; then
  [ -e "$root/lib/systemd/system/qimd.service" ] || die "qimd has no unit"
  inside qimctl fleet --help >"$work/said" || die "qimctl fleet: $(cat "$work/said")"
  grep -q rollout "$work/said" || die "qimctl fleet: $(cat "$work/said")"
  [ -e "$root/usr/share/man/man1/qimctl-fleet-rollout.1.gz" ] || die "there is no page of qimctl fleet"
  if inside qimd --check >"$work/said" 2>&1; then die "qimd takes settings that are not there"; fi
  grep -q qimd.conf "$work/said" || die "qimd: $(cat "$work/said")"
fi

inside python3 -c 'import qim; print([n.kind for n in qim.Database("/tmp/qim.db").session()])' >"$work/said" ||
  die "python3: $(cat "$work/said")"
grep -q Filter "$work/said" || die "python3: $(cat "$work/said")"

# A client is built here against what is there, and runs there.
pkg_config=(env PKG_CONFIG_PATH="$(echo "$root"/usr/lib/*/pkgconfig)" pkg-config)
cat >"$work/client.c" <<'EOF'
#include <qim.h>
#include <rov.h>

int main(void) {
  return qim_dbgmsg[0] == 0 && rov_status_name(ROV_OK) != 0 ? 0 : 1;
}
EOF
read -ra flags < <("${pkg_config[@]}" --cflags --libs qimcommon)
gcc "$work/client.c" -o "$root/tmp/client" "${flags[@]}" || die "a client is not built"
inside /tmp/client || die "a client does not run"

mapfile -t ours < <(for each in "$root"/packages/*.deb; do dpkg-deb -f "$each" Package; done)
inside apt-get purge -qq -y "${ours[@]}" >"$work/log" 2>&1 || { cat "$work/log" && die "they stay"; }
inside apt-get autoremove --purge -qq -y >"$work/log" 2>&1
list_packages >"$work/after"
diff "$work/before" "$work/after" || die "the packages above were left"
left=$(find "$root" -xdev \( -name '*qim*' -o -name '*rovcommon*' \) ! -path "$root/packages/*" ! -path "$root/tmp/*" \
  ! -path "$root/var/log/*")
[ -z "$left" ] || die "left behind: $left"
echo "fresh root: ${#ours[@]} packages installed, used and removed"
