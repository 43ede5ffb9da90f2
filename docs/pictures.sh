#!/usr/bin/env bash
# Makes the pictures of README.md and docs/ anew. Needs everything built, and the packages of
# tests/trace/packages.txt; takes a few minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
holder=$(mktemp -d)
trap 'rm -rf "$holder"' EXIT

# shoot PAGE PICTURE WIDTH HEIGHT
shoot() {
    chromium-headless-shell --no-sandbox --disable-gpu --hide-scrollbars --window-size="$3,$4" \
        --screenshot="$PWD/docs/$2" "file://$1" 2>/dev/null
    echo "docs/$2"
}

./run.sh --report "$holder/power-walk.html" --no-dump power-walk
shoot "$holder/power-walk.html" report.png 1280 780

# What docs/tuning.md does, in its order.
trace=build/bin/corvid-trace
walks=trace/walks
$trace replay $walks/two-rooms.jsonl -o "$holder/now.result"
$trace replay $walks/two-rooms.jsonl --set txpower.rssi.lower=-74 -o "$holder/lower-74.result"
$trace report "$holder/now.result" "$holder/lower-74.result" -o "$holder/two.html"
shoot "$holder/two.html" tuning-walk.png 1280 1400
$trace sweep $walks/two-rooms.jsonl $walks/stairway.jsonl --set txpower.rssi.upper=-60:-50:2 \
    --set txpower.rssi.lower=-76:-66:2 --below -70 --keep-results -o "$holder/sweep"
$trace report "$holder/sweep" -o "$holder/sweep.html"
shoot "$holder/sweep.html" tuning-sweep.png 1280 515
