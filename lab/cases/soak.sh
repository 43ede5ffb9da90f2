# an hour of a headset's day, with every feature on: nothing grows and nothing is lost
# limit: 4800 s
# time: virtual

# `lab/lab.sh soak 24h` plays a longer one.
duration=${duration:-3600}
# Everything happens once in each period, spread over it, in another order each time. At its end the
# daemon is measured, and compared with the end of the first: each hour, in a short run four times.
period_s=3600
[ $duration -ge 21600 ] || period_s=$((duration / 4))
[ $period_s -ge 300 ] || period_s=300
# What the daemon has allocated and not freed, in bytes: it must be what it was, but for texts of
# another length (a socket's path, the driver's last answer). So a leak of 100 bytes an hour is found
# in the sixth.
live_allowance=512
# Its anonymous memory, in kB, after a whole report of its state, for which it takes more than for
# all else, so that it is no matter where the free places of the heap lie below that mark. A stack, or
# the heap of a thread, may be a page larger for once: in seventeen hours that came to 16 kB, with not
# one byte more allocated.
allowance=32

every_feature

failure='{"code":1,"description":""}'
success='{"code":0,"description":""}'

# What has been done since the last measurement; each time the daemon has heard of it.
events=0 connections=0 supplicants=0 clients=0

# ask ANSWER METHOD ...
ask() {
    local answer=$1
    shift
    same "the answer to $1" "$(call "$@")" "$answer"
}

linked() {
    connected
    connections=$((connections + 1))
}

unlinked() { expect daemon "StaManager: STA event(DISCONNECTED-bssid="; }

# sampled: the signal, two times, so that what it leads to has been done after the first.
sampled() {
    forget requests
    expect requests "wlan0 SIGNAL_POLL"
    expect requests "wlan0 SIGNAL_POLL"
}

# power_of STA|P2P: the last that the daemon asked for; of the station maybe before this log began.
power_of() {
    local said
    said=$(sed -n "s/.*TxPowerManager: $1 cmd:DRIVER SET_TXPOWER \([0-9]*\) reply:OK .*/\1/p" \
        "$(log_of daemon)" | tail -n 1)
    echo "${said:-$earlier_power}"
}

# powered STA|P2P INTERFACE [DBM]: that is what the radio has.
powered() {
    local said radio
    said=$(power_of "$1")
    radio=$(iw dev "$2" info | sed -n 's/^\ttxpower \(.*\)\.00 dBm/\1/p')
    same "the radio's power on $2" "$radio" "$said"
    [ $# -lt 3 ] || same "the power on $2" "$radio" "$3"
}

# What happens. Each begins and ends with a link, without a group, with one registered client.

walked() {
    local step
    for step in -80:20 -60:9 -45:5 -75:20 -50:5; do
        signal ${step%:*}
        sampled
        has "the record" "$(call getStaInfo)" "{\"frequency\":$frequency,\"rssi\":${step%:*},"
        powered STA wlan0 ${step#*:}
    done
}

hand_tracked() {
    ask "$success" updateTxPowerConfig false
    signal -44
    sampled
    powered STA wlan0 20
    ask "$success" updateTxPowerConfig true
    sampled
    powered STA wlan0 5
}

scanned() {
    wpa wlan0 scan freq=2412,2437,$frequency >/dev/null
    expect sta "CTRL-EVENT-SCAN-RESULTS"
    told "NoaManager: onScanEnded()"
}

reassociated() {
    wpa wlan0 reassociate >/dev/null
    linked
}

disconnected() {
    wpa wlan0 disconnect >/dev/null
    unlinked
    wpa wlan0 reconnect >/dev/null
    linked
}

deauthenticated() {
    hostapd_cli -p /tmp/access-point deauthenticate 02:00:00:00:00:00 >/dev/null
    unlinked
    linked
}

wrong_key() {
    connect wrong-horse
    expect sta "<3>WPA: 4-Way Handshake failed - pre-shared key may be incorrect"
    unlinked
    connect
    linked
}

# announced FREQUENCY: by the access point.
announced() {
    same "the access point's answer" \
        "$(hostapd_cli -p /tmp/access-point -i wlan1 chan_switch 5 "$1" ht)" OK
    expect daemon "StaManager: STA event(CHANNEL_SWITCH-freq=$1 "
    same "the link's frequency" "$(call getStaInfo | cut -d, -f1)" "{\"frequency\":$1"
}

channel_switched() {
    announced $((frequency + 20))
    announced $frequency
}

# The next one is found in another part of the band, where the cameras need another clock.
access_point_lost() {
    stop_access_point -9
    expect sta "<3>CTRL-EVENT-DISCONNECTED bssid=$access_point_address reason=4"
    unlinked
    wpa wlan0 disconnect >/dev/null
    case $frequency in
        5180) start_access_point 5745 20 ;;
        *) start_access_point 5180 20 ;;
    esac
    signal -50
    connect
    linked
}

