#!/usr/bin/env bash
# layers_test.sh <C compiler> <C++ compiler>
# The build refuses what a layer may not do. In a copy of the tree, headers from above and from beside
# are included and a name from above is called, one at a time, and each must fail for that reason.
set -uo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
broken=0

for part in "$QIM_SOURCE_DIR"/*; do
  [ "${part##*/}" = build ] || cp -r "$part" "$work"
done
if ! said=$(cmake -S "$work" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQIM_TESTS=ON -DQIM_UNITY=OFF \
  -DCMAKE_C_COMPILER="$1" -DCMAKE_CXX_COMPILER="$2" 2>&1); then
  echo "layers: the copy can't be configured: $said"
  exit 1
fi

# The object file of a source, whose names are kept in the build folder as they are in the tree.
object_of() { # <layer> <source>
  echo "CMakeFiles/$1.dir/$2.o"
}

accepts() { # <what> <target>
  local said
  said=$(ninja -C "$work/build" "$2" 2>&1) && return
  echo "layers: $1 was refused: $said"
  broken=1
}

refuses() { # <what> <target> <text>
  local said
  if said=$(ninja -C "$work/build" "$2" 2>&1); then
    echo "layers: $1 was accepted"
  elif ! grep -qF -- "$3" <<<"$said"; then
    echo "layers: $1: '$3' is not in: $said"
  else
    echo "refused: $1"
    return
  fi
  broken=1
}

# Adds a line to a source and demands that the target isn't built any more.
breach() { # <what> <source> <line> <target> <text>
  cp "$work/$2" "$work/kept"
  echo "$3" >>"$work/$2"
  refuses "$1" "$4" "$5"
  mv "$work/kept" "$work/$2"
}

wrong_include() { # <layer> <source> <header>
  breach "$2 including $3" "$2" "#include \"$3\"" "$(object_of "$1" "$2")" \
    "$3: No such file or directory"
}

base=database/base/process.cpp
accepts "the database's lowest layer" test_layer_rov_base
accepts "a source of the library" "$(object_of qim_lib lib/context.cpp)"

wrong_include rov_base $base database/store/store.h
wrong_include rov_base $base qim.h
wrong_include rov_codec database/codec/size.cpp database/record/keys.h
wrong_include qim_lib lib/context.cpp database/store/store.h
wrong_include qim_lib lib/context.cpp schema/rows.h

breach "$base calling what is above it" $base \
  'namespace rov { struct Env; void store_close(Env* env); void up(Env* env) { store_close(env); } }' \
  test_layer_rov_base "undefined reference to \`rov::store_close"

exit $broken
