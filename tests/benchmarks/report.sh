#!/usr/bin/env bash
# Runs the benchmarks and prints their ratios, or compares them with those of another commit.
set -u
folder=$(cd "$(dirname "$0")" && pwd)
tree=$(cd "$folder/../.." && pwd)
programs=(corvid_benchmarks nl80211_benchmark)

usage() {
    cat <<'END'
usage: tests/benchmarks/report.sh [BENCHMARK-OPTION ...]
           Prints the table of ratios. Status 1: a ratio is over its target, or could not be measured.
       tests/benchmarks/report.sh --against COMMIT [--rounds N] [BENCHMARK-OPTION ...]
           Builds this tree as it stands and COMMIT, runs them in turns (N rounds, default 8), and
           prints for each row both ratios, their quotient and its spread, and whether it is better or
           worse beyond the noise. Status 1: a row is worse, or could not be measured on one side.
Status 2: nothing was measured; the message says why.

Options go to the programs: --benchmark_min_time=3, --benchmark_filter=poll.

Environment:
  CORVID_BUILD  the build folder for the table (build, in the source tree). --against has its own:
                build-benchmark, and a git worktree in a temporary folder, which is removed.
END
}

# cannot REASON: ends with it.
cannot() {
    echo "report.sh: $*" >&2
    exit 2
}

against="" rounds=8 options=()
while [ $# -gt 0 ]; do
    case $1 in
        -h | --help) usage && exit ;;
        --against | --rounds)
            [ $# -ge 2 ] || cannot "$1 needs a value; see --help"
            if [ "$1" = --against ]; then against=$2; else rounds=$2; fi
            shift
            ;;
        --benchmark_* | --v=*) options+=("$1") ;;
        *) cannot "there is no option $1; see --help" ;;
    esac
    shift
done
case $rounds in '' | *[!0-9]* | 0*) cannot "--rounds is '$rounds'; allowed is a number from 1" ;; esac

machine() { echo "$(nproc) processors, load $(cut -d' ' -f1-3 /proc/loadavg), Linux $(uname -r)"; }

# tables BUILD-FOLDER: of all programs. The result is whether all ratios are good enough.
tables() {
    local program status=0
    for program in "${programs[@]}"; do
        "$1/bin/$program" --table "${options[@]}" 2>/dev/null || status=1
    done
    return $status
}

if [ -z "$against" ]; then
    build=${CORVID_BUILD:-$tree/build}
    for program in "${programs[@]}"; do
        [ -x "$build/bin/$program" ] ||
            cannot "$program is not built in $build: cmake --build $build --target $program"
    done
    machine
    tables "$build"
    exit
fi

git() { command git -C "$tree" "$@"; }
commit=$(git rev-parse --verify --quiet "$against^{commit}") || cannot "there is no commit $against"
temporary=$(mktemp -d)
other=$temporary/tree
child=

end() {
    trap '' INT TERM HUP
    [ -z "$child" ] || { kill -- "-$child" && wait "$child"; } 2>/dev/null
    git worktree remove --force "$other" 2>/dev/null
    rm -rf "$temporary"
    git worktree prune
}
trap end EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

# run COMMAND ...: a shell heeds a signal only when it waits for nothing but background processes. Each
# is a group of its own (-m), so that what it has started ends with it.
set -m
run() {
    local status
    "$@" &
    child=$!
    wait $child
    status=$?
    child=
    return $status
}

# build TREE NAME
build() {
    echo "building $2"
    { run cmake -S "$1" --preset benchmark && run cmake --build "$1/build-benchmark" --target \
        "${programs[@]}"; } >"$temporary/build.log" 2>&1 && return
    tail -n 20 "$temporary/build.log" >&2
    cannot "$2 could not be built"
}

# described: this tree.
described() {
    local changed
    changed=$(git status --porcelain | wc -l)
    git log -1 --format='%h %s'
    [ "$changed" -eq 0 ] || echo "and what is not committed: $changed files"
}

git worktree add --quiet --detach "$other" "$commit" || cannot "$against could not be checked out"
before="$(git log -1 --format='%h %s' "$commit")"
after=$(described | paste -sd' ')
build "$other" "$before"
build "$tree" "$after"
machine
for ((round = 1; round <= rounds; ++round)); do
    printf '\rround %d of %d' "$round" "$rounds" >&2
    sides=(before after)
    [ $((round % 2)) -eq 1 ] || sides=(after before)
    for side in "${sides[@]}"; do
        folder_of_side=$tree
        [ "$side" = after ] || folder_of_side=$other
        run tables "$folder_of_side/build-benchmark" >"$temporary/$side.$round"
    done
done
echo >&2
echo "before: $before"
echo "after:  $after"
run python3 -B "$folder/against.py" "$temporary" "$rounds"
