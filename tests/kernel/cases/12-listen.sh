# The listener on rc-loopback. Reloaded: a capture before may have left its
# learning receiver on, which takes only what goes out on transmitter 2.
rmmod rc-loopback 2>/dev/null
modprobe rc-loopback && wait_for /dev/lirc0 5
gtest listen-loopback 'LircKernel.ListenerHearsAFrameOnceAndNamesTheKey'
if [ -x /usr/sbin/mosquitto ] && command -v mosquitto_sub >/dev/null; then
    gtest listen-mqtt-trigger 'LircKernel.HeardKeyFiresItsTriggerOnTheBroker'
else
    report listen-mqtt-trigger skip "no mosquitto"
fi
gtest listen-climate 'ClimateKernel.HeardFrameUpdatesTheUnit'
