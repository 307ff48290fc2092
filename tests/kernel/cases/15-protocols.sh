# Our protocol encoders against the kernel's decoders on rc-loopback (a fresh
# one: learning mode stays on after a capture). The kernel's encoders against
# our decoders are lirc-kernel-captures.
rmmod rc-loopback 2>/dev/null
modprobe rc-loopback && wait_for /dev/lirc0 5
# All the kernel's decoders on (ir-keytable -p all, which also wants the input
# device's node). The kernel cannot load them itself from inside the chroot.
for m in nec rc5 rc6 jvc sony sanyo sharp; do modprobe ir-$m-decoder; done
echo "+nec +rc-5 +rc-6 +jvc +sony +sanyo +sharp" >/sys/class/rc/rc0/protocols
gtest protocols-kernel-decodes 'ProtocolKernel.KernelDecodesOurSignals'
