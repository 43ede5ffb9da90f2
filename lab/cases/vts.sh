# the interface's own tests pass beside a real supplicant, without and with a link, and at a restart
# limit: 300 s

# start_tests OPTION ...: all of them, or those of --gtest_filter; the log has which.
start_tests() {
    # shellcheck disable=SC2086  # one word per option
    background vts $as_wifi VtsHalCorvidWifiV1_0TargetTest "$@"
    tests=$pid
}

tests_passed() { wait "$tests" || fail "$(grep -B 20 FAILED "$(log_of vts)" | head -n 60)"; }

tests() {
    start_tests "$@"
    tests_passed
}

either_ended() { ! runs "$daemon" || ! runs "$tests"; }

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
start_tests --restart="kill -9 $daemon" --gtest_filter="WifiRestart.*"
until_true either_ended
if runs "$daemon"; then
    tests_passed
    fail "the test of the restart has passed and not killed the daemon"
fi
wait "$daemon"
# On the device init does that.
start_daemon
tests_passed
still_runs
same "the station's state" "$(status_of wlan0 wpa_state)" COMPLETED