cameras_hang() {
    sensors camera.notify hang
    access_point_lost
    told "MipiClockManager: notification failed 5 times"
    sensors camera.notify ok
    disconnected
    told "MipiClockManager: CameraProvider: API has successfully returned"
}

streamed() {
    ask '{"id":0}' setScsV4 10.0.0.2 5004 10.0.0.1 40000 46 17
    ask "$success" clearScs 0
    ask "$success" setElnaBypass 1
    ask "$success" setElnaBypass 0
    has "the dump" "$(dump)" "	STA frequency: $frequency"
}

# group_starts FREQUENCY DBM
group_starts() {
    same "the supplicant's answer" "$(wpa p2p0 p2p_group_add freq="$1")" OK
    expect p2p "P2P-GROUP-STARTED p2p0 GO"
    expect daemon "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER $2 reply:OK"
    powered P2P p2p0 "$2"
}

group_ends() {
    wpa p2p0 p2p_group_remove p2p0 >/dev/null
    told "TxPowerManager: P2P event(DISCONNECTED-p2p0 GO reason=REQUESTED)"
    expect daemon "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER 20 reply:OK"
}

# Beside the link, on its channel: these radios have one at a time. This driver knows no vendor
# command, and the supplicant no switch by a client.
group_beside_the_link() {
    group_starts $frequency 20
    ask "$failure" setP2pNoa 255 0 100
    ask "$failure" startCsa 6 20
    ask "$failure" setMccTimeAllocation 70
    property cmd.cs.p2p.ecsa false
    property cmd.mcc.p2p.increase.bw false
    ask "$failure" startCsa 6 20
    ask "$success" setMccTimeAllocation 70
    property cmd.cs.p2p.ecsa true
    property cmd.mcc.p2p.increase.bw true
    group_ends
    powered STA wlan0
}

# without_link COMMAND ...: there is none while that is done.
without_link() {
    wpa wlan0 disconnect >/dev/null
    unlinked
    "$@"
    wpa wlan0 reconnect >/dev/null
    linked
}

blocked() { [ "$(head -n 1 $controllers)" = "2420 2454" ]; }
free() { [ ! -s $controllers ]; }

group_switches() {
    group_starts 2437 12
    until_true blocked
    same "the supplicant's answer" "$(wpa p2p0 chan_switch 5 2462 ht)" OK
    expect p2p "AP-CSA-FINISHED freq=2462"
    expect daemon "TxPowerManager: P2P cmd:DRIVER SET_TXPOWER 12 reply:OK"
    powered P2P p2p0 12
    group_ends
    until_true free
}

group_alone() { without_link group_switches; }

# The first event that the service does not answer is given up, the next is tried again.
controllers_do_not_answer() {
    sensors controller.set hang
    group_starts 2437 12
    told "FrequencyBlockManager: ControllerProvider: no response"
    group_ends
    sensors controller.set ok
    group_switches
}

controllers_hang() { without_link controllers_do_not_answer; }

# answered_after SECONDS: what the controllers have blocked is read from a pipe, into which that is
# written only then.
answered_after() {
    rm -f $controllers
    mkfifo $controllers
    (sleep "$1" && : <>$controllers) &
    answer=$!
    group_starts 2437 12
}

controllers_are_late() {
    # Later than the second for which they are waited for. Their answer is nobody's.
    answered_after 3
    told "FrequencyBlockManager: ControllerProvider: no response"
    wait $answer
    group_ends
    until_true workers_have_ended
    rm -f $controllers
    # Slow, but in time.
    answered_after 0.5
    wait $answer
    until_true blocked
    group_ends
    until_true free
}

# The threads that called the service.
workers_have_ended() { [ "$(threads)" -le 3 ]; }

controllers_slow() { without_link controllers_are_late; }

# country_is ALPHA2: the user's wish; a client hears of it.
country_is() {
    iw reg set "$1"
    told "RegdomManager: onRegdomUpdated(init=USER type=COUNTRY alpha2=$1)"
}

