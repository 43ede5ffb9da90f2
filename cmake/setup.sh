# shellcheck shell=bash
# What run.sh and test.sh share: Debian packages and the build. To be sourced in the top folder.

# Says in one line why it can't go on, and ends.
fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# missing_packages FILE: the Debian packages of the list that are not installed.
missing_packages() {
    local wanted
    wanted=$(sed 's/#.*//' "$1" | xargs -n1 | sort -u)
    # shellcheck disable=SC2086  # one word per package
    comm -23 <(echo "$wanted") <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' $wanted \
        2>/dev/null | sed -n 's/^installed //p' | sort -u) | xargs
}

# install_packages FILE: installs those that are missing; quick and silent when none is.
install_packages() {
    # shellcheck disable=SC2015  # fails when either is missing, as it should
    command -v dpkg-query >/dev/null && command -v apt-get >/dev/null ||
        fail "needs Debian 12 or newer: there is no dpkg and apt-get here"
    local missing
    missing=$(missing_packages "$1")
    [ -n "$missing" ] || return 0
    local root=""
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null ||
            fail "missing packages, and neither root nor sudo to install them: $missing"
        root="sudo"
    fi
    echo "Installing Debian packages: $missing"
    # shellcheck disable=SC2086
    $root env DEBIAN_FRONTEND=noninteractive sh -c '
        apt-get -qq update &&
        apt-get -qq install -y --no-install-recommends "$@" >/dev/null' sh $missing ||
        fail "these packages could not be installed: $(missing_packages "$1")"
}

# folder_of PRESET: where CMakePresets.json has it built.
folder_of() {
    if [ "$1" = gcc ]; then echo build; else echo "build-$1"; fi
}

# drop_foreign FOLDER: removes a build folder that was made in another place, as in a checkout that
# was copied or moved, or for another system root. Every path in it leads to the old one.
drop_foreign() {
    local entry path here
    for entry in "CMAKE_HOME_DIRECTORY ." "CMAKE_CACHEFILE_DIR $1" \
        "CORVID_SYSTEM_ROOT ${CORVID_SYSTEM_ROOT:-}"; do
        path=$(sed -n "s/^${entry%% *}:[A-Z]*=//p" "$1/CMakeCache.txt" 2>/dev/null) || return 0
        if [ -z "$path" ] || [ -z "${entry#* }" ]; then
            continue
        fi
        here=$(realpath -m "${entry#* }")
        if [ "$(realpath -m "$path")" != "$here" ]; then
            echo "$1 was made for $path: beginning anew"
            rm -rf "$1"
            return 0
        fi
    done
}

# build PRESET [TARGET ...]: configures once, builds what is not up to date. Silent when there is
# nothing to do.
build() {
    local preset=$1 folder
    folder=$(folder_of "$preset")
    shift
    drop_foreign "$folder"
    if [ ! -f "$folder/build.ninja" ]; then
        echo "Configuring $folder"
        cmake --preset "$preset" >"$folder.log" 2>&1 ||
            fail "cmake could not configure $folder: see $folder.log"
        mv "$folder.log" "$folder/configure.log"
    fi
    if ! ninja -C "$folder" -n "$@" 2>&1 | grep -q 'no work to do'; then
        ninja -C "$folder" "$@" || fail "the build in $folder failed, see above"
    fi
}
