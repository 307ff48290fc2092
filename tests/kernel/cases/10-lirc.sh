# The LIRC driver on rc-loopback (dyndbg=+p: it logs the carrier and duty cycle
# it is set to).
rmmod rc-loopback 2>/dev/null
modprobe rc-loopback dyndbg=+p && wait_for /dev/lirc0 5
gtest lirc-roundtrip 'LircKernel.PagePressReachesTheWireOnce*'
gtest lirc-kernel-captures 'LircKernel.KernelEncodedSignalsAreCapturedWhole*'
gtest lirc-unplug 'LircKernel.UnpluggedDeviceFailsAndComesBack'
