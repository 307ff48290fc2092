# Protocol decoding and encoding against the kernel's encoders and decoders on
# rc-loopback.
rmmod rc-loopback 2>/dev/null
modprobe rc-loopback && wait_for /dev/lirc0 5
gtest protocols-kernel-encoded 'ProtocolKernel.KernelEncodedSignalsDecode'
# Learning mode stays on in rc-loopback after a capture; a fresh one is off.
rmmod rc-loopback && modprobe rc-loopback && wait_for /dev/lirc0 5
gtest protocols-kernel-decodes 'ProtocolKernel.KernelDecodesOurSignals'
