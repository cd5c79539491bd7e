#!/usr/bin/env bash
# Another project finds what is installed by CMake's package, wherever it was moved to, in C and in
# C++; and is told when it asks for a version that this one is not.
#
#   package_test.sh C-COMPILER C++-COMPILER LIBRARY-FOLDER
set -euo pipefail
cc=$1 cxx=$2 libdir=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
DESTDIR=$work/stage cmake --install "$QIM_BUILD_DIR" --prefix /opt/policy >"$work/log"
mv "$work/stage/opt/policy" "$work/moved"
if grep -rn "$QIM_SOURCE_DIR\|$work/stage" "$work/moved/$libdir/cmake"; then
  echo "package: the lines above name the place where it was made" && exit 1
fi

mkdir "$work/client"
cd "$work/client"
cat >client.c <<'EOF'
#include <qim/qim_acl.h>
#include <rov.h>

int main(void) {
  return qim_dbgmsg[0] == 0 && qim_status_name(ROV_OK) == rov_status_name(ROV_OK) ? 0 : 1;
}
EOF
cp client.c client.cpp
cat >CMakeLists.txt <<'EOF'
cmake_minimum_required(VERSION 3.20)
project(client C CXX)
find_package(qimcommon ${WANTED} REQUIRED)
find_package(qimcommon REQUIRED)  # asked twice, as in projects that are made of others
foreach(language c cpp)
  add_executable(client_${language} client.${language})
  target_link_libraries(client_${language} PRIVATE qim::acl)
endforeach()
EOF
configure() { # <version>
  CC=$cc CXX=$cxx cmake -B "build-$1" -DWANTED="$1" -DCMAKE_PREFIX_PATH="$work/moved" >"log-$1" 2>&1
}
configure 1 || { cat log-1 && exit 1; }
cmake --build build-1 >log-build 2>&1 || { cat log-build && exit 1; }
for language in c cpp; do
  # shellcheck disable=SC2086 # a command with its options
  $QIM_EMULATOR "build-1/client_$language"
done
if configure 2; then
  echo "package: version 2 was found although it is not there" && exit 1
fi
grep -q 'requested version "2"' log-2
