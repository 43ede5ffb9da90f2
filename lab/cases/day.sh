# a day of ordinary use with every feature on: what it costs, beside the supplicant
# limit: 6000 s
# time: virtual
# radios: 4

# It is played two times: "timed", and "counted" with the kernel's counters, which cost time
# themselves. `lab/lab.sh day` plays the whole day, each in a guest of its own; the case by itself
# a fortieth of it, one after the other.
#
# A third of the day the station is connected, in three parts of 160 minutes. In each part: four scans a
# minute, a walk through the power steps each four minutes, 20 roams between two access points,
# and a P2P session of 20 minutes, with a peer, on the link's channel.
duration=${duration:-2160}
accounts=${account:-timed counted}
part_s=$((duration / 9))
tick_s=15
ticks=$((part_s / tick_s))
session_from=$((ticks * 7 / 16))
session_to=$((ticks * 9 / 16))
roam_each=28

log_tags="*:I"
followed=
other_address=02:00:00:00:03:00
counters=/sys/kernel/tracing
walk="-45 -45 -50 -55 -60 -62 -65 -68 -70 -75 -72 -68 -63 -58 -52 -47"

# --- what happens ---

# On another radio and channel, with the same name.
start_other_access_point() {
    sed "s/^interface=.*/interface=wlan3/; s/^channel=.*/channel=149/
        s!^ctrl_interface=.*!ctrl_interface=/tmp/other!" /lab/etc/access-point.conf \
        >/lab/etc/other.conf
    background other hostapd -t /lab/etc/other.conf
    other=$pid
    until_true other_enabled
}

other_enabled() { hostapd_cli -p /tmp/other status | grep -q '^state=ENABLED'; }

# heard DBM: of both access points.
heard() {
    local phy
    for phy in phy1 phy3; do
        printf '0x%x' "$1" >/sys/kernel/debug/ieee80211/$phy/hwsim/rx_rssi
    done
}

associated() {
    told "StaManager: STA event(CONNECTED)"
    connections=$((connections + 1))
}

roamed() {
    local address=$other_address
    frequency=$((5180 + 5745 - frequency))
    [ $frequency -eq 5745 ] || address=$access_point_address
    same "the supplicant's answer" "$(wpa wlan0 roam "$address")" OK
    associated
    roams=$((roams + 1))
}

session_begins() {
    same "the supplicant's answer" "$(wpa p2p0 p2p_group_add freq=$frequency)" OK
    told "TxPowerManager: P2P event(CONNECTED)"
    wpa p2p0 wps_pbc >/dev/null
    peer p2p_connect 02:00:00:00:00:01 pbc join >/dev/null
    until_true joined
    sessions=$((sessions + 1))
}

joined() { wpa p2p0 list_sta | grep -q 02:00:00:00:02:00; }

session_ends() {
    same "the supplicant's answer" "$(wpa p2p0 p2p_group_remove p2p0)" OK
    told "TxPowerManager: P2P event(DISCONNECTED-p2p0 GO reason=REQUESTED)"
}

# sleep_until TIME: in seconds since the machine's start.
sleep_until() {
    local now
    now=$(uptime_s)
    [ "$now" -ge "$1" ] || sleep $(($1 - now))
}

connected_part() {
    local start tick=0 outside=0
    start=$(uptime_s)
    connect
    associated
    while [ $tick -lt $ticks ]; do
        sleep_until $((start + tick * tick_s))
        # shellcheck disable=SC2046,SC2086  # a word per signal
        set -- $walk
        shift $((tick % 16))
        heard "$1"
        [ $tick -ne $session_from ] || session_begins
        [ $tick -ne $session_to ] || session_ends
        if [ $tick -lt $session_from ] || [ $tick -ge $session_to ]; then
            outside=$((outside + 1))
            [ $((outside % roam_each)) -ne $((roam_each / 2)) ] || roamed
        fi
        wpa wlan0 scan >/dev/null
        scans=$((scans + 1))
        tick=$((tick + 1))
    done
    sleep_until $((start + part_s))
    wpa wlan0 disconnect >/dev/null
    expect daemon "StaManager: STA event(DISCONNECTED-"
}

