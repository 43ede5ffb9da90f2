# The words that cases are written in, for busybox's shell. A case runs the unmodified daemon beside
# the real supplicant (radio 0: wlan0 and p2p0) and, as far as it asks for them, a real access point
# (radio 1: wlan1) and a P2P peer (radio 2: wlan2).
#
# Logs are in /lab/log/NAME.log and are named here without folder and ending:
#   daemon      the daemon's log lines
#   sta, p2p    the supplicant's events on wlan0 and p2p0, as any control client gets them
#   requests    what the supplicant was asked: "MS INTERFACE REQUEST", and " -> ANSWER" behind the
#               private commands that went to the driver
#   monitor     what a registered client of the service was called back with
#   supplicant, access-point, peer, statistics   those programs' own output

sockets=/data/vendor/wifi/wpa/sockets
atoms=/data/misc/stats/atoms.jsonl
controllers=/data/vendor/sensors/controller_blocklist
access_point_address=02:00:00:00:01:00
pass=correct-horse
# Where they all are; a case may say otherwise before it starts one.
country=US
# Whether the driver numbers its answers ("OK 170.3"): set, each can be told from another's.
numbered_answers=
# Which of the daemon's lines are in its log.
log_tags="*:D"
# Whether the logs sta, p2p and requests are kept. If not, the supplicant has no monitor but the
# daemon.
followed=yes
# What the supplicant spends for the answers to private commands, which are the lab's: nanoseconds.
answers_time=/lab/answers-time
# How long anything may take that is waited for, seconds. Emulation on a busy machine is slow.
patience=60

# The daemon runs as init starts it on the device: by the service's script and its seccomp policy,
# with what this machine's processor and C library want beside it.
service=/lab/service.rc
policies=/lab/service.policy,/lab/host.policy
# Clients and the statistics service run as the daemon's user: a host's HIDL runtime trusts no other.
as_wifi="lab-confine -c - $service"
# Other options of lab-confine, for the cases that want some.
confinement=
# The file in which a daemon counts its memory, for the cases that want that; see count_memory.
export LAB_LIVE_MEMORY=/lab/live-memory

followers=
# More lines for the access point's configuration, for the cases that want some.
access_point_options=

# What the script has init make, and what belongs to the daemon's user because on a host the library
# of another service uses it in the daemon's process.
wifi=1010
sed -n 's/^ *mkdir //p' $service | while read -r folder mode _; do
    mkdir -p -m "$mode" "$folder"
    chown $wifi:$wifi "$folder"
done
mkdir -p /lab/etc /dev/__properties__ /dev/hwbinder /data/vendor/sensors /data/misc/stats
chown $wifi:$wifi /dev/hwbinder /data/vendor/sensors /data/misc/stats
chmod 1777 /tmp
chmod 777 /lab/log
# Replies to a control client of root's go to a socket of root's, from a supplicant that is not root.
umask 0
# On the device the folder belongs to init and stays. Debian's supplicant removes it where it can:
# when it is empty.
touch $sockets/.keep

# --- telling ---

# step TEXT: a line of the case's output, with the seconds since the machine's start.
step() {
    local now rest
    read -r now rest </proc/uptime
    echo "# $now $*"
}

# uptime_s: the whole ones of them.
uptime_s() {
    local now rest
    read -r now rest </proc/uptime
    echo "${now%.*}"
}

fail() {
    verdict="not ok"
    echo "not ok $case: $*"
    forbidden_calls
    exit 1
}

# forbidden_calls: those that a seccomp policy has kept programs from, each once; the kernel logs the
# numbers.
forbidden_calls() {
    dmesg | sed -n 's/.*type=1326 .* comm="\([^"]*\)" .* syscall=\([0-9]*\) .*/\2 \1/p' | sort -u |
        while read -r number program; do
            echo "$program made the system call $number, $(lab-confine -s "$number"), which its" \
                "seccomp policy does not allow" \
                "(device/vendor.corvid.hardware.wifi@1.0-service.policy, lab/guest/host.policy)"
        done
}

finish() {
    ! grep ": not found$" /lab/log/shell.log || fail "there is no such word"
    verdict="ok"
    echo "ok $case"
    exit 0
}

# --- comparing ---

log_of() { echo "/lab/log/$1.log"; }

