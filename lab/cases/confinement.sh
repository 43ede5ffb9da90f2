# the daemon has its script's user, groups and capabilities and its seccomp policy, and needs them
# limit: 120 s

# status FIELD: of the daemon's process.
status() { sed -n "s/^$1:[ 	]*//p" "/proc/$daemon/status" | tr '\t' ' '; }

# traced: a call has come into the trace.
traced() { call getStaInfo && [ -s /data/misc/trace/corvid-wifi.json ]; }

# ended_with STATUS: the daemon ends with it. 159 is SIGSYS.
ended_with() {
    wait "$daemon"
    same "the daemon's exit status" "$?" "$1"
}

property cmd.noa.p2p true
start_supplicant

step "what the daemon has"
start_daemon
same "the user" "$(status Uid)" "$wifi $wifi $wifi $wifi"
same "the group" "$(status Gid)" "$wifi $wifi $wifi $wifi"
same "the other groups" "$(status Groups)" "3003 "
# Bit 12, CAP_NET_ADMIN.
for kind in Inh Prm Eff Bnd Amb; do
    same "its capabilities" "$(status Cap$kind)" 0000000000001000
done
same "no new privileges" "$(status NoNewPrivs)" 1
same "a seccomp filter" "$(status Seccomp)" 2
told "[WPA-STA] Connected to supplicant socket: $sockets/wlan0"
told "[WPA-P2P] Connected to supplicant socket: $sockets/p2p0"

step "with NET_ADMIN the driver is asked, and knows no such command"
call setP2pNoa 255 0 100 >/dev/null
told "Nl80211Client: nl80211 response has error code -95"
kill "$daemon"
ended_with 143

step "without it the kernel refuses to ask"
confinement="-c -"
start_daemon
same "its capabilities" "$(status CapEff)" 0000000000000000
call setP2pNoa 255 0 100 >/dev/null
told "Nl80211Client: nl80211 response has error code -1"
kill "$daemon"
ended_with 143
confinement=

step "a call that the policy does not have ends the daemon"
sed '/^rt_sigreturn:/d' /lab/service.policy >/lab/etc/smaller.policy
policies=/lab/etc/smaller.policy,/lab/host.policy
start_daemon
kill -USR2 "$daemon"
ended_with 159
policies=/lab/service.policy,/lab/host.policy

step "which the daemon's own policy has"
start_daemon
kill -USR2 "$daemon"
told "service: Received a signal: 12"
dump >/dev/null
still_runs

step "with tracing on, which has a file of its own on a host"
mkdir -p /data/misc/trace
chown $wifi:$wifi /data/misc/trace
echo true >/dev/__properties__/debug.trace.CorvidWifi
until_true traced
has "the answer" "$(call getStaInfo)" '"frequency":-1'
