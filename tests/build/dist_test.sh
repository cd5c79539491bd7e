#!/usr/bin/env bash
# Sources packed twice are the same bytes, also from what was packed; and packages are of this version.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$QIM_SOURCE_DIR"
scripts/dist "$work/first.tar.gz" >/dev/null
tar -xzf "$work/first.tar.gz" -C "$work"
unpacked=$(echo "$work"/qim-*)
[ -x "$unpacked/scripts/check" ]
if [ -e "$unpacked/build" ] || [ -e "$unpacked/.git" ]; then
  echo "dist: what is no source was packed" && exit 1
fi
sleep 1.1 # a time of today would show
TZ=Asia/Tokyo "$unpacked/scripts/dist" "$work/second.tar.gz" >/dev/null
if ! cmp "$work/first.tar.gz" "$work/second.tar.gz"; then
  echo "dist: the same sources gave other bytes" && exit 1
fi
version=$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
[ "$(basename "$unpacked")" = "qim-$version" ]
if ! grep -q "^qim ($version) " <(head -n 1 packaging/debian/changelog); then
  echo "dist: packaging/debian/changelog is not of version $version" && exit 1
fi
