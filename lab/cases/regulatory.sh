# regulatory changes reach a registered client; the world's domain as "XZ"

# relayed INIT TYPE ALPHA2 [ALPHA2-IN-THE-EVENT]: what the supplicant says (on the interface that it
# chooses) is the next that the client hears.
relayed() {
    told "RegdomManager: onRegdomUpdated(init=$1 type=$2${4:+ alpha2=$4})"
    told "RegdomManager: Notify regdom updated event"
    hear "$(event "$1" "$2" "$3")"
}

# event INIT TYPE ALPHA2: as the client gets it.
event() {
    echo "{\"event\":\"onRegdomUpdated\",\"init\":\"$1\",\"type\":\"$2\",\"alpha2\":\"$3\"}"
}

# hear EVENT: the client's next.
hear() {
    expect monitor '{'
    while [ -n "$repeats" ] && [ "$line" = "$(event CORE WORLD XZ)" ] && [ "$line" != "$1" ]; do
        expect monitor '{'
        same "the client's event behind the world's domain" "$line" "$(event USER COUNTRY US)"
        expect monitor '{'
    done
    same "the client's next event" "$line" "$1"
    repeats=
}

# Whether the last two events may come again: the kernel tells of the last interface that goes idle
# once or twice.
repeats=

start_daemon
start_monitor
start_supplicant
told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
told "[WPA-P2P] Connected to supplicant socket: $sockets/p2p0"
# The supplicant asks for its own country when it starts; the client may have been in time for that.
until_true sh -c 'iw reg get | grep -q "country US"'

step "a user's wishes"
iw reg set DE
told "RegdomManager: onRegdomUpdated(init=USER type=COUNTRY alpha2=DE)"
expect monitor "$(event USER COUNTRY DE)"
iw reg set US
relayed USER COUNTRY US US

step "the world's domain, when the last interface goes idle"
wpa p2p0 p2p_group_add freq=2437 >/dev/null
expect p2p "P2P-GROUP-STARTED"
wpa p2p0 p2p_group_remove p2p0 >/dev/null
relayed CORE WORLD XZ
relayed USER COUNTRY US US
repeats=true

step "an access point's own country"
access_point_options="ieee80211d=1"
country=DE
start_access_point 5180 20
relayed USER COUNTRY DE DE
connect
expect sta "CTRL-EVENT-CONNECTED"
relayed COUNTRY_IE COUNTRY DE DE

step "what it has in common with a user's wish, which has no name"
iw reg set US
relayed USER INTERSECTION 00

step "a client that was killed is forgotten"
kill -9 "$monitor"
told "CorvidWifiManagerCallback: removing dead callback"
same "what the daemon complained of" "$(complaints)" ""
still_runs
