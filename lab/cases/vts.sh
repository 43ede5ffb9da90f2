# the interface's own tests pass beside a real supplicant, without and with a link, and at a restart
# limit: 300 s

# tests OPTION ...: all of them; the log has which.
tests() {
    $as_wifi VtsHalCorvidWifiV1_0TargetTest "$@" >>"$(log_of vts)" 2>&1 ||
        fail "$(grep -B 20 FAILED "$(log_of vts)" | head -n 60)"
}

step "with nothing but the daemon"
start_daemon
tests
kill "$daemon"
wait "$daemon"

step "with every feature on and a link"
every_feature
start_daemon
start_supplicant
start_access_point 5180 80
connect
connected
# What causes an event: the country changes, as a user wishes. The kernel passes over one that is
# set already.
cat >/lab/etc/change-country <<'END'
#!/bin/sh
[ "$(cat /tmp/country 2>/dev/null)" = DE ] && country=US || country=DE
echo $country >/tmp/country
[ "$(wpa_cli -p /data/vendor/wifi/wpa/sockets -i wlan0 set country $country)" = OK ]
END
chmod 755 /lab/etc/change-country
tests --cause=/lab/etc/change-country
still_runs

step "with what can't be undone"
tests --change
still_runs
# The link is as it was.
same "the station's state" "$(status_of wlan0 wpa_state)" COMPLETED

step "when the daemon is killed and started again"
tests --restart="kill -9 $daemon" --gtest_filter="WifiRestart.*" &
client=$!
wait "$daemon"
# On the device init does that.
start_daemon
wait "$client" || fail "the test of the restart"
still_runs
same "the station's state" "$(status_of wlan0 wpa_state)" COMPLETED