heard() { expect monitor "\"init\":\"USER\",\"type\":\"COUNTRY\",\"alpha2\":\"$1\"}"; }

country_changed() {
    local alpha2
    for alpha2 in CA US; do
        country_is $alpha2
        heard $alpha2
    done
}

# client: another one, $guest.
client() {
    : >"$(log_of guest)"
    read_guest=0
    background guest $as_wifi corvid-wifi monitor
    guest=$pid
    expect guest registered
}

client_ends() {
    kill "$1" "$guest"
    wait "$guest" 2>/dev/null
}

client_died() {
    client_ends -KILL
    told "CorvidWifiManagerCallback: removing dead callback"
    clients=$((clients + 1))
}

client_killed() {
    client
    client_died
}

client_left() {
    client
    client_ends -TERM
}

# It holds the listener until it goes on, or until it is killed. Calls and samples do not wait.
client_hangs() {
    client
    kill -STOP "$guest"
    country_is CA
    sampled
    ask '{"frequency":-1,"bandwidth":-1}' getP2pInfo
    iw reg set US
    sleep 20
    heard CA
    never daemon "alpha2=US"
    kill -CONT "$guest"
    told "RegdomManager: onRegdomUpdated(init=USER type=COUNTRY alpha2=US)"
    heard US
    expect guest '"alpha2":"CA"'
    expect guest '"alpha2":"US"'

    kill -STOP "$guest"
    country_is CA
    sleep 20
    client_died
    country_is US
    heard US
}

# The ways of a supplicant.

attached() {
    start_supplicant
    told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
    supplicants=$((supplicants + 1))
    until_true p2p_is_attached
    connect
    linked
}

# p2p_is_attached: as often as the station's, which is followed independently.
p2p_is_attached() {
    [ "$(grep -cF "[WPA-P2P] Connected to supplicant socket" "$(log_of daemon)")" -eq $supplicants ]
}

supplicant_terminated() {
    terminate_supplicant
    told "[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"
    attached
}

supplicant_killed() {
    kill_supplicant
    attached
}

# Commands meet it: they fail after 10 s, and what it answers them later is nobody's.
supplicant_stopped() {
    local waiting
    kill -STOP "$supplicant"
    call setElnaBypass 0 >/dev/null &
    waiting=$!
    signal -62
    sleep 15
    kill -CONT "$supplicant"
    wait $waiting
    ask "$success" setElnaBypass 1
    has "the record" "$(call getStaInfo)" "{\"frequency\":$frequency,\"rssi\":-62,"
    ask "$success" setElnaBypass 0
    # Sampling goes on, 30 s after a sample that failed.
    sampled
    signal -50
    sampled
    powered STA wlan0
}

things="walked scanned reassociated disconnected deauthenticated wrong_key channel_switched
access_point_lost cameras_hang streamed group_beside_the_link group_alone controllers_hang
controllers_slow country_changed client_killed client_left client_hangs supplicant_terminated
supplicant_killed supplicant_stopped hand_tracked"

# sensors NAME VALUE: how the sensor service behaves from now on.
sensors() { echo "$2" >"/dev/__properties__/debug.sensors.$1"; }