# Each log has a place up to which it was read, in bytes. expect LOG TEXT: waits for a line with this
# text behind it and reads on up to that line, so that one expect after the other asserts an order.
# $line is the line.
expect() { read_up_to "$1" anywhere "$2"; }

# told TEXT: the same, for a line of the daemon whose message is exactly that.
told() { read_up_to daemon message "$1"; }

read_up_to() {
    local file found start
    file=$(log_of "$1")
    eval "start=\${read_$1:-0}"
    found=$(lab-expect "$file" "$start" "$2" "$3" $patience) ||
        fail "no line '$3' in $1 behind byte $start:
$(tail -c "+$((start + 1))" "$file" | tail -n 30)"
    eval "read_$1=${found%% *}"
    line=${found#* }
}

# expect_next LOG TEXT: the very next line has the text.
expect_next() {
    local before
    eval "before=\${read_$1:-0}"
    expect "$1" "$2"
    eval "[ \$read_$1 -eq $((before + ${#line} + 1)) ]" ||
        fail "other lines in $1 before '$2':
$(tail -c "+$((before + 1))" "$(log_of "$1")" | head -n 10)"
}

# never LOG TEXT: no line has it behind the place that was read.
never() {
    local start
    eval "start=\${read_$1:-0}"
    ! tail -c "+$((start + 1))" "$(log_of "$1")" | grep -F -e "$2" || fail "'$2' in $1"
}

# end_of LOG: how far it can be read now.
end_of() { stat -c %s "$(log_of "$1")"; }

# forget LOG ...: what is in it so far does not matter.
forget() {
    local log
    for log in "$@"; do
        eval "read_$log=$(end_of "$log")"
    done
}

# same WHAT IS EXPECTED
same() { [ "$2" = "$3" ] || fail "$1 is '$2' instead of '$3'"; }

# has WHAT TEXT PART
has() {
    case $2 in
        *"$3"*) ;;
        *) fail "$1 has no '$3': $2" ;;
    esac
}

# until_true COMMAND ...: waits until it succeeds, and asks less and less often.
until_true() {
    local deadline pause=50
    deadline=$(($(uptime_s) + patience))
    until "$@" >/dev/null 2>&1; do
        [ "$(uptime_s)" -lt $deadline ] || fail "never true: $*"
        usleep ${pause}000
        [ $pause -ge 800 ] || pause=$((pause * 2))
    done
}

# complaints: what the daemon complained of (its warnings and errors), each once, but for attempts
# to connect that came too early.
complaints() {
    sed -n 's/^[^ ]* [WEF] [^ ]* [^ ]* *[0-9]* *[0-9]* //p' "$(log_of daemon)" |
        grep -v '^\[WPA-[A-Z0-9]*\] Failed to open wpa_supplicant control interface\.$' | sort -u
}

# The same, but for the managers that are off, of which each dump complains.
complaints_beside_dumps() {
    complaints | grep -v '^CorvidWifiManager: [A-Za-z0-9]* does not exist\.$'
}

# The private commands that came to the driver, with their answers, without the times.
driver_commands() { sed -n 's/^[0-9]* \([^ ]* DRIVER .*\)/\1/p' "$(log_of requests)"; }

# --- the headset ---

# property NAME VALUE, without the "persist.vendor.wifi." before it
property() {
    echo "$2" >"/dev/__properties__/.new"
    mv "/dev/__properties__/.new" "/dev/__properties__/persist.vendor.wifi.$1"
}

# every_feature: on, but for per-chain limits, which are sent in place of the power steps: the radio
# has none.
every_feature() {
    local feature
    for feature in cmd.cs.p2p.ecsa cmd.cs.p2p.corvid cmd.elna.bypass.mode cmd.noa.p2p \
        cmd.mcc.quota cmd.mcc.p2p.increase.bw devparams.enable frequency.block.enable \
        mipiclock.enable scs.enable txchain.enable.p2p txchain.qualcomm txpower.enable.sta \
        txpower.enable.p2p txpower.enable.handtracking telemetry.enable powerjump.detect.enable \
        im3.mitigation.band2g; do
        property $feature true
    done
}

# background LOG COMMAND ...: its output goes to the log. $pid is its process.
background() {
    local log
    log=$(log_of "$1")
    shift
    "$@" >>"$log" 2>&1 </dev/null &
    pid=$!
}

