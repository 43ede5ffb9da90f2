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
the end. Without SCENARIO it plays power-walk, a minute long.

  --list        show the scenarios
  --help
  other options go to the simulator: --log D (more of the daemon's log), --record FILE, --plain, ...
                (build/bin/corvid-sim --help)
END
}

scenario=""
options=()
while [ $# -gt 0 ]; do
    case $1 in
        -h | --help)
            usage
            exit 0
            ;;
        --list)
            for file in sim/scenarios/*.scn; do
                echo "$(basename "$file" .scn): $(sed -n '1s/^# *//p' "$file")"
            done
            exit 0
            ;;
        --root | --record | --speed | --log)
            [ $# -ge 2 ] || fail "$1 needs a value; see ./run.sh --help"
            value=$2
            # Paths are the caller's; we have changed the folder.
            case $1$value in --root[!/]* | --record[!/]*) value=$called_from/$value ;; esac
            options+=("$1" "$value")
            shift
            ;;
        -*) options+=("$1") ;;
        *)
            [ -z "$scenario" ] || fail "only one scenario can be played; see ./run.sh --help"
            scenario=$1
            ;;
    esac
    shift
done
: "${scenario:=power-walk}"
case $scenario in /*) file=$scenario ;; *) file=$called_from/$scenario ;; esac
[ -f "$file" ] || file=$scenario
[ -f "$file" ] || file=sim/scenarios/$scenario.scn
[ -f "$file" ] || fail "there is no scenario $scenario; ./run.sh --list shows those that are there"

install_packages packages.txt
daemon=vendor.corvid.hardware.wifi@1.0-service
build gcc "bin/$daemon" corvid-wifi corvid-statsd nl80211-redirect corvid-sim
exec build/bin/corvid-sim --daemon "build/bin/$daemon" "${options[@]}" "$file"
