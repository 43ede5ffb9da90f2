# a walk is recorded beside the daemon: the signal falls and rises, the access point moves, a restart
# limit: 400 s

# walk SECONDS DBM ...: from one signal to the next, so long at each.
walk() {
    local seconds=$1 dbm
    shift
    for dbm in "$@"; do
        signal "$dbm"
        sleep "$seconds"
    done
}

# recorded TEXT: the recording has a line with it behind those that were read.
recorded() { expect walk "$1"; }

property txpower.enable.sta true
property telemetry.enable true
start_daemon
start_supplicant
start_access_point 5180 20
signal -42
background recorder $as_wifi corvid-wifi record "$(log_of walk)" --label "The lab's walk, played from lab/cases/record.sh"
recording=$pid
until_true test -e "$(log_of walk)"
recorded '"persist.vendor.wifi.txpower.enable.sta":"true"'
recorded '"type":"daemon"'
recorded '"sta":null'
connect
connected
recorded '{"frequency_mhz":5180,"rssi_dbm":-42,"bandwidth_mhz":20}'

step "away from the access point"
walk 3 -44 -43 -47 -45 -50 -48 -53 -57 -55 -60 -58 -63 -66 -64 -69 -72 -70 -75 -78 -76 -81
recorded '"rssi_dbm":-81'
step "the daemon ends and starts again"
kill -9 "$daemon"
wait "$daemon" 2>/dev/null
recorded '"state":"ended"'
start_daemon
recorded '"state":"started"'
recorded '"rssi_dbm":-81'

step "and back"
walk 3 -79 -80 -74 -76 -71 -67 -69 -64 -61 -63 -58 -54 -56 -51 -48 -50 -46 -43 -44 -42
recorded '"rssi_dbm":-42'

step "another channel"
hostapd_cli -p /tmp/access-point chan_switch 5 5240 bandwidth=20 ht >/dev/null
recorded '"frequency_mhz":5240,"rssi_dbm":-42'
walk 4 -45 -52 -58 -66 -73 -68 -60 -51 -44

step "the end"
wpa wlan0 disconnect >/dev/null
recorded '"sta":null'
kill -INT "$recording"
wait "$recording"
same "how the recording ended" $? 0
recorded '"reason":"interrupted"'
still_runs
