# three minutes of what happens in an hour, with everything switched on: the daemon does not grow
# limit: 300 s

# The whole of it, in seconds.
duration=180
# In kB. A page or two of the heap's free places lie differently every time.
allowance=16

for feature in cmd.cs.p2p.ecsa cmd.cs.p2p.corvid cmd.elna.bypass.mode cmd.noa.p2p cmd.mcc.quota \
    cmd.mcc.p2p.increase.bw devparams.enable frequency.block.enable mipiclock.enable scs.enable \
    txchain.enable.p2p txchain.qualcomm txpower.enable.sta txpower.enable.p2p \
    txpower.enable.sta.per_chain txpower.enable.handtracking telemetry.enable \
    powerjump.detect.enable im3.mitigation.band2g; do
    property $feature true
done

failure='{"code":1,"description":""}'
success='{"code":0,"description":""}'

# What has been done; each time the daemon has been heard of it.
connections=0 scans=0 groups=0 restarts=0 clients=0 calls=0

# ask ANSWER METHOD ...
ask() {
    local answer=$1
    shift
    same "the answer to $1" "$(call "$@")" "$answer"
    calls=$((calls + 1))
}

scan() {
    wpa wlan0 scan freq=2412,2437,5180 >/dev/null
    expect sta "CTRL-EVENT-SCAN-RESULTS"
    told "NoaManager: onScanEnded()"
    scans=$((scans + 1))
}

group() {
    wpa p2p0 p2p_group_add freq=2437 >/dev/null
    expect p2p "P2P-GROUP-STARTED p2p0 GO"
    told "TxPowerManager: P2P event(CONNECTED)"
    # This driver knows none of these.
    ask "$failure" setP2pNoa 255 0 100
    ask "$failure" startCsa 6 20
    ask "$failure" setMccTimeAllocation 70
    wpa p2p0 p2p_group_remove p2p0 >/dev/null
    told "TxPowerManager: P2P event(DISCONNECTED-p2p0 GO reason=REQUESTED)"
    groups=$((groups + 1))
}

linked() {
    connected
    connections=$((connections + 1))
}

heard() { call getStaInfo | grep -qxF "{\"frequency\":2437,\"rssi\":$1,\"bandwidth\":1}"; }

link() {
    local strength
    connect
    linked
    for strength in -75 -63 -40; do
        signal $strength
        until_true heard $strength
    done
    ask '{"id":0}' setScsV4 10.0.0.2 5004 10.0.0.1 40000 46 17
    ask "$success" clearScs 0
    ask "$success" setElnaBypass 1
    ask "$success" updateTxPowerConfig true
    ask "$success" setP2pPairedDeviceType 1
    has "the dump" "$(dump)" "	STA frequency: 2437"
}

# The ways in which a link ends.

disconnected() {
    wpa wlan0 disconnect >/dev/null
    expect daemon "StaManager: STA event(DISCONNECTED-bssid="
}

deauthenticated() {
    hostapd_cli -p /tmp/access-point deauthenticate 02:00:00:00:00:00 >/dev/null
    expect daemon "StaManager: STA event(DISCONNECTED-bssid="
    linked
    disconnected
}

# It lasts until the signal has been sampled, as the others don't.
walked() {
    local strength
    for strength in -80 -40; do
        signal $strength
        forget requests
        expect requests "wlan0 DRIVER SET_PER_CHAIN_TX_PWR_LIMIT"
    done
    disconnected
}

terminated() {
    terminate_supplicant
    told "[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"
    start_again
}

killed() {
    kill_supplicant
    start_again
}

start_again() {
    start_supplicant
    told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
    restarts=$((restarts + 1))
    until_true p2p_is_connected
}

# p2p_is_connected: to each supplicant that there was.
p2p_is_connected() {
    [ "$(grep -cF "[WPA-P2P] Connected to supplicant socket" "$(log_of daemon)")" -gt $restarts ]
}

# round END: a link that ends like that, while a client waits for what happens.
round() {
    start_monitor
    scan
    link
    scan
    group
    scan
    "$1"
    # Without a goodbye.
    kill -9 "$monitor"
    told "CorvidWifiManagerCallback: removing dead callback"
    clients=$((clients + 1))
}

# measure WHEN: at rest it has as many descriptors and threads as before the first link.
measure() {
    until_true rests
    memory=$(memory)
    step "$1: $memory kB, $(descriptors) descriptors, $(threads) threads after $connections \
connections, $scans scans, $groups groups, $restarts restarts, $clients clients, $calls calls"
}

seconds() { cut -d. -f1 /proc/uptime; }

end=$(($(seconds) + duration))
start_daemon
start_supplicant
until_true p2p_is_connected
# A group can be beside the link there: these radios have one channel at a time.
start_access_point 2437 20
ip addr add 10.0.0.2/24 dev wlan0
at_rest=$(descriptors_and_threads)
measure "before"

ends="disconnected terminated walked deauthenticated killed disconnected"
for way in $ends; do
    round "$way"
done
measure "after the warm-up"
warm=$memory
half=$((($(seconds) + end) / 2))
middle=
while [ "$(seconds)" -lt $end ]; do
    for way in $ends; do
        round "$way"
        if [ -z "$middle" ] && [ "$(seconds)" -ge $half ]; then
            measure "in the middle"
            middle=$memory
        fi
        [ "$(seconds)" -lt $end ] || break
    done
done
measure "at the end"

for grown in $((middle - warm)) $((memory - warm)); do
    [ $grown -le $allowance ] || fail "memory has grown by $grown kB since the warm-up"
done
still_runs

# at_least COUNT OF WHAT
at_least() { [ "$2" -ge "$1" ] || fail "only $2 $3"; }
at_least 10 $connections connections
at_least 25 $scans scans
at_least 8 $groups groups
at_least 3 $restarts restarts
at_least 8 $clients clients
at_least 60 $calls calls

# And it was all seen, and all tried.
same "the connections reported" "$(grep -cF WIFI_STA_CONNECTED $atoms)" $connections
same "the connections prepared" \
    "$(grep -cF "wlan0 DRIVER SET_AC_CONFIG 3 " "$(log_of requests)")" $connections
same "the groups prepared" "$(grep -cF "p2p0 DRIVER SET_TXPOWER 12 -> OK" "$(log_of requests)")" \
    $groups
same "what the daemon complained of" "$(complaints)" "\
CorvidWifiClient: Failed to send vendor command to driver.
Nl80211Client: nl80211 response has error code -95"
