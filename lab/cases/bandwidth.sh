# the station's bandwidth on channels of 20, 40, 80 and 160 MHz, from one access point to the next

# One that allows 160 MHz from 5180 MHz on at once; elsewhere a part of it is watched for radar.
country=PA

# link FREQUENCY WIDTH PATTERN CODE MHZ: on such a channel (MHz both) the radio comes to send at a
# rate of that pattern, for which the daemon has this code and prints so many MHz.
link() {
    step "$1 MHz, $2 MHz wide"
    start_access_point "$1" "$2"
    connect
    connected
    has "the channel" "$(iw dev wlan0 info)" "($1 MHz), width: $2 MHz"
    # Nothing was sent yet but for the handshake, at the lowest rate.
    same "the bandwidth before traffic" "$(bandwidth_of "$(call getStaInfo)")" 1
    until_true read_at "$3"
    same "the bandwidth" "$(bandwidth_of "$record")" "$4"
    has "the dump" "$text" "	STA bandwidth: $5
"
    stop_access_point
    told "StaManager: STA event(DISCONNECTED-bssid=$access_point_address reason=3)"
    same "the record without a link" "$(call getStaInfo)" \
        '{"frequency":-1,"rssi":-1,"bandwidth":0}'
    has "the dump without a link" "$(dump)" "	STA bandwidth: unknown
"
}

# bandwidth_of RECORD: its code, when the record is whole and of this link.
bandwidth_of() {
    echo "$1" |
        sed "s/^{\"frequency\":$frequency,\"rssi\":-[0-9]*,\"bandwidth\":\([0-9]*\)}$/\1/"
}

# Whose own frames would change the rate in between.
echo 1 >/proc/sys/net/ipv6/conf/wlan0/disable_ipv6
start_daemon
start_supplicant
link 2412 20 '.* MCS [0-9]*' 1 20
link 5180 20 '.* MCS [0-9]*' 1 20
link 5180 40 '.* MCS [0-9]* 40MHz' 2 40
link 5180 80 '.* VHT-MCS [0-9]* 80MHz .*' 3 80
# The kernel's choice of rates knows none wider than 80 MHz, whatever the channel: what is sent
# counts.
link 5180 160 '.* VHT-MCS [0-9]* 80MHz .*' 3 80
# And back: nothing stays of a wider link.
link 5180 40 '.* MCS [0-9]* 40MHz' 2 40
# The records and dumps without a link.
same "what the daemon complained of" "$(complaints_beside_dumps)" \
    "StaManager: failed to parse frequency and RSSI from SIGNAL_POLL response"
still_runs
