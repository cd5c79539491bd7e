#!/usr/bin/env bash
# Every command, option and exported name has its place in a manual page, and the pages are sound.
#
#   man_test.sh <folder of pages>
set -uo pipefail
pages=$1
cd "$QIM_SOURCE_DIR" || exit
broken=0

complain() {
  echo "man_test: $*"
  broken=1
}

mapfile -t names < <(sed 's/[ ;]//g' packaging/qimcommon.exports packaging/rovcommon.exports)
for name in "${names[@]}"; do
  [[ $name == [a-z]* ]] || continue
  page=$pages/man3/$name.3
  [ -e "$page" ] || { complain "no page for $name" && continue; }
  grep -q "^[^.].*\b$name\b" "$page" || complain "the page of $name does not declare it"
done

# Commands and options as the sources register them.
mapfile -t commands < <(cat tools/options/*.cpp | tr '\n' ' ' |
  grep -oE '\badd\((command, *|above, *)?"[a-z]+", *"' | grep -oE '"[a-z]+"' | tr -d '"' | grep -vx help | sort -u)
[ ${#commands[@]} -ge 25 ] || complain "only ${#commands[@]} commands found"
for command in "${commands[@]}"; do
  compgen -G "$pages/man1/qimctl*-$command.1" >/dev/null || complain "no page for the command $command"
done
# Of the processes and the fleet where they are built.
programs=()
for each in qim-enforce:processes/enforce_main.cpp qimd:processes/qimd_main.cpp \
  qimctl-fleet:fleet/tool/command_line.cpp; do
  [ ! -e "$QIM_BUILD_DIR/bin/${each%%:*}" ] || programs+=("${each#*:}")
done
mapfile -t options < <(grep -ohE '"(-[a-z],)?--[a-z-]+' tools/options/*.cpp "${programs[@]}" | grep -oE -- '--[a-z-]+' | sort -u)
[ ${#options[@]} -ge 25 ] || complain "only ${#options[@]} options found"
cat "$pages"/man[178]/* | sed 's/\\-/-/g' >"${TMPDIR:-/tmp}/man_test.$$"
for option in "${options[@]}"; do
  grep -qF -- "$option" "${TMPDIR:-/tmp}/man_test.$$" || complain "no page has $option"
done
rm -f "${TMPDIR:-/tmp}/man_test.$$"
for page in man1/qimctl.1 man5/qim-policy.5 man5/qim-rfc8519.5 man7/qim-fleet.7 man8/qim-enforce.8 man8/qimd.8; do
  [ -s "$pages/$page" ] || complain "there is no $page"
done

# A type's page is its own; headers are included as pkg-config's flags have it; texts are named as they are
# found once installed.
for name in rov_link_t rov_change_t qim_filter_t rov_edit_node_t; do
  page=$pages/man3/$name.3
  if [ ! -f "$page" ] || [ -L "$page" ]; then complain "$name has no page of its own"; fi
done
if grep -l 'include <qim/' "$pages"/man3/*; then complain "these pages include what is not found"; fi
if grep -lF '<!' "$pages"/man[1578]/*; then complain "these pages have marks of their sources"; fi
if grep -hoE '.{0,9}\b[a-z-]+\.md\b' "$pages"/man?/* | grep -vE 'docs/|[a-z]\.mdb'; then
  complain "that names a text which is not installed"
fi

if [ -e "$QIM_BUILD_DIR/bin/qimctl-fleet" ]; then
  for command in $(grep -oE 'add_subcommand\( *"[a-z]+"' fleet/tool/command_line.cpp | grep -oE '[a-z]+"' | tr -d '"' | sort -u | grep -vx help) push; do
    compgen -G "$pages/man1/qimctl-fleet*-$command.1" >/dev/null || complain "no page for the command fleet $command"
  done
fi

if command -v mandoc >/dev/null; then
  said=$(mandoc -Tlint -W warning "$pages"/man?/* 2>&1) || complain "$said"
elif [ -n "${CI-}" ]; then
  complain "there is no mandoc"
fi
if command -v man >/dev/null; then
  said=$(for page in "$pages"/man[1578]/* "$pages"/man3/*.h.3; do
    LC_ALL=C.UTF-8 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null
  done)
  [ -z "$said" ] || complain "$said"
elif [ -n "${CI-}" ]; then
  complain "there is no man"
fi
exit $broken
