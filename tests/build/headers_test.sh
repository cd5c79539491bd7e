#!/usr/bin/env bash
# Every public header compiles alone, twice in one unit, and cleanly, in each language that clients
# use, with the preset's compiler and with clang for the same target.
#
#   headers_test.sh C-COMPILER C++-COMPILER
set -uo pipefail
readonly strict=(-fsyntax-only -pedantic-errors -Wall -Wextra -Wconversion -Wshadow -Werror)
readonly root=$QIM_SOURCE_DIR
cc=$1 cxx=$2
compiled=0 broken=0

try() { # <language> <standard> <header> <compiler> <option>...
  local language=$1 standard=$2 header=$3
  shift 3
  compiled=$((compiled + 1))
  printf '#include "%s"\n#include "%s"\n' "$header" "$header" |
    "$@" -x "$language" -std="$standard" "${strict[@]}" \
      -I "$root/include" -I "$root/database/include" - && return
  echo "headers: $header does not compile alone as $standard with: $*"
  broken=1
}

# The compiler that can also be had for the target: clang, with the headers of the cross tools.
clang_for_target() {
  local target
  target=$("$cc" -dumpmachine)
  echo clang-14 "--target=$target"
  [ ! -d "/usr/$target/include" ] || echo -isystem "/usr/$target/include"
}

command -v clang-14 >/dev/null || {
  echo "headers: clang-14 is missing; run scripts/setup clang"
  [ -z "${CI-}" ] || exit 1
}
read -ra clang < <(clang_for_target | xargs)
for path in "$root"/include/*.h "$root"/database/include/*.h; do
  header=$(basename "$path")
  for standard in c99 c11 c17; do
    try c $standard "$header" "$cc"
    ! command -v clang-14 >/dev/null || try c $standard "$header" "${clang[@]}"
  done
  try c++ c++20 "$header" "$cxx"
  ! command -v clang-14 >/dev/null || try c++ c++20 "$header" "${clang[@]}"
done
echo "headers: $compiled compilations"
[ $broken = 0 ] && [ $compiled -ge 8 ]
