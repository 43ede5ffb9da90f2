# shellcheck shell=bash
# What the guest boots: a kernel and an initial RAM disk made of Debian packages, which are
# downloaded and unpacked, never installed. To be sourced; all of it works as an ordinary user.

# Where packages and images are kept between runs and shared by all clones.
cache=${CORVID_LAB_CACHE:-${XDG_CACHE_HOME:-${HOME:-/var/tmp}/.cache}/corvid-wifi-lab}

# Programs of the guest that come from packages, with what they need. busybox is the rest.
guest_packages=(busybox-static hostapd iw wireless-regdb wpasupplicant)
guest_programs=(/usr/sbin/hostapd /usr/sbin/iw /sbin/iw /usr/sbin/wpa_supplicant /sbin/wpa_supplicant
    /usr/sbin/wpa_cli /sbin/wpa_cli /usr/sbin/hostapd_cli)

# More of them for whoever works in its shell. They are an archive of their own: what a case does not
# need, it need not unpack.
shell_packages=(strace tcpdump)
shell_programs=(/usr/bin/strace /usr/bin/tcpdump /usr/sbin/tcpdump)

# Kernel modules of the guest: the radios and their ciphers, which the kernel asks for by algorithm,
# so that nothing depends on them. What these depend on comes along.
guest_modules=(mac80211_hwsim ccm cmac ctr)

# The packages above and those of the packages they need that this machine lacks.
wanted_packages() {
    local kernel
    kernel=$(apt-cache depends "linux-image-$(dpkg --print-architecture)" 2>/dev/null |
        awk '/Depends: linux-image-/ {print $2; exit}')
    [ -n "$kernel" ] || return 1
    local needed
    needed=$(apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts --no-breaks \
        --no-replaces --no-enhances --no-pre-depends "${guest_packages[@]}" \
        "${shell_packages[@]}" |
        grep -E '^lib[a-z0-9.+-]*$' | sort -u)
    # shellcheck disable=SC2086  # one word per package
    comm -23 <(echo "$needed") <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' $needed \
        2>/dev/null | sed -n 's/^installed //p' | sort -u)
    echo "$kernel"
    printf '%s\n' "${guest_packages[@]}" "${shell_packages[@]}"
}

# download PACKAGE ...: into this folder. What apt knows of the archive may be older than the archive.
download() {
    apt-get -qq download "$@" 2>"$cache/apt.log" ||
        { [ "$(id -u)" -eq 0 ] && apt-get -qq update 2>>"$cache/apt.log" &&
            apt-get -qq download "$@" 2>"$cache/apt.log"; }
}

# unpack_packages FOLDER: downloads them and unpacks them there.
unpack_packages() {
    local folder=$1 packages
    packages=$(wanted_packages) ||
        fail "apt knows no kernel package: 'apt-get update' (as root) tells it what there is"
    mkdir -p "$cache/packages" "$folder"
    # shellcheck disable=SC2086
    (cd "$cache/packages" && rm -f ./*.deb && download $packages) ||
        fail "packages could not be downloaded: $(grep -m1 ^E: "$cache/apt.log")"
    local package
    for package in "$cache/packages"/*.deb; do
        dpkg-deb -x "$package" "$folder"
    done
    rm -f "$cache/packages"/*.deb
}

# kernel_image VMLINUZ OUT: the kernel as it is before it is packed. QEMU starts it as it is, which
# under emulation saves the guest some seconds of unpacking.
kernel_image() {
    local start
    start=$(LC_ALL=C grep -abom1 $'\xfd7zXZ' "$1" | head -1 | cut -d: -f1)
    if [ -n "$start" ] && tail -c "+$((start + 1))" "$1" | xz -dcq >"$2" 2>/dev/null; [ -s "$2" ]; then
        strip --strip-debug "$2" 2>/dev/null || true
    else
        cp "$1" "$2"  # packed in another way: slower, but it starts too
    fi
}

# copy_libraries ROOT SYSTEM PROGRAM ...: the shared libraries of programs, taken from the folder
# SYSTEM where it has them, go into ROOT at the paths at which their loader looks for them.
copy_libraries() {
    local root=$1 system=$2 libraries=x86_64-linux-gnu path
    shift 2
    LD_LIBRARY_PATH=${system:+$system/usr/lib/$libraries:$system/lib/$libraries} ldd "$@" |
        awk '$2 == "=>" && $3 ~ /^\// {print $3} $1 ~ /^\// && !/:$/ {print $1}
             /not found/ {print "missing:" $1}' | sort -u |
        while read -r path; do
            case $path in
                missing:*) fail "no package brought the library ${path#missing:}" ;;
            esac
            local place=${path#"$system"}
            case $place in
                /lib*) place=/usr$place ;;
            esac
            mkdir -p "$root$(dirname "$place")"
            cp -L "$path" "$root$place"
        done
}

# copy_programs ROOT SYSTEM PROGRAM ...: those that the folder SYSTEM has, with their libraries.
copy_programs() {
    local root=$1 system=$2 program programs=()
    shift 2
    for program in "$@"; do
        if [ -f "$system$program" ]; then
            cp "$system$program" "$root/usr/sbin/"
            programs+=("$system$program")
        fi
    done
    copy_libraries "$root" "$system" "${programs[@]}"
}

# load_order MODULES-FOLDER MODULE ...: their files, each after those it depends on.
load_order() {
    local folder=$1
    shift
    awk -v wanted="$*" '
        function name(path) { sub(".*/", "", path); sub("\\.ko.*", "", path); gsub("-", "_", path)
                              return path }
        function load(path,    list, i, count) {
            if (path in done) return
            done[path] = 1
            count = split(needs[path], list, " ")
            for (i = count; i > 0; --i) load(list[i])
            print path
        }
        { path = $1; sub(":$", "", path); $1 = ""; needs[path] = $0; byName[name(path)] = path }
        END {
            count = split(wanted, list, " ")
            for (i = 1; i <= count; ++i) if (list[i] in byName) load(byName[list[i]])
        }' "$folder/modules.dep"
}

