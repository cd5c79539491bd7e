#!/usr/bin/env bash
# The examples of a document print what it says: blocks marked as `console`, whose lines "$ COMMAND"
# are run one after the other beside the folder of examples, in a place of their own.
#
#   docs_test.sh DOCUMENT LEAST-EXAMPLES
set -euo pipefail
document=$1 least=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ln -s "$QIM_SOURCE_DIR/examples" "$work/examples"
cd "$work"
unset ROV_DB

# shellcheck disable=SC2086 # a command with its options
qimctl() { $QIM_EMULATOR "$QIM_BUILD_DIR/bin/qimctl" "$@"; }

run_examples() {
  local line inside=''
  while IFS= read -r line <&3; do
    case $line in
      '```console') inside=1 ;;
      '```') [ -z "$inside" ] || echo "$line" && inside='' ;;
    esac
    [ -n "$inside" ] || continue
    case $line in
      '$ '*) echo "$line" && (eval "${line#'$ '}") ;;
      '```console') echo "$line" ;;
    esac
  done 3<"$document"
}

run_examples >said 2>&1 </dev/null || true
# shellcheck disable=SC2016 # the marks of a block
sed -n '/^```console$/,/^```$/p' "$document" >expected
commands=$(grep -c '^\$ ' expected)
[ "$commands" -ge "$least" ] || { echo "docs: only $commands examples in $document" && exit 1; }
diff -u expected said || { echo "docs: the examples of $document print something else (+)" && exit 1; }
echo "docs: $commands examples print what $document says"
