# the signal falls and rises: the power steps follow with their hysteresis, and the radio obeys
# limit: 240 s

radio_power() { iw dev wlan0 info | sed -n 's/^\ttxpower //p'; }

# power_command DBM: the next request is this one, the daemon logs it, and the radio does it.
power_command() {
    expect_next requests "wlan0 DRIVER SET_TXPOWER $1 -> OK"
    told "TxPowerManager: STA cmd:DRIVER SET_TXPOWER $1 reply:OK"
    same "the radio's power" "$(radio_power)" "$1.00 dBm"
}

# walk RSSI DBM: at the next sample the power changes to that.
walk() {
    step "$1 dBm: $2 dBm"
    signal "$1"
    expect_next requests "wlan0 SIGNAL_POLL"
    told "TxPowerManager: StaManager event(CONNECTED) rssi:$1 freq:5180"
    power_command "$2"
}

# stay RSSI: at the next sample it does not. The daemon logs nothing then; had there been a command,
# it would be before the question for the record, or before the next step's sample.
stay() {
    step "$1 dBm: as before"
    signal "$1"
    expect_next requests "wlan0 SIGNAL_POLL"
    same "the record" "$(call getStaInfo)" "{\"frequency\":5180,\"rssi\":$1,\"bandwidth\":1}"
    expect_next requests "wlan0 SIGNAL_POLL"
}

property txpower.enable.sta true
start_daemon
start_supplicant
start_access_point 5180 20
signal -40
forget requests
connect
# The end of an earlier link, told at every connection, sets the upper step.
expect requests "wlan0 SIGNAL_POLL"
power_command 20

step "the first sample knows no step"
expect_next requests "wlan0 SIGNAL_POLL"
told "TxPowerManager: StaManager event(CONNECTED) rssi:-40 freq:5180"
power_command 20

# Each edge of the three steps, and the values beside it: from 20 dBm
stay -65
walk -64 9
# from 9 dBm
stay -70
stay -55
walk -71 20
stay -90
walk -55 9
walk -54 5
# from 5 dBm
stay -60
walk -61 9
walk -40 5
walk -70 9
walk -54 5
walk -71 20
# and past the step between.
walk -54 5

step "disconnected"
wpa wlan0 disconnect >/dev/null
told "TxPowerManager: StaManager event(DISCONNECTED)"
expect requests "wlan0 DRIVER SET_TXPOWER 20 -> OK"
told "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 20 reply:OK"
has "the dump" "$(dump)" "TxPowerManager: Enabled
	STA TX Power: 20 dbm
	P2P TX Power: 0 dbm
	Per Chain Control: 0
"
# The dump of a station without a link.
same "what the daemon complained of" "$(complaints_beside_dumps)" \
    "StaManager: failed to parse frequency and RSSI from SIGNAL_POLL response"
still_runs
