#!/usr/bin/env bash
# Runs every benchmark and prints its table of ratios. Exit status 1 when one is over its target or
# could not be measured. Arguments go to the programs: --benchmark_min_time=3, say.
#   CORVID_BUILD  the build folder (default: build, in the source tree)
set -u
build=${CORVID_BUILD:-$(cd "$(dirname "$0")/../.." && pwd)/build}

echo "$(nproc) processors, load $(cut -d' ' -f1-3 /proc/loadavg), Linux $(uname -r)"
status=0
for program in corvid_benchmarks nl80211_benchmark; do
    if [ ! -x "$build/bin/$program" ]; then
        echo "$program is not built in $build: cmake --build $build --target $program" >&2
        exit 2
    fi
    "$build/bin/$program" --table "$@" 2>/dev/null || status=1
done
exit $status
