# shellcheck shell=bash
# A folder with another architecture's libraries and headers, to compile and emulate with: made of
# Debian packages that are downloaded and unpacked, never installed. To be sourced in the top
# folder, after setup.sh; all of it works as an ordinary user.

# Where they are kept between runs and shared by all clones. Each list of packages makes a root of its
# own. When one is made, those of the same machine are removed that no clone's ./test.sh has used since
# the time below. A build by hand does not count as use.
roots_unused_since="14 days ago"
system_roots=${CORVID_SYSTEM_ROOTS:-${XDG_CACHE_HOME:-${HOME:-/var/tmp}/.cache}/corvid-wifi-roots}

# The development packages of packages.txt that the device's sources and the tests are compiled
# with. The sanitizers' are this machine's own, and what only benchmarks use is not built.
root_packages() {
    sed 's/#.*//' packages.txt | xargs -n1 | grep -e '-dev$' |
        grep -vxE 'dpkg-dev|libclang-rt-dev|libboost-dev|libbenchmark-dev'
    echo g++
}

# root_folder ARCHITECTURE: where its system root is, or will be made.
root_folder() {
    echo "$system_roots/$1-$(root_packages | cat - cmake/system-root.sh /etc/os-release |
        sha256sum | cut -c1-16)"
}

# missing_lists ROOT: the file that says which lists of packages it was made without, if any.
missing_lists() { echo "$1/made-without-these-lists"; }

# make_root ARCHITECTURE: makes it, unless it is there, and notes that it is used. Says so each time if
# a mirror lacked a list of packages when it was made.
make_root() {
    local architecture=$1 folder
    folder=$(root_folder "$architecture")
    mkdir -p "$system_roots"
    # The lock is also held to note the use: no other clone removes the root at that moment.
    (
        flock 9
        if [ ! -d "$folder" ]; then
            unpack_root "$architecture" "$folder"
            remove_unused_roots "$architecture" "$folder"
        fi
        touch "$folder"
    ) 9>"$system_roots/lock"
    [ ! -e "$(missing_lists "$folder")" ] ||
        echo "The libraries of $architecture may be old; to download them anew, remove $folder. They" \
            "were downloaded without all lists of packages: $(cat "$(missing_lists "$folder")")"
}

# remove_unused_roots ARCHITECTURE FOLDER: all of that machine that were not used lately, but for
# FOLDER; also what is left of one that could not be made. The time of use is that of the inode's
# change: the one of the content's change is a package's where the use was not noted yet. They are moved
# first, so that no half removed one is taken for a root.
remove_unused_roots() {
    local removed=$system_roots/removed
    rm -rf "$removed"
    mkdir "$removed"
    find "$system_roots" -maxdepth 1 -name "$1-*" ! -path "$2" ! -newerct "$roots_unused_since" \
        -exec mv -t "$removed" {} +
    rm -rf "$removed"
}

# complaints LOG: apt's errors in it, on one line.
complaints() { sed -n 's/^E: *//p' "$1" | paste -sd '|' | sed 's/|/; /g'; }

unpack_root() {
    local architecture=$1 folder=$2 work=$2.work package library link
    rm -rf "$work"
    mkdir -p "$work"/{root/usr/lib,lists/partial,archives/partial}
    # usr is merged: packages of both kinds go to one place.
    ln -s usr/lib "$work/root/lib"
    local apt=(apt-get -q -o "APT::Architecture=$architecture"
        -o "APT::Architectures=$architecture" -o "Dir::State::Lists=$work/lists"
        -o Dir::State::status=/dev/null -o "Dir::Cache=$work" -o Debug::NoLocking=true
        -o APT::Sandbox::User= -o APT::Install-Recommends=false)
    echo "Downloading the libraries of $architecture"
    # A mirror that is being brought up to date may lack the list of one suite for a day. What the
    # others have will do, though it may be older.
    "${apt[@]}" update --error-on=any >"$work/log" 2>&1 ||
        complaints "$work/log" >"$(missing_lists "$work/root")"
    # shellcheck disable=SC2046  # one word per package
    "${apt[@]}" install --download-only -y $(root_packages) >>"$work/log" 2>&1 ||
        fail "the packages of $architecture could not be downloaded: $(complaints "$work/log"); see \
$work/log"
    for package in "$work/archives"/*.deb; do
        dpkg-deb --fsys-tarfile "$package" | tar -x -C "$work/root" --keep-directory-symlink \
            --exclude=./etc --exclude=./var --exclude=./usr/share/doc --exclude=./usr/share/man ||
            fail "$package could not be unpacked"
    done
    # What leads to a place of the root by its whole path would lead out of it.
    find "$work/root" -type l -lname '/*' | while read -r link; do
        ln -sfnr "$work/root$(readlink "$link")" "$link"
    done
    # The platform's libraries are in a folder of their own. armhf's loader asks by statx() whether
    # it is there, which the emulator does not lead into the root.
    for library in "$work/root/usr/lib"/*/android/*.so.*; do
        [ -e "$library" ] || fail "the packages of $architecture have brought no liblog"
        ln -sr "$library" "$(dirname "$(dirname "$library")")"
    done
    mv "$work/root" "$folder"
    rm -rf "$work"
}
