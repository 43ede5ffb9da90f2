#!/usr/bin/env bash
# record.sh [WALK ...]: makes these walks beside this file anew, or all of them: plays each scenario
# on the simulated headset, in real time and all at once, while corvid-wifi records it. Needs the
# built programs (CORVID_BUILD: build).
set -euo pipefail
build=$(realpath "${CORVID_BUILD:-$(dirname "$0")/../../build}")
cd "$(dirname "$0")"
daemon='vendor.corvid.hardware.wifi@1.0-service'

# record SCENARIO: up to two seconds before its end, so that the daemon's end is not part of it.
record() {
    local name=$1 root end
    root=$(mktemp -d /tmp/corvid-walk.XXXXXX)
    export CORVID_WIFI_ROOT=$root
    end=$(sed -n 's/^at \([0-9]*\)s *end$/\1/p' "$name.scn")
    "$build/bin/corvid-sim" --root "$root" --daemon "$build/bin/$daemon" --plain --no-dump \
        "$name.scn" >/dev/null &
    until "$build/bin/corvid-wifi" call getP2pInfo >/dev/null 2>&1; do sleep 0.05; done
    "$build/bin/corvid-wifi" record - --until $((end - 2))s |
        ./../corvid-trace import - --format trace --source scenario \
            --label "$(sed -n '1s/^# \([^:]*\):.*/\1/p' "$name.scn"), played from $name.scn" \
            --force -o "$name.jsonl"
    wait
    rm -rf "$root"
}

if [[ $# = 0 ]]; then
    set -- *.scn
fi
for scenario; do
    record "${scenario%.scn}" &
done
wait
