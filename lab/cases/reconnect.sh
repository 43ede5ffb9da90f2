# lost by deauthentication, dead access point, wrong key, ended or killed supplicant: found each time
# limit: 240 s

rounds=5
property telemetry.enable true
start_daemon
start_supplicant
start_access_point 5180 20
connect
connected

# lost TEXT: the daemon hears of the end of the link with this text.
lost() {
    told "StaManager: STA event(DISCONNECTED-$1)"
    told "TelemetryEventLogger: Report STA Manager event: freq:-1 rssi:-1"
}

deauthenticated() {
    hostapd_cli -p /tmp/access-point deauthenticate 02:00:00:00:00:00 >/dev/null
    expect sta "<3>CTRL-EVENT-DISCONNECTED bssid=$access_point_address reason=2"
    lost "bssid=$access_point_address reason=2"
    connected
}

access_point_killed() {
    stop_access_point -9
    expect sta "<3>CTRL-EVENT-DISCONNECTED bssid=$access_point_address reason=4 locally_generated=1"
    lost "bssid=$access_point_address reason=4 locally_generated=1"
    start_access_point 5180 20
    # The supplicant would look for it after longer and longer pauses.
    connect
    connected
}

wrong_key() {
    connect wrong-horse
    expect sta "<3>WPA: 4-Way Handshake failed - pre-shared key may be incorrect"
    expect daemon "StaManager: STA event(DISCONNECTED-bssid=$access_point_address reason="
    connect
    connected
}

terminated() {
    terminate_supplicant
    told "[WPA-STA] Supplicant exited gracefully"
    told "[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"
    lost "sockettype=STA"
    start_supplicant
    told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
    connect
    connected
}

killed() {
    kill_supplicant
    # Nothing tells the daemon; the restart removes the dead socket and makes its own.
    start_supplicant
    told "WpaClient: Wpa socket for STA (wlan0) is deleted"
    told "[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"
    told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
    connect
    connected
}

folder_removed() {
    rm -f $sockets/.keep
    terminate_supplicant
    told "WpaClient: Wpa socket directory has been removed: waiting for the next one"
    start_supplicant
    told "WpaClient: Started monitoring wpa socket directory"
    told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
    told "[WPA-P2P] Connected to supplicant socket: $sockets/p2p0"
    connect
    connected
    touch $sockets/.keep
}

descriptors() { ls "/proc/$daemon/fd" | wc -l; }
threads() { ls "/proc/$daemon/task" | wc -l; }
memory() { sed -n 's/^RssAnon:[^0-9]*\([0-9]*\) kB/\1/p' "/proc/$daemon/status"; }

# One of each first: what is kept from then on is kept once.
for trouble in deauthenticated access_point_killed wrong_key terminated killed folder_removed; do
    $trouble
done
descriptors_before=$(descriptors) threads_before=$(threads) memory_before=$(memory)

for trouble in deauthenticated access_point_killed wrong_key terminated killed folder_removed; do
    step "$trouble, $rounds times"
    for round in $(seq $rounds); do
        $trouble
    done
done

step "memory $memory_before -> $(memory) kB, descriptors $descriptors_before -> $(descriptors), \
threads $threads_before -> $(threads)"
same "the number of descriptors" "$(descriptors)" "$descriptors_before"
same "the number of threads" "$(threads)" "$threads_before"
# A page here and there: the heap's free places differ.
[ $(($(memory) - memory_before)) -le 64 ] || fail "memory has grown by more than 64 kB"
still_runs
