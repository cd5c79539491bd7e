#!/usr/bin/env bash
# What is installed is complete, can be moved, and a C client builds against it and runs.
#
#   install_test.sh C-COMPILER LIBRARY-FOLDER [SANITIZERS]
set -euo pipefail
cc=$1 libdir=$2 sanitizers=${3-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
DESTDIR=$work/stage cmake --install "$QIM_BUILD_DIR" --prefix /opt/policy >"$work/log"
mv "$work/stage/opt/policy" "$work/moved"
cd "$work/moved"

for file in include/qim/{qim,qim_acl,qim_codes,qim_db,rov_types,rov,rov_edit,tlvo,mem}.h bin/qimctl \
  "$libdir"/lib{qim,rov}common.so{,.1} "$libdir"/libqimacl.a \
  "$libdir"/pkgconfig/{qimcommon,rovcommon,qimacl}.pc; do
  [ -e "$file" ] || { echo "install: $file is missing" && exit 1; }
done
if grep -rn "$QIM_SOURCE_DIR" include "$libdir/pkgconfig"; then
  echo "install: the lines above name the source folder" && exit 1
fi

cat >client.c <<'EOF'
#include <qim/qim.h>

int main(void) { return qim_dbg == 0 && qim_dbgmsg[0] == 0 ? 0 : 1; }
EOF
options=(-std=c99 -pedantic-errors -Wall -Werror)
[ -z "$sanitizers" ] || options+=("-fsanitize=$sanitizers")
# The database library is found through the policy library's own run path.
"$cc" "${options[@]}" -Iinclude client.c -L"$libdir" -lqimcommon \
  -Wl,-rpath,"$PWD/$libdir" -Wl,-rpath-link,"$PWD/$libdir" -o client
# shellcheck disable=SC2086 # a command with its options
$QIM_EMULATOR ./client
# shellcheck disable=SC2086
$QIM_EMULATOR bin/qimctl --help >help || { echo "install: qimctl does not start" && exit 1; }
[ -s help ]
