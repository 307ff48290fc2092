# The machine itself: its kernel, and the loopback infrared device.
if modprobe rc-loopback && wait_for /dev/lirc0 5; then
    report boot ok "kernel $(uname -r), /dev/lirc0 from rc-loopback"
else
    report boot FAIL "no /dev/lirc0 after modprobe rc-loopback"
fi
