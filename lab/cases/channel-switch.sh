# the access point announces another channel to the connected station

property telemetry.enable true
property cmd.cs.p2p.ecsa true
property mipiclock.enable true
property frequency.block.enable true
start_daemon
start_monitor
start_supplicant
start_access_point 5180 80
signal -40
connect
connected
told "TelemetryEventLogger: Report STA Manager event: freq:5180 rssi:-40"
told "FrequencyBlockManager: current blocked freq:-1 STA freq:5180 P2P freq:-1"

# announce FREQUENCY OFFSET CENTER: the next channel and the middle of its 80 MHz.
announce() {
    same "the access point's answer" "$(hostapd_cli -p /tmp/access-point -i wlan1 chan_switch 5 "$1" \
        sec_channel_offset="$2" center_freq1="$3" bandwidth=80 ht vht)" OK
}

# switched FREQUENCY OFFSET CENTER: what this supplicant says of it, and what the daemon makes of
# that. The text names no interface (the vendor's supplicant does, "ifname=wlan0"), so those who need
# to know whose channel it is refuse it; those who ask for the link's frequency have the new one.
switched() {
    local event="freq=$1 ht_enabled=1 ch_offset=$2 ch_width=80 MHz cf1=$3 cf2=0" before
    before=$(end_of daemon)
    announce "$@"
    expect sta "<3>CTRL-EVENT-STARTED-CHANNEL-SWITCH $event"
    expect sta "<3>CTRL-EVENT-CHANNEL-SWITCH $event"
    read_daemon=$before
    told "StaManager: STA event(CHANNEL_SWITCH-$event)"
    told "TelemetryEventLogger: Report STA Manager event: freq:$1 rssi:-40"
    told "ChannelSwitchManager: channelSwitchEventHandler_($event)"
    told "ChannelSwitchManager: invalid channel switch event"
    told "TelemetryManager: STA event(CONNECTED)/(CHANNEL_SWITCH) $event"
    # The same event on the dispatcher's thread: as the station's, and as the P2P link's.
    read_daemon=$before
    told "CoexManager: Process event WIFI_STA_CHANNEL_SWITCH (2)"
    told "MipiClockManager: Wi-Fi STA event(CHANNEL-SWITCH $event)"
    told "MipiClockManager: failed to parse freq and ifname."
    told "CoexManager: Process event WIFI_P2P_CHANNEL_SWITCH (5)"
    told "FrequencyBlockManager: Wi-Fi P2P event(CHANNEL-SWITCH $event)"
    told "FrequencyBlockManager: failed to parse freq and ifname."
    has "the record" "$(call getStaInfo)" "{\"frequency\":$1,\"rssi\":-40,"
    same "the station's state" "$(status_of wlan0 wpa_state)" COMPLETED
}

step "within the 80 MHz"
switched 5200 -1 5210
switched 5180 1 5210
step "to another block, and back"
switched 5745 1 5775
switched 5180 1 5210

step "carries on: the link ends and comes again"
wpa wlan0 disconnect >/dev/null
expect daemon "StaManager: STA event(DISCONNECTED-bssid=$access_point_address"
wpa wlan0 reconnect >/dev/null
connected
told "TelemetryEventLogger: Report STA Manager event: freq:5180 rssi:-40"
never monitor onChannelSwitch
same "the commands to the driver" "$(driver_commands)" ""
same "what the daemon complained of" "$(complaints)" "\
ChannelSwitchManager: invalid channel switch event
FrequencyBlockManager: failed to parse freq and ifname.
MipiClockManager: failed to parse freq and ifname."
still_runs
