# P2P groups start on p2p0, are joined by a peer, switch their channel and end
# limit: 240 s

# The group's, in dBm.
power() { iw dev p2p0 info | sed -n 's/^\ttxpower \(.*\)\.00 dBm/\1/p'; }

blocklist() { cat $controllers; }

# weighed LAST-BLOCKED STA P2P: the blocklist's manager has heard of these frequencies (-1: none). It
# does so on a thread of its own: this reads on from where the last group started or ended.
weighed() {
    read_daemon=$group
    told "FrequencyBlockManager: current blocked freq:$1 STA freq:$2 P2P freq:$3"
}

# powered FREQUENCY LAST-FREQUENCY DBM: the daemon has set the group's power, the radio has it, and
# clients are told the frequency.
powered() {
    told "TxPowerManager: P2P event(CONNECTED)"
    told "TxPowerManager: P2P Freq:$2 newFreq:$1"
    told "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER $3 reply:OK"
    expect requests "p2p0 DRIVER SET_TXPOWER $3 -> OK"
    same "the radio's power" "$(power)" "$3"
    same "the record" "$(call getP2pInfo)" "{\"frequency\":$1,\"bandwidth\":-1}"
}

# group_starts FREQUENCY LAST-FREQUENCY DBM: as the supplicant says it, and what the daemon does:
# the power, the chain (the driver's own command, which this kernel's driver refuses), the record.
group_starts() {
    step "a group on $1 MHz"
    forget requests daemon
    group=$read_daemon
    same "the supplicant's answer" "$(wpa p2p0 p2p_group_add freq="$1")" OK
    expect p2p "<3>P2P-GROUP-STARTED p2p0 GO ssid=\"DIRECT-"
    has "the event" "$line" " freq=$1 passphrase="
    told "TxChainManager: P2P event(CONNECTED)"
    told "Nl80211Client: nl80211 response has error code -95"
    told "CorvidWifiClient: Failed to send vendor command to driver."
    told "TxChainManager: setTxChain nTx=1 fail"
    powered "$@"
}

peer_joins() {
    wpa p2p0 wps_pbc >/dev/null
    peer p2p_connect 02:00:00:00:00:01 pbc join >/dev/null
    expect p2p "<3>AP-STA-CONNECTED 02:00:00:00:02:00 p2p_dev_addr=02:00:00:00:02:00"
    expect peer "P2P-GROUP-STARTED wlan2 client"
}

# group_switches FREQUENCY LAST-FREQUENCY DBM: the event that tells the daemon is the last of four.
group_switches() {
    step "it switches to $1 MHz"
    same "the supplicant's answer" "$(wpa p2p0 chan_switch 5 "$1" ht)" OK
    expect p2p "<3>CTRL-EVENT-STARTED-CHANNEL-SWITCH freq=$1"
    expect p2p "<3>CTRL-EVENT-CHANNEL-SWITCH freq=$1"
    expect p2p "<3>AP-CSA-FINISHED freq=$1 dfs=0"
    expect peer "CTRL-EVENT-CHANNEL-SWITCH freq=$1"
    powered "$@"
}

group_ends() {
    step "it ends"
    forget daemon
    group=$read_daemon
    same "the supplicant's answer" "$(wpa p2p0 p2p_group_remove p2p0)" OK
    expect p2p "<3>P2P-GROUP-REMOVED p2p0 GO reason=REQUESTED"
    told "TxPowerManager: P2P event(DISCONNECTED-p2p0 GO reason=REQUESTED)"
    told "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER 20 reply:OK"
    expect requests "p2p0 DRIVER SET_TXPOWER 20 -> OK"
    same "the record" "$(call getP2pInfo)" '{"frequency":-1,"bandwidth":-1}'
    expect peer "P2P-GROUP-REMOVED wlan2 client reason=GO_ENDING_SESSION"
}

