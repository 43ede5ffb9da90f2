#!/usr/bin/env bash
# A small virtual machine with a real Linux Wi-Fi stack (simulated radios of the kernel, Debian's
# supplicant and access point), in which the daemon runs as it was built for the host.
set -euo pipefail
export LC_ALL=C  # what programs say is read here
start_folder=$PWD
cd "$(dirname "$0")/.."
. cmake/setup.sh
. lab/image.sh

usage() {
    cat <<'END'
usage: lab/lab.sh build             makes the guest's image, once: downloads a kernel and tools
       lab/lab.sh test [CASE ...]   runs these cases, or all, two at a time
       lab/lab.sh soak DURATION     plays so much of a headset's day, from 10min on: 90min, 24h
       lab/lab.sh day               plays a day of ordinary use, and says what it cost
       lab/lab.sh shell             a console in the guest, with everything running
       lab/lab.sh play FILE         runs a case that is not in lab/cases
       lab/lab.sh log [CASE]        shows the logs of the case's last run, or where all are
       lab/lab.sh list              the cases, a line each

Cases and soak run in virtual time: the guest's clock counts its instructions and jumps over the
time in which it would only wait. An hour of soak takes less than a minute of a processor.

Environment:
  CORVID_BUILD      the build folder whose programs run in the guest (build)
  CORVID_LAB_CACHE  where image and packages are kept (~/.cache/corvid-wifi-lab)
  CORVID_LAB_ACCEL  what QEMU runs the guest by in real time (kvm, or tcg: emulation, which works
                    everywhere); set, the cases that can run so do; the shell always does
  CORVID_LAB        "optional": status 77 instead of 1 where the lab can't run
END
}

build=${CORVID_BUILD:-build}
case $build in
    /*) ;;
    *) [ -d "$build" ] || build=$start_folder/$build ;;
esac
logs=$build/lab-runs
daemon='vendor.corvid.hardware.wifi@1.0-service'
# The guest's programs from the build folder.
programs=("$daemon" corvid-wifi corvid-statsd lab-capture lab-confine lab-events lab-expect
    lab-sample lab-traffic VtsHalCorvidWifiV1_0TargetTest)
preloads=(libconfined.so libdriver-commands.so liblive-memory.so)

case_names() { basename -s .sh lab/cases/*.sh; }

# The file of "play"; its name without the ending is the case's.
played=

# case_file NAME
case_file() {
    if [ -n "$played" ]; then echo "$played"; else echo "lab/cases/$1.sh"; fi
}

# limit_of CASE: how long it may take, in seconds.
limit_of() {
    local limit
    limit=$(sed -n 's/^# limit: \([0-9]*\) s$/\1/p' "$(case_file "$1")")
    echo "${limit:-200}"
}

# time_of CASE: "virtual", or "real" if the case asks for that, or the caller by CORVID_LAB_ACCEL.
# A case that says "virtual" would take too long otherwise.
time_of() {
    local time
    time=$(sed -n 's/^# time: \([a-z]*\).*/\1/p' "$(case_file "$1")")
    [ -z "${CORVID_LAB_ACCEL:-}" ] || time=${time:-real}
    echo "${time:-virtual}"
}

# radios_of CASE: the kernel's option for it, if it asks for more of them than the others.
radios_of() { sed -n 's/^# radios: \([0-9]\)$/ lab.radios=\1/p' "$(case_file "$1")"; }

# Those that may take long first: the last to be started is then a short one.
longest_first() {
    local name
    for name in $(case_names); do
        echo "$(limit_of "$name") $name"
    done | sort -k1,1nr | cut -d' ' -f2
}

# cannot REASON: ends with it. In a run of all tests the lab may be missing (status 77: skipped).
cannot() {
    [ "${CORVID_LAB:-}" != optional ] || { echo "lab: skipped: $*" && exit 77; }
    fail "$*"
}

# Why the lab can't run here, if it can't.
need_tools() {
    local tool lacking=
    for tool in "$@"; do
        PATH=$PATH:/usr/sbin:/sbin command -v "$tool" >/dev/null || lacking+=" $tool"
    done
    [ -z "$lacking" ] || cannot "missing programs:$lacking (they are in Debian's packages: $(sed \
        's/#.*//' lab/packages.txt | xargs))"
}

build_lab() {
    [ "$(uname -m)" = x86_64 ] || cannot "the guest is a PC: it is made and runs on amd64 only"
    need_tools cpio depmod xz strip apt-get dpkg-deb sha256sum flock
    # A shell of its own: it must end at its first error, which behind "||" it would not.
    bash -euo pipefail -c '. cmake/setup.sh; . lab/image.sh; build_image' ||
        cannot "there is no image of the guest, see above"
}

