# station connects at 5180 MHz, 80 MHz wide: events, samples, record, dump, atoms
property telemetry.enable true
start_daemon
start_supplicant
start_access_point 5180 80
connect
expect sta "CTRL-EVENT-CONNECTED"
expect daemon "StaManager: STA event(CONNECTED)"
sleep 12
call getStaInfo
dump
cat $atoms
cat /lab/log/*.log