# pack FOLDER: an archive of it on standard output, as the kernel wants its first root folder.
pack() { (cd "$1" && find . -mindepth 1 -print0 | sort -z | cpio -0 -o -H newc -R 0:0 --quiet); }

# The folder of the image that this recipe makes. It does not change with newer packages.
# A guest of another release would not fit to the programs that are built here.
image_folder() {
    echo "$cache/$(cat lab/image.sh /etc/os-release | sha256sum | cut -c1-16)"
}

# Makes vmlinux and initrd in that folder, unless they are there.
build_image() {
    local image
    image=$(image_folder)
    [ ! -f "$image/initrd" ] || return 0
    mkdir -p "$cache"
    (
        flock 9
        [ -f "$image/initrd" ] || make_image "$image"
    ) 9>"$cache/lock"
}

make_image() {
    local image=$1 work=$1.work
    rm -rf "$work"
    mkdir -p "$work"
    echo "lab: downloading a kernel and tools"
    unpack_packages "$work/system"
    local system=$work/system root=$work/root version program
    version=$(cd "$system"/lib/modules 2>/dev/null || cd "$system"/usr/lib/modules && echo *)
    local modules
    modules=$(dirname "$(find "$system" -path "*/lib/modules/$version/modules.order")")

    echo "lab: making the image (Linux $version)"
    kernel_image "$system/boot/vmlinuz-$version" "$work/vmlinux"

    mkdir -p "$root"/usr/{bin,sbin,lib,lib64} "$root"/{dev,proc,sys,tmp,etc,data,lab}
    ln -s usr/bin usr/sbin usr/lib usr/lib64 "$root"
    cp "$(find "$system" -path '*/bin/busybox')" "$root/usr/bin/busybox"
    for program in $("$root/usr/bin/busybox" --list); do
        [ "$program" = busybox ] || ln -s busybox "$root/usr/bin/$program"
    done
    copy_programs "$root" "$system" "${guest_programs[@]}"
    mkdir -p "$work/shell"/usr/{sbin,lib}
    copy_programs "$work/shell" "$system" "${shell_programs[@]}"

    mkdir -p "$root/usr/lib/firmware" "$root/lab/modules"
    local file
    for file in regulatory.db regulatory.db.p7s; do
        # The kernel trusts its distributor's signature.
        cp "$(find "$system" -name "$file-debian")" "$root/usr/lib/firmware/$file"
    done
    depmod=$(PATH=$PATH:/usr/sbin:/sbin command -v depmod)
    "$depmod" -b "$(dirname "$(dirname "$(dirname "$modules")")")" "$version"
    load_order "$modules" "${guest_modules[@]}" | while read -r file; do
        cp "$modules/$file" "$root/lab/modules/"
        file=$(basename "$file")
        case $file in
            *.xz) xz -d "$root/lab/modules/$file" && file=${file%.xz} ;;
        esac
        # Their signatures go too: under emulation it takes the kernel a second to check them.
        strip --strip-debug "$root/lab/modules/$file"
        echo "$file"
    done >"$root/lab/modules/order"
    grep -qx mac80211_hwsim.ko "$root/lab/modules/order" ||
        fail "the kernel package has no simulated radios"

    # What the guest has anyway.
    (cd "$work/shell" && find . -type f) | while read -r file; do
        [ ! -e "$root/$file" ] || rm "$work/shell/$file"
    done
    pack "$root" >"$work/initrd"
    pack "$work/shell" >"$work/shell.archive"
    rm -rf "$image"
    mkdir "$image"
    mv "$work/vmlinux" "$work/initrd" "$work/shell.archive" "$image/"
    rm -rf "$work"
}
