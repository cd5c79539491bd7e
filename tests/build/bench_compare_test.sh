#!/usr/bin/env bash
# scripts/bench-compare tells a ratio that slipped from one that moved within what the runs leave open.
set -euo pipefail
readonly compare=$QIM_SOURCE_DIR/scripts/bench-compare
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# results <file> <value> <low> <high> <more is better>
results() {
  cat >"$folder/$1" <<END
{"rows": [
 {"workload": "read", "ours": "a", "theirs": "b", "value": $2, "low": $3, "high": $4,
  "more_is_better": $5, "ratio": true},
 {"workload": "time", "ours": "a", "theirs": "b", "value": $2, "low": 0, "high": 0,
  "more_is_better": false, "ratio": false}
]}
END
}

# expect <change> <exit status> <file>
expect() {
  local status=0
  "$compare" "$folder/$3" "$folder/kept.json" >"$folder/out" || status=$?
  [ "$status" = "$2" ] || { echo "bench_compare: $3 ended with $status, not $2" && exit 1; }
  grep -q "\"change\": \"$1\"" "$folder/compare.json" ||
    { echo "bench_compare: $3 is not called $1:" && cat "$folder/out" && exit 1; }
}

results first.json 1.00 0.98 1.02 false
"$compare" --keep "$folder/first.json" "$folder/kept.json"
[ "$(grep -c workload "$folder/kept.json")" = 1 ] ||
  { echo "bench_compare: what is no ratio was kept" && exit 1; }
results near.json 1.04 1.03 1.05 false && expect same 0 near.json
results wide.json 1.20 1.01 1.40 false && expect "can't tell" 0 wide.json
results worse.json 1.20 1.15 1.25 false && expect slipped 1 worse.json
results better.json 0.80 0.75 0.85 false && expect better 0 better.json
echo '{"rows": []}' >"$folder/none.json" && expect gone 1 none.json
results speed.json 2.0 1.9 2.1 true
"$compare" --keep "$folder/speed.json" "$folder/kept.json"
results slower.json 1.5 1.4 1.6 true && expect slipped 1 slower.json
cp "$QIM_SOURCE_DIR/bench/figures.json" "$folder/figures.json"
"$compare" "$folder/figures.json" >/dev/null ||
  { echo "bench_compare: the kept figures differ from themselves" && exit 1; }