# switch_is_refused CHANNEL MHZ COMMAND: a client asks for one; the supplicant does not know the
# command, and only SUCCESS counts.
switch_is_refused() {
    forget requests daemon
    same "the client's answer and its exit status" \
        "$($as_wifi corvid-wifi call startCsa "$1" "$2"; echo "$?")" '{"code":1,"description":""}
1'
    expect requests "wlan0 $3"
    has "the request" "$line|" "wlan0 $3|"
    told "ChannelSwitchManager: startCsa [QC] ($1, $2)"
    told "ChannelSwitchManager: startCsa failed"
}

property txpower.enable.p2p true
property cmd.cs.p2p.corvid true
property frequency.block.enable true
property txchain.enable.p2p true
property txchain.qualcomm true
start_daemon
start_monitor
start_supplicant
told "[WPA-P2P] Connected to supplicant socket: $sockets/p2p0"
start_peer

group_starts 2437 -1 12
# The controllers keep clear of channel 6 and its neighbours.
until_true grep -qx "2420 2454" $controllers
same "the blocklist" "$(blocklist)" "2420 2454"
peer_joins
group_switches 2462 2437 12
# Nobody tells the blocklist: it listens for switches on the station's socket.
same "the blocklist" "$(blocklist)" "2420 2454"
group_ends
weighed 2437 -1 -1
until_true [ ! -s $controllers ]
same "the blocklist" "$(blocklist)" ""
# The last interface has gone idle: the world's domain, and the user's again.
expect monitor '{"event":"onRegdomUpdated","init":"CORE","type":"WORLD","alpha2":"XZ"}'
expect monitor '{"event":"onRegdomUpdated","init":"USER","type":"COUNTRY","alpha2":"US"}'

group_starts 5180 -1 20
weighed -1 -1 5180
same "the blocklist" "$(blocklist)" ""
peer_joins
group_switches 5200 5180 20
group_ends
# Which comes behind all that it did for the group.
weighed 5180 -1 -1
same "the blocklist" "$(blocklist)" ""

step "beside a station on the same channel"
start_access_point 5180 20
connect
connected
group_starts 5180 -1 20
weighed -1 5180 5180
peer_joins
has "the station's record" "$(call getStaInfo)" '{"frequency":5180,"rssi":-27,'
step "a client asks for another channel"
switch_is_refused 40 20 "CORVID_P2P_CHAN_SWITCH 0 5200 bandwidth=20"
switch_is_refused 40 80 \
    "CORVID_P2P_CHAN_SWITCH 0 5200 bandwidth=80 center_freq1=5210 vht_enabled=1"
same "the record" "$(call getP2pInfo)" '{"frequency":5180,"bandwidth":-1}'
group_ends
same "the station's state" "$(status_of wlan0 wpa_state)" COMPLETED

# Switches are told on the group's own socket, where the relay to clients does not listen: of no
# group from the first on.
read_monitor=0
never monitor onChannelSwitch
same "the times that something was blocked" "$(grep -c ') is blocked$' "$(log_of daemon)")" 1
# Three groups, two of which switched.
same "the commands to the driver" "$(driver_commands)" "\
p2p0 DRIVER SET_TXPOWER 12 -> OK
p2p0 DRIVER SET_TXPOWER 12 -> OK
p2p0 DRIVER SET_TXPOWER 20 -> OK
p2p0 DRIVER SET_TXPOWER 20 -> OK
p2p0 DRIVER SET_TXPOWER 20 -> OK
p2p0 DRIVER SET_TXPOWER 20 -> OK
p2p0 DRIVER SET_TXPOWER 20 -> OK
p2p0 DRIVER SET_TXPOWER 20 -> OK"
same "what the daemon complained of" "$(complaints)" "\
ChannelSwitchManager: startCsa failed
CorvidWifiClient: Failed to send vendor command to driver.
Nl80211Client: nl80211 response has error code -95"
still_runs
