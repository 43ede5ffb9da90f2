# x
start_daemon
start_supplicant
wpa p2p0 p2p_group_add freq=2437
sleep 2
wpa p2p0 status
iw dev
wpa p2p0 chan_switch 5 2462 ht
sleep 2
wpa p2p0 p2p_group_remove p2p0
sleep 1
wpa p2p0 p2p_group_add freq=5180
sleep 3
wpa p2p0 chan_switch 5 5200 ht
sleep 2
wpa p2p0 status
wpa p2p0 p2p_group_remove p2p0
sleep 1
cat /lab/log/p2p.log /lab/log/sta.log
cat /lab/log/supplicant.log
grep P2P /lab/log/daemon.log
iw phy phy0 info | grep -iA3 vht
for c in US DE JP CA AU GB CN KR TW BR IN RU ZA NZ CL IL QA PA; do iw reg set $c; sleep 0.3; iw reg get | grep -E "^country|\(5[12][0-9]*" | tr '\n' ' '; echo; done
