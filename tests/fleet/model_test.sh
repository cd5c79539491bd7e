#!/usr/bin/env bash
# The model of a large fleet: it reads what the bench prints, and its table in the manual is what it makes of
# the one above it.
set -euo pipefail
cd "$QIM_SOURCE_DIR"
model=bench/fleet/model
fail() { echo "model_test: $*" >&2 && exit 1; }

page=docs/performance.md
while IFS= read -r line; do
  grep -qxF -- "$line" $page || fail "$page does not say: $line"
done < <($model $page)

printed=$(
  cat <<'END'
| what | ours | beside it | ratio | goal |
|---|---|---|---|---|
| one changed entry on the wire | 1,000 B |  |  | 1 KB |
| one entry, from sent to committed on 1 device, p50, beside as many bare watches | 10.0 ms | 9.0 ms | 1.1 | 2 |
| one entry, from sent to committed on 1 device, p99, beside as many bare watches | 200.0 ms | 9.0 ms | 22 | 2 |
| one entry, from acknowledged to committed on 200 devices, p99, beside as many bare watches | 900.0 ms | 100.0 ms | 9.0 | 2 |
END
)
wanted=$(
  cat <<'END'
| what, by a model | how | value |
|---|---|---|
| members tell 20 proxies | as 200 bare watches, p99 | 0.10 s |
| each proxy tells 500 devices | the store's own figure | 0.50 s |
| each device has it, p99 | of one on its own | 0.20 s |
| from acknowledged to committed everywhere, p99 | the sum | 0.8 s |
| what the members send for one entry | 20 x 1000 B | 20 KB |
| what each proxy sends | 500 x 1000 B | 500 KB |
| reports of all, where each writes once | 10,000 / 1,000 | 10 s, so `report_spread = 20s` |
| reports at rest, one an hour each | 10,000 / 3,600 | 3 a second |
END
)
made=$(echo "$printed" | $model --devices 10000 --site 500 --proxy-ms 500 --puts 1000)
[ "$made" = "$wanted" ] || fail "it printed:"$'\n'"$made"

if echo "$printed" | grep -v wire | $model >/dev/null 2>&1; then fail 'a row is missing, and it says nothing'; fi
