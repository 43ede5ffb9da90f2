#!/usr/bin/env bash
# Builds everything and runs the tests: those of the gcc build and the lab's, or with --all also
# those under clang's sanitizers, and clang-tidy. Ends with ctest's summary,
# and with what those said that failed.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/setup.sh

usage() {
    cat <<'END'
usage: ./test.sh [--all | --arm64 | --armhf] [OPTION ...] [-- CTEST-OPTION ...]
       ./test.sh --package
       ./test.sh --toolchains [ROW ...]

Installs what is missing, builds, and runs the tests, the virtual machine's included.

  --all      also under the address and the thread sanitizer, and clang-tidy
  --arm64    in place of that the tests compiled for arm64, by emulation on amd64; their names begin
             with aarch64.
  --armhf    the same for a machine with words of 32 bits; their names begin with arm.
  --package  in place of that the Debian package, in a fresh Debian; as root, and a few minutes
  --toolchains
             in place of that the daemon by the platform's toolchains, a row for each: compilers of
             several ages, libc++, an image's checks. Some rows run the unit tests too. Debian 12
             has all the compilers.
  -R REGEX   only tests whose names match: ./test.sh -R TxPower
  -E REGEX   no tests whose names match
  -L REGEX   only tests with such a label (lab, tidy)
  -LE REGEX  no tests with such a label: ./test.sh -LE lab
  -j N       so many tests at a time (default: four per processor; most of them wait. Emulated ones
             two per processor)
  -V         all output of the tests
  -N         lists the tests in place of running them
  --help
  what follows -- goes to ctest as it is: ./test.sh -- --rerun-failed
END
}

kind=  # which of the options that stand for a run of their own
rows=()
jobs=$((4 * $(nproc)))
jobs_given=false
without=()  # labels
excluded=
options=()

# choose KIND: one run is one of them.
choose() {
    [ -z "$kind" ] || fail "--$kind and --$1 are runs of their own; see ./test.sh --help"
    kind=$1
}

while [ $# -gt 0 ]; do
    case $1 in
        -h | --help)
            usage
            exit 0
            ;;
        --all | --arm64 | --armhf | --package | --toolchains) choose "${1#--}" ;;
        -V | -N) options+=("$1") ;;
        -R | -E | -L | -LE | -j)
            [ $# -ge 2 ] || fail "$1 needs a value; see ./test.sh --help"
            case $1 in
                -LE) without+=("$2") ;;
                -j) jobs=$2 jobs_given=true ;;
                -E) excluded=$2 ;;
                *) options+=("$1" "$2") ;;
            esac
            shift
            ;;
        --)
            shift
            options+=("$@")
            break
            ;;
        *)
            if [ "$kind" != toolchains ] || [[ $1 = -* ]]; then
                fail "there is no option $1; see ./test.sh --help"
            fi
            rows+=("$1")
            ;;
    esac
    shift
done
case $jobs in '' | *[!0-9]* | 0) fail "-j needs a number from 1; see ./test.sh --help" ;; esac
filtered=false
[ ${#options[@]} -eq 0 ] && [ ${#without[@]} -eq 0 ] && [ -z "$excluded" ] || filtered=true
case $kind in
    package | toolchains)
        if $filtered || $jobs_given; then
            fail "--$kind takes no options; see ./test.sh --help"
        fi
        ;;
esac

# labels_without: adds what leaves out the labels of `without` to the options.
labels_without() {
    [ ${#without[@]} -eq 0 ] ||
        options=(-LE "$(IFS='|' && echo "${without[*]}")" "${options[@]}")
}

# emulated MACHINE: builds for it, and runs what an emulator of the processor can run. The kernel
# stays this machine's, so some tests are left out; cmake/cross/left-out.txt says why.
emulated() {
    local machine=$1
    . cmake/system-root.sh
    # Emulation keeps a processor busy where a program would wait.
    $jobs_given || jobs=$((2 * $(nproc)))
    echo "The tests compiled for $machine, by emulation: an hour of a processor at the first run."
    install_packages packages.txt
    install_packages cmake/cross/packages.txt
    make_root "$machine"
    CORVID_SYSTEM_ROOT=$(root_folder "$machine")
    export CORVID_SYSTEM_ROOT
    build gcc  # it says which tests there are to be
    build "$machine"
    labels_without
    cmake/cross/run_tests.py "$machine" build "build-$machine" \
        ${excluded:+--exclude "$excluded"} -j "$jobs" "${options[@]}"
    echo "$machine: $SECONDS s"
}
case $kind in
    arm64 | armhf)
        emulated "$kind"
        exit
        ;;
    toolchains)
        # Which names the rows, if one is not right.
        command -v python3 >/dev/null || install_packages packages.txt
        exec python3 -B tests/toolchains/toolchains.py "${rows[@]}"
        ;;
esac

# Not one of ctest's tests: it unpacks a Debian, and boots it.
if [ "$kind" = package ]; then
    install_packages packages.txt
    install_packages tests/install/packages.txt
    build gcc
    CORVID_BUILD=$PWD/build CORVID_PACKAGE=required exec python3 -B tests/install/test_fresh_debian.py -v
fi

# One run of ctest over the tests of every build folder, so that there is one summary.
summary=build/all
# How long the last run took that was neither cut short nor filtered.
took=$summary/seconds
if [ "$kind" = all ]; then
    presets=(gcc address thread)
    took+=-all
    echo "Every test, under both sanitizers too, and clang-tidy. From a fresh clone on two" \
        "processors this is to take 25 minutes at most."
else
    presets=(gcc)
    without+=(tidy)
    echo "Every test that needs no sanitizer. From a fresh clone on two processors this is to take" \
        "10 minutes at most. (./test.sh --all: the sanitizers and clang-tidy too.)"
fi
[ ! -f $took ] || echo "The last full run here took $(($(cat $took) / 60 + 1)) min."

install_packages packages.txt
# The lab's tests are skipped where it can't run. CORVID_LAB=required makes them fail.
export CORVID_LAB=${CORVID_LAB:-optional}
(install_packages lab/packages.txt) || echo "The lab's tests can't run."
(install_packages tests/trace/packages.txt) ||
    echo "Without a browser the report's tests are skipped."
# While the programs are compiled.
lab/lab.sh build >/dev/null &

for preset in "${presets[@]}"; do
    build "$preset"
done
wait
mkdir -p $summary
for preset in "${presets[@]}"; do
    echo "subdirs(\"../../$(folder_of "$preset")\")"
done >$summary/CTestTestfile.cmake

unshare -n true 2>/dev/null || unshare -Urn true 2>/dev/null ||
    echo "No network namespace can be made here: the tests that need one will be skipped."

run=()
# Where the kernel spreads a program over more of its memory than clang's thread sanitizer expects,
# a program of that build ends at once.
setarch -R true 2>/dev/null && run=(setarch -R)
labels_without
report=$PWD/$summary/report.xml
rm -f "$report"
status=0
# Without the size ctest would cut off the last lines of one that says much.
"${run[@]}" ctest --test-dir $summary -j "$jobs" --output-on-failure --no-label-summary --no-tests=error \
    --test-output-size-failed 10000000 --output-junit "$report" ${excluded:+-E "$excluded"} "${options[@]}" </dev/null || status=$?
if [ $status -ne 0 ] && [ -f "$report" ]; then
    python3 -B cmake/tell_failures.py "$report" || true  # the status is the tests'
fi
$filtered || echo $SECONDS >$took
exit $status
