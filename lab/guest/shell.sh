# The interactive shell's beginning (its ENV): the lab's words, and everything running.
unset ENV  # only this shell's
case=shell
. /lab/words.sh

# Back to the prompt, instead of out of the machine.
fail() {
    echo "not ok: $*"
    kill -INT $$
}

PS1='lab# '
# No word at the prompt of each background program that has ended.
set +m
every_feature
start_daemon
start_monitor
start_supplicant
start_peer
start_access_point 5180 80
connect
connected
cat <<'END'

The station is connected; radios are wlan0 and p2p0 (the headset), wlan1 (access point), wlan2 (peer).
  tail -f /lab/log/daemon.log           what the daemon does (cut off by Ctrl-C)
  dump; call getStaInfo                 what it knows
  tcpdump -ni wlan0, strace -fp $daemon what goes over the air, and what the daemon asks the kernel
  signal -75                            the access point goes away
  wpa wlan0 disconnect; connect         the link ends, and comes again
  wpa p2p0 p2p_group_add freq=5180      a P2P group starts, on the link's channel: the radio has one
  terminate_supplicant, kill_supplicant, start_supplicant, stop_access_point, start_access_point
  property NAME VALUE; kill $daemon; start_daemon
  cat /lab/words.sh                     the other words, which the cases are written in
'exit' ends the machine.
END
