#!/usr/bin/env bash
# scripts/lint-rules finds each breach of the house rules, and nothing in sources that keep them.
set -uo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
broken=0

fresh() {
  rm -rf "${work:?}"/*
  mkdir -p "$work"/{include,lib,schema,node,database/{include,store,record,codec},tools,tests}
  for folder in "$work"/*/; do : >"$folder/README.md"; done
}

put() { # <file> <line>
  echo "$2" >>"$work/$1"
}

rules() { "$QIM_SOURCE_DIR/scripts/lint-rules" "$work" 2>&1; }

accepts() { # <what>
  local said
  said=$(rules) && return
  echo "lint_rules: $1 was refused: $said"
  broken=1
}

refuses() { # <what> <text>
  local said
  if said=$(rules); then
    echo "lint_rules: $1 was accepted"
  elif ! grep -qF -- "$2" <<<"$said"; then
    echo "lint_rules: $1: '$2' is not in: $said"
  else
    return
  fi
  broken=1
}

breach() { # <what> <file> <line> <text>
  fresh
  put "$2" "$3"
  refuses "$1" "$4"
}

fresh
accepts "an empty tree"
put database/store/env.cpp '#include <lmdb.h>'
put lib/a.cpp '#include "qim.h"'
put lib/a.cpp '#include <cstring>'
put lib/a.cpp '#include <pthread.h>'
put lib/a.cpp '#include <arpa/inet.h>'
put lib/a.cpp '#include "schema/rows.h"'
put lib/b.h '// nothing'
put lib/a.cpp '#include "b.h"'
put node/c.cpp '#include "rov.h"'
put tools/d.cpp '#include "rov_edit.h"'
put tests/long.cpp "$(seq 900)"
accepts "a tree that keeps the rules"

breach "the engine in a wrong file" database/record/keys.cpp '#include <lmdb.h>' 'database/record/keys.cpp:1: only'
breach "the engine in a tool" tools/t.cpp '#  include "lmdb.h"' 'tools/t.cpp:1: only'
breach "a C++ runtime header" lib/a.cpp '#include <string>' '<string>'
breach "writing from the library" node/a.cpp '#include "rov_edit.h"' '"rov_edit.h"'
breach "the database's inside" lib/a.cpp '#include "database/store/store.h"' '"database/store/store.h"'
breach "a way around the include roots" database/codec/tlv.cpp '#include "../../include/qim.h"' 'climbs out'
breach "a long file" schema/rows.h "$(seq 801)" 'more than 800 lines'

fresh
rm "$work/node/README.md"
refuses "a folder without a word" 'node/:0: there is no README.md'

exit $broken
