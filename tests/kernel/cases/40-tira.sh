# The Tira over the kernel's ftdi_sio, and its hot unplug. No udev here: the
# modules are loaded by hand.
modprobe xhci_pci
modprobe ftdi_sio
if wait_for /dev/ttyUSB0 20; then
    gtest tira-ftdi 'TiraKernel.IdentifiesSendsCapturesAndComesBackAfterAnUnplug'
else
    report tira-ftdi FAIL "no /dev/ttyUSB0 ($(ls /sys/bus/usb/devices 2>&1 | tr '\n' ' '))"
fi