# programs_archive FILE FOLDER: what the guest runs from here, put together in the empty FOLDER: the
# build's programs with their libraries, and the lab's own scripts.
programs_archive() {
    local root=$2 program
    mkdir -p "$root/usr/bin" "$root/lab" "$root/usr/lib"
    for program in "${programs[@]}"; do
        [ -f "$build/bin/$program" ] || fail "$build/bin/$program is not there: build it first"
        strip -o "$root/usr/bin/$program" "$build/bin/$program"
    done
    for program in "${preloads[@]}"; do
        strip --strip-unneeded -o "$root/usr/lib/$program" "$build/lib/$program"
    done
    copy_libraries "$root" "" "${programs[@]/#/$build/bin/}"
    # Debian's comes with all of 7-Zip, which every start of a program would load and relocate.
    find "$root" -name libbacktrace.so.0 -exec cp "$build/lib/libbacktrace.so.0" {} \;
    find "$root" -name 7z.so -delete
    cp lab/guest/init "$root/init"
    cp lab/guest/run-case lab/guest/*.sh "$root/lab/"
    cp -r lab/cases "$root/lab/"
    [ -z "$played" ] || cp "$played" "$root/lab/cases/"
    cp "device/$daemon.rc" "$root/lab/service.rc"
    cp "device/$daemon.policy" "$root/lab/service.policy"
    cp lab/guest/host.policy "$root/lab/"
    pack "$root" >"$1"
}

# stop: ends with the machines that run. A shell heeds a signal only when it waits for none but its
# background processes, so all that takes long is one.
stop() {
    trap '' INT TERM HUP
    # shellcheck disable=SC2046  # one word per process
    kill $(jobs -p) 2>/dev/null || true
    wait
    exit 1
}

# make_disk [ARCHIVE ...]: makes $disk, a RAM disk of the image's and the programs' archives, and more
# archives of the image, which the kernel unpacks one after the other. It goes when this script ends.
make_disk() {
    local work
    need_tools qemu-system-x86_64 cpio strip
    [ -f "$(image_folder)/initrd" ] || build_lab
    mkdir -p "$logs"
    work=$(mktemp -d "$logs/.disk.XXXXXX")
    # shellcheck disable=SC2064  # the name is not known later
    trap "rm -rf '$work'" EXIT
    trap stop INT TERM HUP
    mkdir "$work/root"
    programs_archive "$work/programs" "$work/root"
    disk=$work/disk
    cat "$(image_folder)/initrd" "${@/#/$(image_folder)/}" "$work/programs" >"$disk"
    rm -rf "$work/programs" "$work/root"
}

# guest TIME LIMIT OPTIONS-FOR-THE-KERNEL QEMU-OPTION ...: one machine in place of this process, until
# it is switched off or LIMIT seconds are over (0: no limit). It has one processor: two of them run on two. On a busy host
# the emulated timer may be too late for the kernel's check of it, and is right all the same.
#
# In virtual TIME an instruction takes 2 ns, and when the guest has nothing to do, its clock jumps to
# the next timer. What happens is then nearly the same each time, however busy the host is.
#
# Processor and kernel leave out what emulation makes slow. Programs lie at the same addresses each
# time (norandmaps): at others the emulator would translate their code again at each start.
guest() {
    local time=$1 limit=$2 kernel_options=$3
    shift 3
    local clock=(-accel "${CORVID_LAB_ACCEL:-tcg,thread=multi}")
    if [ "$time" = virtual ]; then
        clock=(-accel "tcg,thread=single" -icount "shift=1,sleep=off" -rtc clock=vm)
    fi
    # Nobody waits for a guest by the clock, but other tests beside it do.
    exec nice -n 10 timeout --foreground "$limit" qemu-system-x86_64 -machine pc "${clock[@]}" -cpu qemu64,+rdrand \
        -m 256 -smp 1 -nodefaults -no-reboot -display none -kernel "$(image_folder)/vmlinux" \
        -initrd "$disk" -append "console=ttyS0 quiet loglevel=4 panic=-1 random.trust_cpu=on \
no_timer_check mitigations=off init_on_alloc=0 apparmor=0 cryptomgr.notests norandmaps \
$kernel_options" "$@"
}

# collect FOLDER: what the guest left there: its logs, unpacked.
collect() {
    tar -xzf "$1/logs.tar.gz" -C "$1" 2>/dev/null || true
    rm -f "$1/logs.tar.gz"
}

# run_case NAME [SECONDS [ACCOUNT]]: its output; the result is its exit status. SECONDS is how long it
# is to play, if it is one that can be told, and ACCOUNT one of those that "day" can give. A second
# run of the same case in this build folder waits for the first.
run_case() (
    name=$1 duration=${2:-} account=${3:-} out=$logs/$1${3:+-$3}
    exec 8>"$logs/.$(basename "$out").lock"
    flock 8
    limit=$(limit_of "$name") status=
    trap stop INT TERM HUP
    # What it waits for last may take a while.
    [ -z "$duration" ] || limit=$((duration + 1200))
    rm -rf "$out"
    mkdir -p "$out"
    : >"$out/status"
    # The guest ends a case that takes too long; the limit here is for a guest that does not, or whose
    # virtual time passes more slowly than the host's.
    guest "$(time_of "$name")" $((limit + 300)) \
        "lab.case=$name lab.limit=$limit${duration:+ lab.duration=$duration}\
${account:+ lab.account=$account}$(radios_of "$name")" \
        -serial "file:$out/console.log" -serial stdio -serial "file:$out/logs.tar.gz" \
        -serial "file:$out/status" </dev/null | tee "$out/output.log" &
    wait $! || true
    collect "$out"
    status=$(tr -dc 0-9 <"$out/status")
    if [ -z "$status" ]; then
        echo "not ok $name: the guest came to no end; its console:"
        tail -n 20 "$out/console.log" 2>/dev/null || true
    fi
    exit "${status:-1}"
)

# soak DURATION: plays that long.
soak() {
    local wanted="a number and 'min' or 'h', from 10min to 168h, such as 24h" seconds error=
    [ $# -eq 1 ] || fail "soak takes one duration: $wanted"
    [[ $1 =~ ^([1-9][0-9]{0,4})(min|h)$ ]] || fail "'$1' is no duration: $wanted"
    seconds=$((BASH_REMATCH[1] * 60))
    [ "${BASH_REMATCH[2]}" = min ] || seconds=$((seconds * 60))
    [ $seconds -ge 600 ] || error="too short"
    [ $seconds -le $((168 * 3600)) ] || error="too long"
    [ -z "$error" ] || fail "'$1' is $error: $wanted"
    make_disk
    run_case soak $seconds &
    wait $!
}

# day: what one costs.
day() {
    [ $# -eq 0 ] || fail "day takes no arguments"
    make_disk
    local account runs=() run
    echo "24 hours, two times: six minutes of a processor each"
    for account in timed counted; do
        run_case day 86400 $account >"$logs/.day-$account.output" &
        runs+=($!)
    done
    for run in "${runs[@]}"; do
        wait "$run" || fail "the day failed: $(tail -n 3 "$logs"/.day-*.output)"
    done
    lab/day.py "$logs/day-timed" "$logs/day-counted"
}

test_cases() {
    local name failed=()
    if [ $# -eq 0 ]; then
        # shellcheck disable=SC2046  # one word per case
        set -- $(longest_first)
    fi
    for name in "$@"; do
        case_names | grep -qxF -e "$name" ||
            fail "there is no case '$name'; cases: $(case_names | xargs)"
    done
    make_disk
    if [ $# -eq 1 ]; then
        run_case "$1" &
        wait $!
        return
    fi
    for name in "$@"; do
        while [ "$(jobs -rp | wc -l)" -ge 2 ]; do
            wait -n || true
        done
        (
            trap stop INT TERM HUP
            run_case "$name" >"$logs/.$name.output" &
            wait $! || true
            cat "$logs/.$name.output"
        ) &
    done
    wait
    for name in "$@"; do
        tail -n 1 "$logs/.$name.output" | grep -qx "ok $name" || failed+=("$name")
    done
    [ ${#failed[@]} -eq 0 ] || fail "failed: ${failed[*]} (lab/lab.sh log CASE shows the logs)"
    echo "all $# cases passed"
}

play() {
    [ $# -eq 1 ] || fail "play takes the file of a case"
    [ -f "$1" ] || fail "there is no file $1"
    played=$1
    make_disk
    run_case "$(basename -s .sh "$1")" &
    wait $!
}

shell() {
    local out=$logs/shell
    make_disk shell.archive
    rm -rf "$out"
    mkdir -p "$out"
    echo "lab: 'exit' ends the machine; so does Ctrl-A X"
    guest real 0 "" -serial "file:$out/console.log" -serial mon:stdio \
        -serial "file:$out/logs.tar.gz" -serial "file:$out/status" <&0 &
    wait $! || true
    collect "$out"
}

show_log() {
    if [ $# -eq 0 ]; then
        [ -d "$logs" ] || fail "no case has run yet"
        find "$logs" -name '*.log' -size +0 | sort
        return
    fi
    [ -d "$logs/$1" ] || fail "the case '$1' has not run yet"
    tail -n +1 "$logs/$1"/*.log
}

command=${1:-help}
shift || true
case $command in
    build) build_lab && echo "lab: the image is in $(image_folder)" ;;
    test) test_cases "$@" ;;
    soak) soak "$@" ;;
    day) day "$@" ;;
    play) play "$@" ;;
    shell) shell ;;
    log) show_log "$@" ;;
    list) sed -s -n '1s/^# //p' lab/cases/*.sh | paste -d'\t' <(case_names) - ;;
    -h | --help | help) usage ;;
    *)
        usage >&2
        exit 2
        ;;
esac
