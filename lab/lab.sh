#!/usr/bin/env bash
# A small virtual machine with a real Linux Wi-Fi stack (simulated radios of the kernel, Debian's
# supplicant and access point), in which the daemon runs as it was built for the host.
set -euo pipefail
start_folder=$PWD
cd "$(dirname "$0")/.."
. cmake/setup.sh
. lab/image.sh

usage() {
    cat <<'END'
usage: lab/lab.sh build             makes the guest's image, once: downloads a kernel and tools
       lab/lab.sh test [CASE ...]   runs these cases, or all, two at a time
       lab/lab.sh shell             a console in the guest, with everything running
       lab/lab.sh log [CASE]        shows the logs of the case's last run, or where all are
       lab/lab.sh list              the cases, a line each

Environment:
  CORVID_BUILD      the build folder whose programs run in the guest (build)
  CORVID_LAB_CACHE  where image and packages are kept (~/.cache/corvid-wifi-lab)
  CORVID_LAB_ACCEL  what QEMU runs the guest by (tcg: emulation, works everywhere; or kvm)
  CORVID_LAB        "optional": status 77 instead of 1 where the lab can't run
END
}

build=${CORVID_BUILD:-build}
case $build in
    /*) ;;
    *) [ -d "$build" ] || build=$start_folder/$build ;;
esac
logs=$build/lab
daemon='vendor.corvid.hardware.wifi@1.0-service'
# The guest's programs from the build folder.
programs=("$daemon" corvid-wifi corvid-statsd lab-capture lab-events lab-traffic)
preloads=(libdriver-commands.so)

case_names() { basename -s .sh lab/cases/*.sh; }

# limit_of CASE: how long it may take, in seconds.
limit_of() {
    local limit
    limit=$(sed -n 's/^# limit: \([0-9]*\) s$/\1/p' "lab/cases/$1.sh")
    echo "${limit:-100}"
}

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
    need_tools cpio depmod xz strip apt-get dpkg-deb sha256sum
    (build_image) || cannot "there is no image of the guest, see above"
}

# programs_archive FILE: what the guest runs from here: the build's programs with their libraries,
# and the lab's own scripts.
programs_archive() {
    local root program
    root=$(mktemp -d)
    mkdir -p "$root/usr/bin" "$root/lab" "$root/usr/lib"
    for program in "${programs[@]}"; do
        [ -f "$build/bin/$program" ] || fail "$build/bin/$program is not there: build it first"
        strip -o "$root/usr/bin/$program" "$build/bin/$program"
    done
    for program in "${preloads[@]}"; do
        strip --strip-unneeded -o "$root/usr/lib/$program" "$build/lib/$program"
    done
    copy_libraries "$root" "" "${programs[@]/#/$build/bin/}"
    cp lab/guest/init "$root/init"
    cp lab/guest/run-case lab/guest/*.sh "$root/lab/"
    cp -r lab/cases "$root/lab/"
    pack "$root" >"$1"
    rm -rf "$root"
}

# disk FILE: a RAM disk of the image's and the programs' archives; the kernel unpacks one after the
# other.
disk() {
    need_tools qemu-system-x86_64 cpio strip
    [ -f "$(image_folder)/initrd" ] || build_lab
    programs_archive "$1.programs"
    cat "$(image_folder)/initrd" "$1.programs" >"$1"
    rm -f "$1.programs"
}

# guest DISK LIMIT OPTIONS-FOR-THE-KERNEL QEMU-OPTION ...: one machine, until it is switched off or
# LIMIT seconds are over (0: no limit). It has one processor: two of them run on two.
guest() {
    local disk=$1 limit=$2 options=$3
    shift 3
    timeout --foreground "$limit" qemu-system-x86_64 -machine pc \
        -accel "${CORVID_LAB_ACCEL:-tcg,thread=multi}" -cpu max -m 256 -smp 1 -nodefaults -no-reboot \
        -display none -kernel "$(image_folder)/vmlinux" -initrd "$disk" -append "console=ttyS0 quiet \
loglevel=4 panic=-1 random.trust_cpu=on mitigations=off $options" "$@"
}

# collect FOLDER: what the guest left there: its logs, unpacked.
collect() {
    tar -xzf "$1/logs.tar.gz" -C "$1" 2>/dev/null || true
    rm -f "$1/logs.tar.gz"
}

# run_case DISK NAME: its output; the result is its exit status.
run_case() {
    local disk=$1 name=$2 out=$logs/$2 limit status
    limit=$(limit_of "$name")
    rm -rf "$out"
    mkdir -p "$out"
    # The guest ends a case that takes too long; the limit here is for a guest that does not.
    guest "$disk" $((limit + 30)) "lab.case=$name lab.limit=$limit" \
        -serial "file:$out/console.log" -serial stdio -serial "file:$out/logs.tar.gz" \
        -serial "file:$out/status" </dev/null | tee "$out/output.log" || true
    collect "$out"
    status=$(tr -dc 0-9 <"$out/status")
    if [ -z "$status" ]; then
        echo "not ok $name: the guest came to no end; its console:"
        tail -n 20 "$out/console.log"
    fi
    return "${status:-1}"
}

test_cases() {
    local name failed=() disk
    if [ $# -eq 0 ]; then
        # shellcheck disable=SC2046  # one word per case
        set -- $(longest_first)
    fi
    for name in "$@"; do
        [ -f "lab/cases/$name.sh" ] || fail "there is no case '$name'; cases: $(case_names | xargs)"
    done
    mkdir -p "$logs"
    disk=$(mktemp "$logs/disk.XXXXXX")
    # shellcheck disable=SC2064  # the name is not known later
    trap "rm -f '$disk' '$disk.programs'" EXIT
    disk "$disk"
    if [ $# -eq 1 ]; then
        run_case "$disk" "$1"
        return
    fi
    for name in "$@"; do
        while [ "$(jobs -rp | wc -l)" -ge 2 ]; do
            wait -n || true
        done
        (run_case "$disk" "$name" >/dev/null
            status=$?
            cat "$logs/$name/output.log"
            exit "$status") &
    done
    wait
    # shellcheck disable=SC2012
    for name in "$@"; do
        tail -n 1 "$logs/$name/output.log" | grep -q "^ok $name" || failed+=("$name")
    done
    [ ${#failed[@]} -eq 0 ] || fail "failed: ${failed[*]} (lab/lab.sh log CASE shows the logs)"
    echo "all $# cases passed"
}

shell() {
    local out=$logs/shell
    mkdir -p "$out"
    local disk
    disk=$(mktemp "$logs/disk.XXXXXX")
    # shellcheck disable=SC2064
    trap "rm -f '$disk' '$disk.programs'" EXIT
    disk "$disk"
    echo "lab: 'exit' ends the machine; so does Ctrl-A X"
    guest "$disk" 0 "" -serial "file:$out/console.log" -serial mon:stdio \
        -serial "file:$out/logs.tar.gz" -serial "file:$out/status"
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
    shell) shell ;;
    log) show_log "$@" ;;
    list) sed -s -n '1s/^# //p' lab/cases/*.sh | paste -d'\t' <(case_names) - ;;
    -h | --help | help) usage ;;
    *)
        usage >&2
        exit 2
        ;;
esac
