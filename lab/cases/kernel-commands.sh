# frames and vendor commands go to the real kernel: taken or refused, and the caller is told

# no_frame REASON: what the daemon says of a frame that came to nothing.
no_frame() {
    told "ScsManager: $1"
    told "ScsManager: Failed to construct and send request frame."
}

# scs_frame COUNT: the latest SCS request on the air, of as many. A Robust AV Streaming frame (13).
# The radio has written the duration (2 bytes at 2) and the number (2 at 22); they are shown as dots.
scs_frame() {
    until_true scs_frames_are "$1"
    scs_frames | tail -n 1 | sed 's/^\(.\{4\}\).\{4\}\(.\{36\}\).\{4\}/\1....\2..../'
}
scs_frames() { grep -E '^d0.{46}13' "$(log_of air)"; }
scs_frames_are() { [ "$(scs_frames | wc -l)" -eq "$1" ]; }

# refused ERROR: the kernel's answer to a vendor command, and what the daemon makes of it.
refused() {
    told "Nl80211Client: nl80211 response has error code $1"
    told "CorvidWifiClient: Failed to send vendor command to driver."
}

failure='{"code":1,"description":""}'
success='{"code":0,"description":""}'
stream="192.168.7.9 5004 10.0.0.1 40000 46 17"

for feature in scs.enable txchain.enable.p2p txchain.qualcomm cmd.noa.p2p cmd.mcc.p2p.increase.bw \
    cmd.cs.p2p.ecsa; do
    property $feature true
done
start_daemon

step "without a supplicant and an interface for P2P"
# shellcheck disable=SC2086  # one word per argument
same "a stream's id" "$(call setScsV4 $stream)" '{"id":-2}'
told "ScsManager: Cannot send STATUS command to wpa_supplicant."
no_frame "Failed to construct request frame."
same "NoA" "$(call setP2pNoa 255 0 100)" "$failure"
told "CorvidWifiClient: P2P interface not found. Ignoring NlCmd [P2P_SET_NOA 255 0 100]."

step "without an access point"
start_supplicant
told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
# shellcheck disable=SC2086
same "a stream's id" "$(call setScsV4 $stream)" '{"id":-2}'
told "ScsManager: Cannot parse bssid from wpa_supplicant STATUS reply."
no_frame "Failed to construct request frame."

step "SCS requests to the access point"
ip link set hwsim0 up
background air lab-capture hwsim0
expect air ready
start_access_point 5180 80
connect
connected
# Management, action; to the access point, from the station, about the access point.
header="d000....020000000100""020000000000""020000000100....13"
# As the caller says where the station has no address of its own.
# shellcheck disable=SC2086
same "a stream's id" "$(call setScsV4 $stream)" '{"id":0}'
told "ScsManager: Cannot parse ip_address from wpa_supplicant STATUS reply."
told "ScsManager: set IP 192.168.7.9"
same "the first frame" "$(scs_frame 1)" \
    "${header}00fbb91a0a00b801040e1304045f04""0a000001""c0a80709""9c40""138c""2e1100"

ip addr add 10.0.0.2/24 dev wlan0
same "a stream's id" "$(call setScsV4 192.168.7.9 65535 192.168.200.31 65536 63 6)" '{"id":1}'
told "ScsManager: set IP 10.0.0.2"
same "the second frame" "$(scs_frame 2)" \
    "${header}00fbb91a0a00b801040e1304045f04""c0a8c81f""0a000002""0000""ffff""3f0600"

same "a removal" "$(call clearScs 0)" "$success"
same "its frame" "$(scs_frame 3)" "${header}00fbb9020a01"

same "a V6 stream's id" "$(call setScsV6 fe80::1 5004 fe80::2 40000 7 46 17)" '{"id":-1}'
told "ScsManager: IP version (V6) is not supported."
same "another removal of it" "$(call clearScs 0)" "$failure"
told "ScsManager: ScsProfileId 0 not found."

step "vendor commands, which this driver does not know"
same "NoA" "$(call setP2pNoa 255 0 100)" "$failure"
told "NoaManager: setP2pNoa(255, 0, 100)"
refused -95
same "a channel switch" "$(call startCsa 149 80)" "$failure"
told "ChannelSwitchManager: startCsa [BRCM] (149, 80)"
refused -95
same "airtime" "$(call setMccTimeAllocation 70)" "$failure"
told "MccTimeManager: P2P_INCREASE_BW 70"
refused -95
property cmd.mcc.p2p.increase.bw false
property cmd.mcc.quota true
same "airtime in another way" "$(call setMccTimeAllocation 70)" "$success"
told "MccTimeManager: cmd:DRIVER MCC_QUOTA set iface p2p0 quota 30 reply:OK"
expect requests "wlan0 DRIVER MCC_QUOTA set iface p2p0 quota 30 -> OK"

