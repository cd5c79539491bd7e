#!/usr/bin/env bash
# Rows that say something else than the records they describe do not compile, with the preset's
# compiler and with clang for the same target: each way to break a copy of the rows or of the public
# header is tried, and must be refused for the right reason.
#
#   schema_rows_test.sh C++-COMPILER
set -uo pipefail
readonly root=$QIM_SOURCE_DIR cxx=$1
rows=$(sed -z 's/,\n  */, /g' "$root/schema/rows.h") # a row may be broken into lines
header=$(<"$root/include/qim.h")
readonly rows header
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/schema" "$work/include"
echo '#include "schema/rows.h"' >"$work/unit.cpp"
cp "$root"/schema/row_checks.h "$work/schema/"
tried=0 broken=0
compilers=("$cxx")

find_clang() {
  local target
  command -v clang++-14 >/dev/null || return
  target=$("$cxx" -dumpmachine)
  compilers+=("clang++-14 --target=$target")
  [ ! -d "/usr/$target/include" ] || compilers[1]+=" -isystem /usr/$target/include"
}

# Compiles the copies, and prints what the compiler says.
compile() { # <compiler with its options>
  # shellcheck disable=SC2086 # a command with its options
  $1 -std=c++20 -fsyntax-only -I "$work/include" -I "$work" -I "$root/include" \
    "$work/unit.cpp" 2>&1
}

put() { # <rows> <header>
  printf '%s\n' "$1" >"$work/schema/rows.h"
  printf '%s\n' "$2" >"$work/include/qim.h"
}

refuses() { # <what was broken> <part of the message>
  local compiler said
  for compiler in "${compilers[@]}"; do
    tried=$((tried + 1))
    if said=$(compile "$compiler"); then
      echo "schema_rows: $1 compiles with: $compiler"
    elif ! grep -qF -- "$2" <<<"$said"; then
      echo "schema_rows: $1: '$2' is not in what $compiler says: $said"
    else
      continue
    fi
    broken=1
  done
}

# Replaces a text of the rows, which must be there, by another one.
breach() { # <what> <text> <replacement> <message>
  case $rows in
    *"$2"*) ;;
    *) echo "schema_rows: there is no '$2' to break" && broken=1 && return ;;
  esac
  put "${rows/"$2"/"$3"}" "$header"
  refuses "$1" "$4"
}

every_row_is_needed() {
  local row record count=0
  while IFS= read -r row; do
    record=$(sed -E 's/^[^(]*\(QIM_AT\(([a-z_]+),.*/\1/' <<<"$row")
    put "${rows/"$row"/}" "$header"
    refuses "no row '$row'" "a member of $record has no row"
    count=$((count + 1))
  done < <(grep -oE 'make::[a-z_]+\(QIM_AT\([a-z_]+, [a-z0-9_]+\)(, QIM_AT\([a-z_, ]+\))?[^()]*\),' <<<"$rows")
  [ $count -gt 50 ] || { echo "schema_rows: only $count rows were found" && broken=1; }
}

# A member more, at the end and at the start. Beyond it the header's own assertions fail too; what
# counts is that the rows do.
every_member_is_needed() {
  local record first
  while IFS= read -r record; do
    put "$rows" "${header/"} $record;"/"  uint32_t unheard_of; } $record;"}"
    refuses "a member more at the end of $record" "a member of $record has no row"
    first="typedef struct ${record%_t} {"
    put "$rows" "${header/"$first"/"$first uint32_t unheard_of;"}"
    refuses "a member more at the start of $record" "a member of $record has no row"
  done < <(grep -oE 'QIM_AT\(qim_[a-z_]+_t' <<<"$rows" | sed 's/.*(//' | sort -u)
}

find_clang
put "$rows" "$header"
for compiler in "${compilers[@]}"; do
  compile "$compiler" || { echo "schema_rows: $compiler refuses good rows" && broken=1; }
done
every_row_is_needed
every_member_is_needed

breach "a part of a member without a row" \
  'make::value(QIM_AT(qim_pinst_t, fields.dir)),' '' 'the rows of qim_pinst_t leave a gap'
breach "a member with two rows" 'make::kept(QIM_AT(qim_filter_t, reserved)),' \
  'make::kept(QIM_AT(qim_filter_t, reserved)), make::kept(QIM_AT(qim_filter_t, reserved)),' \
  'the rows of qim_filter_t leave a gap, or overlap'
breach "a member of another record" 'QIM_AT(qim_hfilter_t, ln_081)' 'QIM_AT(qim_filter_t, ln_081)' \
  'a row of hfilter_rows names a member of another record'
breach "a bare slot for a whole link" 'make::full(QIM_AT(qim_haction_t' \
  'make::single(QIM_AT(qim_haction_t' 'a row of qim_haction_t does not fit'
breach "a whole slot for a bare link" 'make::single(QIM_AT(qim_police_t' \
  'make::full(QIM_AT(qim_police_t' 'a row of qim_police_t does not fit'
breach "an integer as wide as a link" 'make::full(QIM_AT(qim_pinst_t, ln_2c1), family::policy |' \
  'make::integer(QIM_AT(qim_pinst_t, ln_2c1),' 'a row of qim_pinst_t does not fit'
breach "another record embedded" '1, action_bw)' '1, filter)' 'a row of qim_police_t does not fit'
breach "a TLV id given twice" 'QIM_AT(qim_group_t, subtype), 2)' 'QIM_AT(qim_group_t, subtype), 1)' \
  'two rows of qim_group_t have one TLV id'
breach "a show id given twice" 'make::value(QIM_AT(qim_pinst_t, edests))' \
  'make::value_shown(QIM_AT(qim_pinst_t, edests), 1)' 'two rows of qim_pinst_t have one show id'
breach "a show id given twice, once without a member" 'make::shown_only("id", 3)' \
  'make::shown_only("id", 2)' 'two rows of qim_police_t have one show id'
breach "a show id left out" 'make::shown_only("id", 3)' 'make::shown_only("id", 4)' \
  'the show ids of qim_police_t do not count up from 1'
breach "a struct id given twice" 'make::record("haction", 6,' 'make::record("haction", 5,' \
  'two records have one struct id'
breach "a record left out" '&node,' '' 'a record is missing'
breach "arguments without a length" 'QIM_AT(qim_def_t, args_len), 2' 'QIM_AT(qim_def_t, args), 2' \
  'the arguments of qim_def_t name no length'
breach "a node type given twice" '.code = QIM_NODE_DEF,' '.code = QIM_NODE_GROUP,' \
  'two node types have one code'
breach "a hole in the codes of node types" '.code = QIM_NODE_POLICE,' '.code = 20,' \
  'the codes of the types that TLV carries do not count up from 1'
breach "a node type of no family" '.family = family::branches' '.family = 0' 'is of no family'

echo "schema_rows: $tried breaches refused by ${compilers[*]}"
[ $broken = 0 ]
