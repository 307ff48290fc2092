# The camera on vivid, the kernel's virtual capture device.
if modprobe vivid n_devs=1 && wait_for /dev/video0 5; then
    gtest camera-stream 'KernelCamera.StreamsAtItsRate*'
    gtest camera-pages 'KernelCamera.PagesAnswer*'
else
    for c in camera-stream camera-pages; do report $c FAIL "no /dev/video0 after modprobe vivid"; done
fi
