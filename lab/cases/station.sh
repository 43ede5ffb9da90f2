# a station connects at 5180 MHz, 80 MHz wide: events, samples, record, dump, atoms

# The daemon's times are the 32 low bits of the milliseconds since 1970; they differ in every run.
atoms_without_times() { sed 's/{"int":-\?[0-9]*},{"string"/{"int":T},{"string"/' $atoms; }

atom() {
    echo '{"reverseDomainName":"com.corvid.os","atomId":116183,"values":[{"int":T},'"\
{\"string\":\"$1\"},{\"int\":$2},{\"int\":$3}]}"
}

link_atoms() { atoms_without_times | sed -n '/WIFI_STA_CONNECTED/,$p'; }
link_atoms_are_there() { [ "$(link_atoms | wc -l)" -ge 2 ]; }

# Whose own frames would change the rate in between.
echo 1 >/proc/sys/net/ipv6/conf/wlan0/disable_ipv6
property telemetry.enable true
start_daemon
told "WpaClient: Started monitoring wpa socket directory"
same "the record without a supplicant" "$(call getStaInfo)" '{"frequency":-1,"rssi":-1,"bandwidth":0}'

start_supplicant
told "WpaClient: Wpa socket for STA (wlan0) is created"
told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
told "[WPA-P2P] Connected to supplicant socket: $sockets/p2p0"
same "the record without a link" "$(call getStaInfo)" '{"frequency":-1,"rssi":-1,"bandwidth":0}'

step "connecting"
start_access_point 5180 80
forget requests
connect
expect sta "<3>SME: Trying to authenticate with $access_point_address (SSID='lab' freq=5180 MHz)"
expect sta "<3>CTRL-EVENT-CONNECTED - Connection to $access_point_address completed [id=0 id_str=]"
told "StaManager: STA event(CONNECTED)"
told "TelemetryEventLogger: Report STA Manager event: freq:5180 rssi:-27"
told "TelemetryManager: STA event(CONNECTED)/(CHANNEL_SWITCH) \
- Connection to $access_point_address completed [id=0 id_str=]"

step "one question at once, and one every 5 s"
expect requests "wlan0 SIGNAL_POLL"
last=
for sample in 1 2 3; do
    expect requests "wlan0 SIGNAL_POLL"
    now=${line%% *}
    if [ -n "$last" ]; then
        passed=$((now - last))
        [ $passed -ge 4900 ] || fail "sample $sample came after $passed ms"
        # Late on a busy machine; but 30 s is what a failed sample would take.
        [ $passed -le 20000 ] || fail "sample $sample came only after $passed ms"
    fi
    last=$now
done

step "the link as it is"
until_true read_at '.* VHT-MCS [0-9]* 80MHz .*'
same "the record" "$record" '{"frequency":5180,"rssi":-27,"bandwidth":3}'
has "the dump" "$text" "StaManager: Enabled
	STA frequency: 5180
	STA rssi: -27
	STA bandwidth: 80
"

step "disconnecting"
wpa wlan0 disconnect >/dev/null
expect sta "<3>CTRL-EVENT-DISCONNECTED bssid=$access_point_address reason=3 locally_generated=1"
told "StaManager: STA event(DISCONNECTED-bssid=$access_point_address reason=3 locally_generated=1)"
told "TelemetryEventLogger: Report STA Manager event: freq:-1 rssi:-1"
same "the record" "$(call getStaInfo)" '{"frequency":-1,"rssi":-1,"bandwidth":0}'

until_true link_atoms_are_there
same "the atoms" "$(link_atoms)" "$(atom WIFI_STA_CONNECTED 5180 -27)
$(atom WIFI_STA_DISCONNECTED -1 -1)"
# One when the socket is found, and one for each attempt to connect that came too early.
same "the kinds of atoms before the link" \
    "$(atoms_without_times | sed '/WIFI_STA_CONNECTED/,$d' | sort -u)" \
    "$(atom WIFI_STA_DISCONNECTED -1 -1)"
same "the commands to the driver" "$(driver_commands)" ""
# The first for want of a supplicant, the other for want of a link.
same "what the daemon complained of" "$(complaints_beside_dumps)" "\
StaManager: Failed to send SIGNAL_POLL command
StaManager: failed to parse frequency and RSSI from SIGNAL_POLL response"
still_runs