# rotated COUNT WORD ...: they begin with another one.
rotated() {
    local count=$1 moved=0
    shift
    while [ $moved -lt $((count % $#)) ]; do
        set -- "$@" "$1"
        shift
        moved=$((moved + 1))
    done
    echo "$@"
}

# period: all of it.
period() {
    local start now number=0 thing
    start=$(uptime_s)
    # shellcheck disable=SC2086  # one word per thing
    set -- $(rotated $((periods * 5)) $things)
    for thing in "$@"; do
        now=$(uptime_s)
        due=$((start + number * period_s / $#))
        [ "$now" -ge $due ] || sleep $((due - now))
        step "$thing" >>"$(log_of things)"
        $thing
        number=$((number + 1))
        events=$((events + 1))
    done
    now=$(uptime_s)
    [ "$now" -ge $((start + period_s)) ] || sleep $((start + period_s - now))
    periods=$((periods + 1))
}

files() { find /tmp | wc -l; }

# The answers of the driver are numbered. Each that the daemon logs must be the one that this command
# was given, if it is not the client's own text for a command that failed. Prints how many there are,
# and those that are not.
own_answers() {
    sed -n 's/^[0-9]* [^ ]* \(DRIVER .*\) -> \(.*\)$/given \1 = \2/p' "$(log_of requests)" |
        cat - "$(log_of daemon)" | awk '
            /^given / { given[substr($0, 7)] = 1; next }
            match($0, /cmd:DRIVER .* reply:./) {
                answer = substr($0, RSTART + 4)
                sub(/ reply:/, " = ", answer)
                if (answer ~ / = ERROR: /) next
                if (!(answer in given)) others = others "\nnot its own: " $0
                delete given[answer]
                ++count
            }
            END { print count + 0 others }'
}

# measure: all is as it was, and everything that happened was seen and tried.
measure() {
    local answers
    until_true rests
    country_changed
    sampled
    powered STA wlan0
    still_runs
    answers=$(own_answers)
    case $answers in
        0 | *[!0-9]*) fail "answers of the driver: $answers" ;;
    esac
    same "the clients that were forgotten" \
        "$(grep -cF "removing dead callback" "$(log_of daemon)")" $clients
    same "the supplicants attached to" \
        "$(grep -cF "[WPA-STA] Connected to supplicant socket" "$(log_of daemon)")" $supplicants
    same "the connections reported" "$(grep -cF WIFI_STA_CONNECTED $atoms)" $connections
    $as_wifi corvid-wifi debug --json >/dev/null
    now=$(memory)
    live_now=$(live_memory)
    [ "$live_now" -gt 0 ] || fail "the memory in use was not counted"
    step "after $((periods * period_s / 60)) min: $(descriptors) descriptors, $(threads) threads, \
$now kB, $live_now bytes in use, $(files) files in /tmp; $events events, $connections connections, $supplicants supplicants, $clients clients died, \
$answers answers"
    if [ -n "$memory" ]; then
        [ $((live_now - live)) -le $live_allowance ] ||
            fail "the memory in use has grown from $live to $live_now bytes"
        [ $((now - memory)) -le $allowance ] || fail "memory has grown from $memory to $now kB"
        same "the files in /tmp" "$(files)" "$temporary"
    fi
    complained "$(complaints)"
}

# complained LINES: they are all among those that this is bound to lead to.
complained() {
    local others
    # A client that hangs, and a supplicant that was stopped, are slow.
    others=$(echo "$1" | grep -vE '^SlowTasks: (client callback|subscriber) .* took [0-9]+ ms$' |
        grep -vxF "$expected_complaints") || return 0
    fail "the daemon complained: $others"
}

# The kernel's radio knows no vendor command, the supplicant no private switch, and the text of its
# switches names no interface; a killed client ends the call that held it; the sensor service hangs;
# a stopped supplicant answers nothing for 10 s.
expected_complaints="\
ChannelSwitchManager: invalid channel switch event
ChannelSwitchManager: startCsa failed
CorvidWifiClient: Failed to send vendor command to driver.
CorvidWifiManager: Failed to call IWifi onRegdomUpdated: Status(EX_TRANSACTION_FAILED): \
'DEAD_OBJECT: '
FrequencyBlockManager: ControllerProvider: no response
FrequencyBlockManager: failed to parse freq and ifname.
MipiClockManager: CameraProvider: no response
MipiClockManager: failed to parse freq and ifname.
MipiClockManager: notification failed 5 times
Nl80211Client: nl80211 response has error code -95"

# forgotten: the logs so far, which would fill the machine's memory.
forgotten() {
    local log
    earlier_power=$(power_of STA)
    for log in daemon sta p2p requests monitor supplicant access-point; do
        : >"$(log_of $log)"
        eval "read_$(echo $log | tr - _)=0"
    done
    : >$atoms
    events=0 connections=0 supplicants=0 clients=0
}

numbered_answers=1 earlier_power=
count_memory
start_daemon
start_monitor
start_access_point 5180 20
ip addr add 10.0.0.2/24 dev wlan0
signal -50
attached

periods=0 memory= live=
end=$(($(uptime_s) + duration))
step "$((duration / 60)) min, measured every $((period_s / 60))"
while [ "$(uptime_s)" -lt $end ]; do
    period
    if [ -z "$memory" ]; then
        sampled
        at_rest=$(descriptors_and_threads)
        measure
        memory=$now live=$live_now
        temporary=$(files)
    else
        measure
    fi
    forgotten
done
[ $periods -ge 2 ] || fail "nothing to compare with"
