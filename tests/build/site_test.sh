#!/usr/bin/env bash
# The site that `make site` makes is whole: site_test.py opens it in a browser.
set -euo pipefail
skip() {
  echo "site_test: there is no $1"
  [ -z "${CI-}" ] || exit 1
  exit 77
}

command -v mkdocs >/dev/null || skip mkdocs
for browser in chromium-headless-shell chromium; do
  command -v $browser >/dev/null && break
  browser=''
done
[ -n "$browser" ] || skip chromium
[ "$browser" != chromium ] || set -- --headless
exec python3 "$(dirname "$0")/site_test.py" "$browser" "$@"