day() {
    local part start
    connections=0 roams=0 scans=0 sessions=0
    start=$(uptime_s)
    for part in 1 2 3; do
        sleep_until $((start + (part - 1) * 3 * part_s))
        start_access_point 5180 20
        start_other_access_point
        iw dev wlan1 set txpower fixed 0
        iw dev wlan3 set txpower fixed 0
        connected_part
        kill "$access_point" "$other"
        wait "$access_point" "$other" 2>/dev/null
    done
    sleep_until $((start + duration))
}

# --- what it costs ---

# processor_ms PROCESS: all its threads, those that have ended too.
processor_ms() {
    local user system
    # shellcheck disable=SC2046  # a word per figure
    set -- $(cat "/proc/$1/stat")
    shift 13
    user=$1 system=$2
    echo $(((user + system) * 10))
}

# figure WORD ...: a line of the bill.
figure() { echo "$*" >>"$(log_of bill)"; }

# threads_spent WHEN: the daemon's threads, each with its nanoseconds of a processor so far.
threads_spent() {
    local task
    for task in "/proc/$daemon/task/"*; do
        figure $account "$1" "${task##*/}" "$(cut -d' ' -f1 "$task/schedstat")"
    done
}

# count PROCESS NAME [FOLLOW]: from now on, its system calls and the times that it goes to sleep; with
# FOLLOW also of threads that it starts.
count() {
    local place=$counters/instances/$2
    mkdir "$place"
    [ $# -lt 3 ] || echo 1 >"$place/options/event-fork"
    ls "/proc/$1/task" >"$place/set_event_pid"
    echo 'hist:keys=common_pid,id.syscall:size=16384' >"$place/events/raw_syscalls/sys_enter/trigger"
    echo 'hist:keys=id.syscall:vals=ret if ret > 0' >"$place/events/raw_syscalls/sys_exit/trigger"
    echo 'hist:keys=prev_pid:size=16384 if prev_state > 0' >"$place/events/sched/sched_switch/trigger"
}

# counted NAME: into a log each.
counted() {
    local place=$counters/instances/$1
    cat "$place/events/raw_syscalls/sys_enter/hist" >"$(log_of "$1-calls")"
    cat "$place/events/raw_syscalls/sys_exit/hist" >"$(log_of "$1-bytes")"
    cat "$place/events/sched/sched_switch/hist" >"$(log_of "$1-sleeps")"
}

every_feature
# No number is given to a second thread in a day.
echo 4194304 >/proc/sys/kernel/pid_max
mount -t tracefs tracing $counters 2>/dev/null
start_daemon
start_monitor
start_supplicant
start_peer
told "[WPA-P2P] Connected to supplicant socket: $sockets/p2p0"
sleep 5

for account in $accounts; do
    step "$((duration / 60)) min, $account"
    if [ $account = counted ]; then
        count "$daemon" daemon follow
        count "$supplicant" supplicant
    fi
    log_start=$(end_of daemon)
    answers_start=$(cat $answers_time)
    daemon_start=$(processor_ms "$daemon") supplicant_start=$(processor_ms "$supplicant")
    threads_spent before
    day
    threads_spent after
    figure $account daemon-ms $(($(processor_ms "$daemon") - daemon_start))
    figure $account supplicant-ms $(($(processor_ms "$supplicant") - supplicant_start))
    figure $account answers-ns $(($(cat $answers_time) - ${answers_start:-0}))
    figure $account log-bytes $(($(end_of daemon) - log_start))
    figure $account samples $((duration / 3 / 5))
    figure $account connections $connections roams $roams scans $scans sessions $sessions
    [ $account = timed ] || { counted daemon; counted supplicant; }
    start_access_point 5180 20
    connect
    associated
    # What a C program spends for a sample that does nothing else.
    figure $account bare-sample-ns "$(lab-sample $sockets/wlan0 60)"
    wpa wlan0 disconnect >/dev/null
    stop_access_point
done
$as_wifi corvid-wifi debug threads >"$(log_of threads)"
still_runs
cat "$(log_of bill)"
