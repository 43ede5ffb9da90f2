#!/usr/bin/env bash
# Plays a scenario on the simulated headset with the real daemon.
set -euo pipefail
called_from=$PWD
cd "$(dirname "$0")"
. cmake/setup.sh

usage() {
    cat <<'END'
usage: ./run.sh [OPTION ...] [SCENARIO]

Installs what is missing, builds, and plays SCENARIO (a file, or the name of one in sim/scenarios)
on the simulated headset with the real daemon: what comes in, what the daemon does, and its dump at
the end. Without SCENARIO it plays power-walk, a minute long. The last lines say how many expectations
were met, or what was not, and name a page that shows the play: signal, power, events and commands.

  --report FILE the page (default: build/reports/SCENARIO.html)
  --no-report   no page
  --list        show the scenarios
  --help
  other options go to the simulator: --log D or ANDROID_LOG_TAGS=CorvidWifi:V (more of the daemon's
                log), --speed 10, --record FILE, --plain, ... (build/bin/corvid-sim --help)
END
}

# The options: those with a value behind them, and those without. All but --report and --no-report
# are the simulator's.
with_value=(--root --record --speed --log --daemon --report)
without_value=(--control --check --no-stats --no-dump --plain --lines --help-json --version --no-report)

is_one_of() {
    local word=$1 known
    shift
    for known in "$@"; do
        [ "$word" != "$known" ] || return 0
    done
    return 1
}

# list_scenarios: each with the first sentence of the comment that it begins with.
list_scenarios() {
    local file
    for file in sim/scenarios/*.scn; do
        printf '%s: ' "$(basename "$file" .scn)"
        sed -n '/^#/!q; s/^# *//p' "$file" | tr '\n' ' ' | sed 's/\([.!?]\) .*/\1\n/'
    done
}

scenario=""
options=()
record=""
report=""
reported=true
while [ $# -gt 0 ]; do
    case $1 in
        -h | --help)
            usage
            exit 0
            ;;
        --list)
            list_scenarios
            exit 0
            ;;
        -*)
            option=${1%%=*}
            if is_one_of "$option" "${with_value[@]}"; then
                if [ "$option" = "$1" ]; then
                    [ $# -ge 2 ] || fail "$1 needs a value; see ./run.sh --help"
                    shift
                fi
                value=${1#"$option="}
                # Paths are the caller's; we have changed the folder.
                case $option$value in
                    --root[!/]* | --record[!/]* | --daemon[!/]* | --report[!/]*)
                        value=$called_from/$value
                        ;;
                esac
                case $option in
                    --record) record=$value ;;
                    --report) report=$value ;;
                    *) options+=("$option" "$value") ;;
                esac
            elif [ "$option" = --no-report ]; then
                reported=false
            elif is_one_of "$option" "${without_value[@]}"; then
                options+=("$1")
            else
                fail "there is no option $option; there are --list, --help," \
                    "$(printf '%s, ' "${with_value[@]}" "${without_value[@]}" | sed 's/, $//')"
            fi
            ;;
        *)
            [ -z "$scenario" ] || fail "only one scenario can be played; see ./run.sh --help"
            scenario=$1
            ;;
    esac
    shift
done
if is_one_of --control "${options[@]}" || is_one_of --lines "${options[@]}" ||
    is_one_of --help-json "${options[@]}" || is_one_of --version "${options[@]}"; then
    [ -z "$scenario" ] || fail "a scenario is not played with that option; see ./run.sh --help"
    play=()
else
    : "${scenario:=power-walk}"
    case $scenario in /*) file=$scenario ;; *) file=$called_from/$scenario ;; esac
    [ -f "$file" ] || file=$scenario
    [ -f "$file" ] || file=sim/scenarios/$scenario.scn
    [ -f "$file" ] || fail "there is no scenario $scenario; ./run.sh --list shows those that are there"
    play=("$file")
fi

install_packages packages.txt
daemon=vendor.corvid.hardware.wifi@1.0-service
build gcc "bin/$daemon" corvid-wifi corvid-statsd nl80211-redirect corvid-sim corvid-properties
simulator=(build/bin/corvid-sim --daemon "build/bin/$daemon" "${options[@]}")
if ! $reported || [ ${#play[@]} -eq 0 ] || is_one_of --check "${options[@]}"; then
    [ -z "$record" ] || simulator+=(--record "$record")
    exec "${simulator[@]}" "${play[@]}"
fi

name=$(basename "$file" .scn)
# Without --report the page is that of the play that ends last, if several play the same scenario.
write=()
if [ -z "$report" ]; then
    report=build/reports/$name.html
    mkdir -p build/reports
    rm -f "$report"
    write=(--force)
elif [ -e "$report" ]; then
    fail "$report is there already"
fi
holder=$(mktemp -d)
trap 'rm -rf "$holder"' EXIT
: "${record:=$holder/record}"

# In the background, so that a signal to this script reaches the simulator at once. An interrupt
# from the terminal comes to both.
trap 'kill -TERM "$player" 2>/dev/null || true' TERM HUP
trap : INT
"${simulator[@]}" --record "$record" "${play[@]}" <&0 &
player=$!
status=0
wait "$player" || status=$?
while kill -0 "$player" 2>/dev/null; do
    status=0
    wait "$player" || status=$?
done
trap - INT TERM HUP

# A scenario that is not understood leaves nothing to draw.
if [ -s "$record" ]; then
    result=$holder/$name.result
    if build/bin/corvid-trace import --label "$name" -o "$result" "$record" 2>"$holder/errors" &&
        build/bin/corvid-trace report "${write[@]}" -o "$report" "$result" 2>>"$holder/errors"; then
        echo "Report: $report"
    else
        cat "$holder/errors" >&2
        fail "the report could not be made"
    fi
fi
exit "$status"