start_daemon() {
    if [ ! -e "$(log_of statistics)" ]; then
        background statistics $as_wifi corvid-statsd
        expect statistics ready
    fi
    # shellcheck disable=SC2086  # one word per option
    ANDROID_LOG_TAGS=$log_tags background daemon lab-confine ${policies:+-p $policies} $confinement \
        $service vendor.corvid.hardware.wifi@1.0-service
    daemon=$pid
    until_true $as_wifi corvid-wifi call getP2pInfo
}

# A client of the service, from now on.
start_monitor() {
    background monitor $as_wifi corvid-wifi monitor
    monitor=$pid
    expect monitor '{"event":"registered"}'
}

call() { $as_wifi corvid-wifi call "$@" || true; }
dump() { $as_wifi corvid-wifi dump; }

# runs PROCESS. One that has ended and is not waited for yet is a zombie, which kill finds too.
runs() { grep -q '^State:[[:space:]]*[RSDTt]' "/proc/$1/status" 2>/dev/null; }

# still_runs: the daemon is the process that it was.
still_runs() { runs "$daemon" || fail "the daemon has ended"; }

# --- the daemon's figures ---

descriptors() { ls "/proc/$daemon/fd" | wc -l; }
threads() { ls "/proc/$daemon/task" | wc -l; }
# Anonymous memory in kB; the sums in "status" are not exact.
memory() { sed -n 's/^Anonymous: *\([0-9]*\) kB/\1/p' "/proc/$daemon/smaps_rollup"; }

# count_memory: the daemon that is started next counts what it allocates and frees.
count_memory() {
    : >$LAB_LIVE_MEMORY
    chown $wifi $LAB_LIVE_MEMORY
    confinement="$confinement -w /usr/lib/liblive-memory.so"
}

# live_memory: what it has allocated and not freed, in bytes.
live_memory() { od -A n -t d8 -N 8 $LAB_LIVE_MEMORY | tr -d ' '; }

descriptors_and_threads() { echo "$(descriptors) $(threads)"; }
# rests: it has as many of both as a case has noted in $at_rest.
rests() { [ "$(descriptors_and_threads)" = "$at_rest" ]; }

# --- the supplicant ---

# start_supplicant: as on the headset it has the daemon's user, and p2p0 on the same radio, on which
# P2P groups run themselves.
start_supplicant() {
    [ -e /sys/class/net/p2p0 ] || iw phy phy0 interface add p2p0 type managed addr 02:00:00:00:00:01
    cat >/lab/etc/wlan0.conf <<END
ctrl_interface=$sockets
update_config=1
country=$country
p2p_disabled=1
END
    cat >/lab/etc/p2p0.conf <<END
ctrl_interface=$sockets
country=$country
device_name=headset
device_type=1-0050F204-1
config_methods=virtual_push_button
p2p_no_group_iface=1
p2p_go_intent=15
END
    local log=
    [ -z "$followed" ] || log=$(log_of requests)
    touch "$(log_of requests)" $answers_time
    chown $wifi $answers_time
    LAB_REQUEST_LOG=$log LAB_ANSWERS_TIME=$answers_time LAB_NUMBERED_ANSWERS=$numbered_answers \
        LD_PRELOAD=/usr/lib/libdriver-commands.so background supplicant \
        lab-confine -c NET_ADMIN,NET_RAW $service wpa_supplicant -t -D nl80211 \
        -i wlan0 -c /lab/etc/wlan0.conf -N -i p2p0 -c /lab/etc/p2p0.conf
    supplicant=$pid
    followers=
    [ -n "$followed" ] || return 0
    follow sta wlan0
    follow p2p p2p0
}

# follow LOG INTERFACE: the events of its control socket, from now on.
follow() {
    background "$1" lab-events "$sockets/$2"
    followers="$followers $pid"
    expect "$1" attached
}

# wpa INTERFACE COMMAND ...
wpa() {
    local interface=$1
    shift
    wpa_cli -p $sockets -i "$interface" "$@"
}

terminate_supplicant() {
    wpa wlan0 terminate >/dev/null
    wait "$supplicant"
}

