#!/usr/bin/env bash
# Builds everything and runs every test that needs no special hardware: compiled by gcc, then by
# clang with the address and undefined-behaviour sanitizers and with the thread sanitizer; sources
# are checked by clang-format and clang-tidy. Ends with ctest's summary of all of it.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/setup.sh

usage() {
    cat <<'END'
usage: ./test.sh [--quick] [CTEST-OPTION ...]

Installs what is missing, builds, and runs the tests.

  --quick  only the build by gcc: neither the sanitizers, nor clang-tidy, nor the lab
  --help
  other options go to ctest: -R Poll (only tests whose names contain Poll), -V (all output), ...
END
}

quick=false
case ${1:-} in
    --quick)
        quick=true
        shift
        ;;
    -h | --help)
        usage
        exit 0
        ;;
esac

install_packages packages.txt
# The lab's tests are skipped where it can't run. CORVID_LAB=required makes them fail.
export CORVID_LAB=${CORVID_LAB:-optional}
if ! $quick; then
    (install_packages lab/packages.txt) || echo "The lab's tests can't run."
    # While the programs are compiled.
    lab/lab.sh build >/dev/null &
fi

folders=(build)
build build
if ! $quick; then
    for sanitizer in address thread; do
        build "build-$sanitizer" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
            "-DCORVID_SANITIZE=$sanitizer"
        folders+=("build-$sanitizer")
    done
fi

wait

# One run of ctest over the tests of every build folder, so that there is one summary.
mkdir -p build/all
for folder in "${folders[@]}"; do
    echo "subdirs(\"../../$folder\")"
done >build/all/CTestTestfile.cmake

unshare -n true 2>/dev/null || unshare -Urn true 2>/dev/null ||
    echo "No network namespace can be made here: the tests that need one will be skipped."

run=()
# Where the kernel spreads a program over more of its memory than clang's thread sanitizer expects,
# a program of that build ends at once.
setarch -R true 2>/dev/null && run=(setarch -R)
only=()
$quick && only=(-LE 'tidy|lab')
# Most tests wait for something most of the time.
exec "${run[@]}" ctest --test-dir build/all -j "$((4 * $(nproc)))" --output-on-failure \
    --no-label-summary "${only[@]}" "$@" </dev/null
