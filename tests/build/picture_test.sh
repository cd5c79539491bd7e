#!/usr/bin/env bash
# The picture of the layers shows those that the build declares.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$QIM_SOURCE_DIR/scripts/picture" "$QIM_BUILD_DIR" "$work/layers.svg"
cmp "$work/layers.svg" "$QIM_SOURCE_DIR/docs/layers.svg" || {
  echo "picture: draw it anew: scripts/picture build/native docs/layers.svg" && exit 1
}
