#!/usr/bin/env bash
# What is made of the schema's rows is what is checked in, and what was changed by hand is found.
#
#   generated_test.sh C++-COMPILER
set -uo pipefail
export CXX=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
broken=0

said=$("$QIM_SOURCE_DIR/scripts/generate" --check) || { echo "generated: $said" && broken=1; }

# A copy with all that the program reads.
cd "$QIM_SOURCE_DIR" || exit
cp --parents -t "$work" scripts/generate scripts/describe_rows.cpp include/*.h schema/*.h \
  docs/native.schema.json docs/native-format.md packaging/qimcommon.exports bindings/python/qim/_qim.pyi
cd "$work" || exit

changed() { # <file> <text> <other text>
  sed -i "s/$2/$3/" "$1"
  said=$(scripts/generate --check) && echo "generated: a change of $1 is not found" && broken=1
  grep -q "generate: $1 is not" <<<"$said" || { echo "generated: $1 is not named: $said" && broken=1; }
  scripts/generate >said || { echo "generated: $1 can't be written: $(cat said)" && broken=1; }
  cmp "$1" "$QIM_SOURCE_DIR/$1" || broken=1
}

changed docs/native.schema.json '"Filter", 1' '"Filter", 11'
# shellcheck disable=SC2016 # the marks of a slot's name
changed docs/native-format.md '`ln_081` `ln_102`' '`ln_081`'
changed bindings/python/qim/_qim.pyi comt_bw committed
changed packaging/qimcommon.exports qim_police_tbl qim_policer_tbl
exit $broken