kill_supplicant() {
    local follower
    # shellcheck disable=SC2086  # one word per process
    kill -9 "$supplicant" $followers
    wait "$supplicant" 2>/dev/null
    for follower in $followers; do
        rm -f "/tmp/wpa_ctrl_$follower-"*
    done
}

# connect [PASS]: to the access point.
connect() {
    wpa wlan0 remove_network all >/dev/null
    same "the new network" "$(wpa wlan0 add_network)" 0
    wpa wlan0 set_network 0 ssid '"lab"' >/dev/null
    wpa wlan0 set_network 0 psk "\"${1:-$pass}\"" >/dev/null
    wpa wlan0 set_network 0 scan_freq "${frequency:-5180}" >/dev/null
    wpa wlan0 select_network 0 >/dev/null
}

status_of() { wpa "$1" status | sed -n "s/^$2=//p"; }

# --- the access point ---

# start_access_point [FREQUENCY [WIDTH]]: MHz both; the station will find it there.
start_access_point() {
    frequency=${1:-5180}
    local width=${2:-80} channel mode=a more=
    if [ "$frequency" -lt 5000 ]; then
        channel=$(((frequency - 2407) / 5))
        mode=g
    else
        channel=$(((frequency - 5000) / 5))
    fi
    # The channel is the lowest of its block.
    case $width in
        20) more= ;;
        40) more="ht_capab=[HT40+]" ;;
        80) more="ht_capab=[HT40+]
ieee80211ac=1
vht_oper_chwidth=1
vht_oper_centr_freq_seg0_idx=$((channel + 6))" ;;
        160) more="ht_capab=[HT40+]
vht_capab=[VHT160]
ieee80211ac=1
vht_oper_chwidth=2
vht_oper_centr_freq_seg0_idx=$((channel + 14))" ;;
    esac
    cat >/lab/etc/access-point.conf <<END
interface=wlan1
driver=nl80211
ctrl_interface=/tmp/access-point
ssid=lab
country_code=$country
hw_mode=$mode
channel=$channel
ieee80211n=1
wpa=2
wpa_key_mgmt=WPA-PSK
rsn_pairwise=CCMP
wpa_passphrase=$pass
$more
$access_point_options
END
    background access-point hostapd -t /lab/etc/access-point.conf
    access_point=$pid
    until_true access_point_enabled
}

access_point_enabled() { hostapd_cli -p /tmp/access-point status | grep -q '^state=ENABLED'; }

stop_access_point() {
    kill "${1:--TERM}" "$access_point"
    wait "$access_point" 2>/dev/null
}

# traffic: until the station's radio has settled for a rate.
traffic() { lab-traffic wlan0 $access_point_address "${1:-500}"; }

# rate: what the station's radio sent at last, as the kernel has it.
rate() { iw dev wlan0 link | sed -n 's/^\ttx bitrate: //p'; }

# read_at PATTERN: after some more traffic the radio sends at a rate like that; what the daemon says
# of it is $record and $text. That counts when the rate is the same behind it: the radio now and
# then tries another.
read_at() {
    local before
    traffic 100
    before=$(rate)
    record=$(call getStaInfo)
    text=$(dump)
    [ "$(rate)" = "$before" ] && echo "$before" | grep -qx "$1"
}

# signal DBM: what the station hears of the access point; from -100 to -1.
signal() {
    iw dev wlan1 set txpower fixed 0
    # The kernel's parser takes no sign.
    printf '0x%x' "$1" >/sys/kernel/debug/ieee80211/phy1/hwsim/rx_rssi
}

# connected: waits until the station is, and the daemon has heard of it.
connected() {
    expect sta "CTRL-EVENT-CONNECTED"
    told "StaManager: STA event(CONNECTED)"
}

# --- the P2P peer ---

# start_peer: another device, whose P2P runs on wlan2.
start_peer() {
    cat >/lab/etc/wlan2.conf <<END
ctrl_interface=/tmp/peer
country=$country
device_name=peer
device_type=1-0050F204-1
config_methods=virtual_push_button
p2p_no_group_iface=1
p2p_go_intent=0
END
    background peer wpa_supplicant -t -D nl80211 -i wlan2 -c /lab/etc/wlan2.conf
    until_true peer ping
}

# peer COMMAND ...
peer() { wpa_cli -p /tmp/peer -i wlan2 "$@"; }