# group_starts: on the station's channel; the daemon knows.
group_starts() {
    wpa p2p0 p2p_group_add freq=5180 >/dev/null
    expect p2p "P2P-GROUP-STARTED p2p0 GO"
    told "TxChainManager: P2P event(CONNECTED)"
}
group_ends() {
    wpa p2p0 p2p_group_remove p2p0 >/dev/null
    expect p2p "P2P-GROUP-REMOVED p2p0 GO reason=REQUESTED"
}

step "one transmit chain for a group, which this driver refuses too"
group_starts
refused -95
told "TxChainManager: setTxChain nTx=1 fail"
group_ends
property txchain.qualcomm false
group_starts
group_ends
property txchain.qualcomm true
same "a paired screen" "$(call setP2pPairedDeviceType 2)" "$success"
group_starts
group_ends
# The last event of a group that changes nothing; the next that does comes behind it.
never daemon "setTxChain"
same "a paired console" "$(call setP2pPairedDeviceType 1)" "$success"
group_starts
told "TxChainManager: setTxChain nTx=1 fail"
group_ends
same "all of them" "$(grep -cF "setTxChain" "$(log_of daemon)")" 2

step "the schedule that was refused is sent again after a scan"
wpa wlan0 scan freq=5180 >/dev/null
expect sta "<3>CTRL-EVENT-SCAN-RESULTS"
expect p2p "<3>CTRL-EVENT-SCAN-RESULTS"
told "NoaManager: onScanEnded()"
told "NoaManager: setP2pNoa(255, 0, 100)"
refused -95

step "a link that was lost takes its streams along"
wpa wlan0 disconnect >/dev/null
told "ScsManager: STA event(DISCONNECTED bssid=$access_point_address reason=3 locally_generated=1)"
same "the removal of one" "$(call clearScs 1)" "$failure"
told "ScsManager: ScsProfileId 1 not found."

step "a frame that the kernel refuses: an access point has no station of its own address"
wpa wlan0 remove_network all >/dev/null
wpa wlan0 add_network >/dev/null
wpa wlan0 set_network 0 mode 2 >/dev/null
wpa wlan0 set_network 0 frequency 5180 >/dev/null
wpa wlan0 set_network 0 ssid '"mine"' >/dev/null
wpa wlan0 set_network 0 key_mgmt NONE >/dev/null
wpa wlan0 select_network 0 >/dev/null
connected
# shellcheck disable=SC2086
same "a stream's id" "$(call setScsV4 $stream)" '{"id":-2}'
told "Nl80211Client: nl80211 response has error code -67"
no_frame "Failed to send request frame via nl80211."
same "its removal" "$(call clearScs 0)" "$failure"
told "ScsManager: ScsProfileId 0 not found."
scs_frames_are 3 || fail "more than three frames on the air: $(scs_frames)"

step "an interface that has gone"
terminate_supplicant
iw dev p2p0 del
same "NoA" "$(call setP2pNoa 255 0 100)" "$failure"
refused -19
same "what the daemon complained of" "$(complaints)" "\
CorvidWifiClient: Failed to send vendor command to driver.
CorvidWifiClient: P2P interface not found. Ignoring NlCmd [P2P_SET_NOA 255 0 100].
CorvidWifiManager: TxPowerManager does not exist.
Nl80211Client: nl80211 response has error code -19
Nl80211Client: nl80211 response has error code -67
Nl80211Client: nl80211 response has error code -95
ScsManager: Cannot parse bssid from wpa_supplicant STATUS reply.
ScsManager: Cannot parse ip_address from wpa_supplicant STATUS reply.
ScsManager: Cannot send STATUS command to wpa_supplicant.
ScsManager: Failed to construct and send request frame.
ScsManager: Failed to construct request frame.
ScsManager: Failed to send request frame via nl80211.
ScsManager: IP version (V6) is not supported.
ScsManager: ScsProfileId 0 not found.
ScsManager: ScsProfileId 1 not found."
still_runs
