#!/usr/bin/env bash
# Builds the fuzz targets and runs them on all processors.
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/setup.sh

usage() {
    cat <<'END'
usage: tests/fuzz/fuzz.sh [OPTION ...] [TARGET ...]

Builds the fuzz targets (clang, address and undefined-behaviour sanitizers) in build-fuzz, runs each
TARGET, or all of them, one after the other on all processors, and prints for each: executions,
executions per second, coverage (edges), and how many inputs the corpus has gained. Inputs that
reach something new and are small go into tests/fuzz/corpus/TARGET.

  --time TIME   for each target: 30s, 10min (default), 2h
  --jobs N      processes at once (default: one per processor)
  --list        show the targets
  --help

Exit status: 0 nothing was found; 1 a target failed, its input is named; 2 wrong usage.
END
}

wrong_usage() {
    echo "fuzz.sh: $*; see tests/fuzz/fuzz.sh --help" >&2
    exit 2
}

# Inputs that are kept are read by every run of the tests.
max_kept_bytes=512

seconds_of() {
    case $1 in
        *[!0-9]*[0-9]* | "") return 1 ;;
        *min) echo "$((10#${1%min} * 60))" ;;
        *h) echo "$((10#${1%h} * 3600))" ;;
        *s) echo "$((10#${1%s}))" ;;
        *) return 1 ;;
    esac 2>/dev/null
}

mapfile -t all < <(cd tests/fuzz && printf '%s\n' *_fuzz.cpp | sed 's/\.cpp$//')
seconds=600
jobs=$(nproc)
targets=()
while [ $# -gt 0 ]; do
    case $1 in
        --time)
            [ $# -ge 2 ] || wrong_usage "--time needs a time: 30s, 10min, 2h"
            seconds=$(seconds_of "$2") && [ "$seconds" -gt 0 ] ||
                wrong_usage "'$2' is no time: 30s, 10min, 2h"
            shift
            ;;
        --jobs)
            [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || wrong_usage "--jobs needs a number"
            jobs=$2
            shift
            ;;
        --list)
            printf '%s\n' "${all[@]}"
            exit 0
            ;;
        -h | --help)
            usage
            exit 0
            ;;
        -*) wrong_usage "unknown option $1" ;;
        *)
            [ -f "tests/fuzz/$1.cpp" ] || wrong_usage "there is no target $1; there are: ${all[*]}"
            targets+=("$1")
            ;;
    esac
    shift
done
[ ${#targets[@]} -gt 0 ] || targets=("${all[@]}")

install_packages packages.txt
build fuzz "${targets[@]}"

export ASAN_OPTIONS=exitcode=99:detect_leaks=0
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$work"' EXIT
failed=0
printf '%-24s %14s %12s %10s %8s\n' target executions "per second" coverage new
for target in "${targets[@]}"; do
    corpus=$PWD/tests/fuzz/corpus/$target
    found=$work/$target
    mkdir -p "$found"
    begin=$(date +%s)
    pids=()
    for ((i = 0; i < jobs; i++)); do
        mkdir -p "$work/$target-$i"
        (cd "$work/$target-$i" && exec "$OLDPWD/build-fuzz/bin/$target" -max_total_time="$seconds" \
            -reload=1 -print_final_stats=1 -rss_limit_mb=4096 "$found" "$corpus") \
            >"$work/$target-$i.log" 2>&1 &
        pids+=($!)
    done
    status=0
    for pid in "${pids[@]}"; do
        wait "$pid" || status=1
    done
    took=$(($(date +%s) - begin))
    executions=$(awk '/stat::number_of_executed_units/ { n += $2 } END { print n + 0 }' \
        "$work/$target"-*.log)
    coverage=$(grep -ho 'cov: [0-9]*' "$work/$target"-*.log | awk '$2 > n { n = $2 } END { print n + 0 }')
    # What reaches something that the corpus does not, the smallest of each kind.
    before=$(find "$corpus" -type f | wc -l)
    find "$found" -type f -size "+${max_kept_bytes}c" -delete
    build-fuzz/bin/"$target" -merge=1 "$corpus" "$found" >"$work/merge.log" 2>&1 || true
    new=$(($(find "$corpus" -type f | wc -l) - before))
    printf '%-24s %14d %12d %10d %8d\n' "$target" "$executions" "$((executions / (took > 0 ? took : 1)))" \
        "$coverage" "$new"
    if [ "$status" -ne 0 ]; then
        failed=1
        for log in "$work/$target"-*.log; do
            grep -q 'Test unit written to' "$log" || continue
            mkdir -p build-fuzz/findings
            input=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
            cp "${log%.log}/${input#./}" "build-fuzz/findings/$target-$(basename "$input")"
            grep -m 3 -E 'ERROR|not |runtime error' "$log" || true
            echo "found: build-fuzz/findings/$target-$(basename "$input")"
        done
    fi
done
exit $failed
