# lost by deauthentication, dead access point, wrong key, ended or killed supplicant: found each time
# limit: 300 s

rounds=5
property telemetry.enable true
start_daemon
start_supplicant
start_access_point 5180 20

# linked: connected, and the daemon has asked for the signal: what ends the link now does not meet
# that question.
linked() {
    connected
    told "TelemetryEventLogger: Report STA Manager event: freq:5180 rssi:-27"
}

connect
linked

# lost TEXT: the daemon hears of the end of the link with this text.
lost() {
    told "StaManager: STA event(DISCONNECTED-$1)"
    told "TelemetryEventLogger: Report STA Manager event: freq:-1 rssi:-1"
}

deauthenticated() {
    hostapd_cli -p /tmp/access-point deauthenticate 02:00:00:00:00:00 >/dev/null
    expect sta "<3>CTRL-EVENT-DISCONNECTED bssid=$access_point_address reason=2"
    lost "bssid=$access_point_address reason=2"
    linked
}

access_point_killed() {
    stop_access_point -9
    expect sta "<3>CTRL-EVENT-DISCONNECTED bssid=$access_point_address reason=4 locally_generated=1"
    lost "bssid=$access_point_address reason=4 locally_generated=1"
    # The supplicant would look for it after longer and longer pauses; or find it just before it is
    # told to connect.
    wpa wlan0 disconnect >/dev/null
    start_access_point 5180 20
    connect
    linked
}

wrong_key() {
    # This leaves the old network first.
    connect wrong-horse
    expect sta "<3>CTRL-EVENT-DISCONNECTED bssid=$access_point_address reason=3 locally_generated=1"
    lost "bssid=$access_point_address reason=3 locally_generated=1"
    expect sta "<3>CTRL-EVENT-DISCONNECTED bssid=$access_point_address reason=15"
    expect sta "<3>WPA: 4-Way Handshake failed - pre-shared key may be incorrect"
    lost "bssid=$access_point_address reason=15"
    connect
    linked
}

# The two sockets are followed independently: each has its own order.

terminated() {
    local before
    before=$(end_of daemon)
    terminate_supplicant
    told "[WPA-STA] Supplicant exited gracefully"
    told "[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"
    lost "sockettype=STA"
    start_supplicant
    told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
    read_daemon=$before
    told "[WPA-P2P] Supplicant exited gracefully"
    told "[WPA-P2P] Enter new wpa client state 'Stopped' (old 'Connected')"
    told "[WPA-P2P] Connected to supplicant socket: $sockets/p2p0"
    connect
    linked
}

killed() {
    local before
    before=$(end_of daemon)
    kill_supplicant
    # Nothing tells the daemon; the restart removes the dead socket and makes its own.
    start_supplicant
    told "WpaClient: Wpa socket for STA (wlan0) is deleted"
    told "[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"
    lost "sockettype=STA"
    told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
    read_daemon=$before
    told "WpaClient: Wpa socket for P2P (p2p0) is deleted"
    told "[WPA-P2P] Enter new wpa client state 'Stopped' (old 'Connected')"
    told "[WPA-P2P] Connected to supplicant socket: $sockets/p2p0"
    connect
    linked
}

folder_removed() {
    local before
    rm -f $sockets/.keep
    terminate_supplicant
    told "WpaClient: Wpa socket directory has been removed: waiting for the next one"
    start_supplicant
    told "WpaClient: Started monitoring wpa socket directory"
    before=$read_daemon
    told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
    read_daemon=$before
    told "[WPA-P2P] Connected to supplicant socket: $sockets/p2p0"
    connect
    linked
    touch $sockets/.keep
}

# One of each first: what is kept from then on is kept once.
for trouble in deauthenticated access_point_killed wrong_key terminated killed folder_removed; do
    $trouble
done
# The sampling thread is one of them when it has sampled.
forget requests
expect requests "wlan0 SIGNAL_POLL"
at_rest=$(descriptors_and_threads)
memory_before=$(memory)

for trouble in deauthenticated access_point_killed wrong_key terminated killed folder_removed; do
    step "$trouble, $rounds times"
    for round in $(seq $rounds); do
        $trouble
    done
done

step "memory $memory_before -> $(memory) kB, descriptors and threads $at_rest -> \
$(descriptors_and_threads)"
until_true rests
# A page here and there: the heap's free places differ.
[ $(($(memory) - memory_before)) -le 16 ] || fail "memory has grown by more than 16 kB"
same "what the daemon complained of" "$(complaints)" \
    "WpaClient: Wpa socket directory has been removed: waiting for the next one"
still_runs
