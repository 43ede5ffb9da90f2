# the station's bandwidth on channels of 20, 40, 80 and 160 MHz, from one access point to the next

# One that allows 160 MHz from 5180 MHz on at once; elsewhere a part of it is watched for radar.
country=PA

# rate: what the radio sent at last, as the kernel has it.
rate() { iw dev wlan0 link | sed -n 's/^\ttx bitrate: //p'; }

# read_at PATTERN: after some more traffic the radio sends at a rate like that; what the daemon says
# of it is $record and $text. That counts when the rate is the same behind it: the radio now and
# then tries another.
read_at() {
    local before
    traffic 100
    before=$(rate)
    record=$(bandwidth)
    text=$(dump)
    [ "$(rate)" = "$before" ] && echo "$before" | grep -qx "$1"
}

# link FREQUENCY WIDTH PATTERN CODE MHZ: on such a channel (MHz both) the radio comes to send at a
# rate of that pattern, for which the daemon has this code and prints so many MHz.
link() {
    step "$1 MHz, $2 MHz wide"
    start_access_point "$1" "$2"
    connect
    connected
    has "the channel" "$(iw dev wlan0 info)" "($1 MHz), width: $2 MHz"
    until_true read_at "$3"
    same "the bandwidth" "$record" "$4"
    has "the dump" "$text" "	STA bandwidth: $5
"
    stop_access_point
    told "StaManager: STA event(DISCONNECTED-bssid=$access_point_address reason=3)"
    same "the record without a link" "$(call getStaInfo)" \
        '{"frequency":-1,"rssi":-1,"bandwidth":0}'
    has "the dump without a link" "$(dump)" "	STA bandwidth: unknown
"
}

# bandwidth: the code in the daemon's record, which is whole and of this link.
bandwidth() {
    call getStaInfo |
        sed "s/^{\"frequency\":$frequency,\"rssi\":-[0-9]*,\"bandwidth\":\([0-9]*\)}$/\1/"
}

# What the daemon complained of, but for attempts to connect that came too early, and for the
# managers that are off when it is asked for all.
complaints() {
    sed -n 's/^[^ ]* [WEF] [^ ]* [^ ]* *[0-9]* *[0-9]* //p' "$(log_of daemon)" |
        grep -v -e '^\[WPA-[A-Z0-9]*\] Failed to open wpa_supplicant control interface\.$' \
            -e '^CorvidWifiManager: [A-Za-z0-9]*Manager does not exist\.$' | sort -u
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
same "what the daemon complained of" "$(complaints)" \
    "StaManager: failed to parse frequency and RSSI from SIGNAL_POLL response"
still_runs
