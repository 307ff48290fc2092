#!/usr/bin/env bash
# Runs the kernel device tests in a virtual machine: Debian's own kernel under
# QEMU (TCG, no network), the host's / shared read-only over 9p and a scratch
# folder shared writable, so the build tree's programs meet the kernel's real
# LIRC, V4L2, USB-serial and RTC drivers without touching the host.
#
#   tests/kernel/lane.sh [BUILD_DIR]     (default: build)
#   LANE_CASES=lirc ...   only the case files whose name holds "lirc"
#   LANE_KEEP=1 ...       keeps the shared folder (console.log, each gtest log)
#
# Prints one line per case, "CASE <name> ok|FAIL|skip <figures or reason>",
# and fails when a case failed or the machine did not finish in time.
#
# The guest runs tests/kernel/guest.sh, which runs each tests/kernel/cases/*.sh.
# Host side:
#  - tests/kernel/host-*.sh are started in the background once QEMU listens,
#    with LANE_OUT (the shared folder) and LANE_BUILD set, and stopped at the
#    end; $LANE_OUT/tira.sock is the far end of the VM's FTDI serial port
#    (usb-serial, id tira0, serial number KESTRAVA0001, on qemu-xhci). QEMU
#    plugs that port in only while something on the host holds the socket.
#  - Host actions on request (guest.sh's host_do): the guest writes a QEMU
#    monitor command to host/N.req in the shared folder; this script runs it
#    on the monitor ($LANE_OUT/monitor.sock) and writes the monitor's answer to
#    host/N.ans (written whole, then renamed).
set -euo pipefail
cd "$(dirname "$0")/../.."
SRC=$PWD
BUILD=$(realpath "${1:-build}")
TIMEOUT=${LANE_TIMEOUT:-540}

KVER=$(ls /lib/modules | sort -V | tail -n 1)
KERNEL=/boot/vmlinuz-$KVER
[ -r "$KERNEL" ] || { echo "lane: no kernel $KERNEL (package linux-image-amd64)"; exit 1; }
BUSYBOX=$(command -v busybox) || { echo "lane: busybox-static is missing"; exit 1; }
PYTHON=$(command -v /usr/bin/python3 python3 | head -n 1)

# The initramfs: busybox and the modules that reach the 9p shares, in the
# order they depend on each other.
INITRD=$BUILD/kernel-lane/initramfs-$KVER.cpio.gz
MODULES=(virtio_ring virtio virtio_pci_modern_dev virtio_pci_legacy_dev virtio_pci
    netfs fscache 9pnet 9pnet_virtio 9p)
if [ ! -s "$INITRD" ] || [ "$INITRD" -ot "$0" ]; then
    root=$(mktemp -d)
    mkdir -p "$root"/{bin,proc,sys,dev,newroot,modules}
    cp "$BUSYBOX" "$root/bin/busybox"
    ln -s busybox "$root/bin/sh"
    for m in "${MODULES[@]}"; do
        f=$(modinfo -k "$KVER" -n "$m")
        case "$f" in
        *.ko) cp "$f" "$root/modules/$m.ko" ;;
        *.ko.xz) xz -dc "$f" >"$root/modules/$m.ko" ;;
        *) echo "lane: module $m not found for $KVER"; exit 1 ;;
        esac
    done
    cat >"$root/init" <<INIT
#!/bin/sh
export PATH=/bin
busybox mount -t proc proc /proc
busybox mount -t devtmpfs dev /dev
for m in ${MODULES[*]}; do busybox insmod /modules/\$m.ko || echo "lane: insmod \$m failed"; done
R=/newroot
busybox mount -t 9p -o ro,trans=virtio,version=9p2000.L,msize=262144,cache=loose root \$R ||
    { echo "lane: no root share"; busybox poweroff -f; }
busybox mount -t proc proc \$R/proc
busybox mount -t sysfs sys \$R/sys
busybox mount -t devtmpfs dev \$R/dev
busybox mkdir -p \$R/dev/pts \$R/dev/shm
busybox mount -t devpts devpts \$R/dev/pts
busybox mount -t tmpfs shm \$R/dev/shm
busybox mount -t tmpfs tmp \$R/tmp
busybox mount -t tmpfs run \$R/run
busybox mkdir -p \$R/tmp/out
busybox mount -t 9p -o trans=virtio,version=9p2000.L,msize=262144 out \$R/tmp/out
busybox chroot \$R /bin/sh -c '. /tmp/out/lane.env && ip link set lo up && cd "\$LANE_SRC" &&
    tests/kernel/guest.sh' </dev/console >/dev/console 2>&1
busybox sync
busybox poweroff -f
INIT
    chmod +x "$root/init"
    mkdir -p "$(dirname "$INITRD")"
    (cd "$root" && find . | cpio -o -H newc --quiet | gzip -1) >"$INITRD.tmp"
    mv "$INITRD.tmp" "$INITRD"
    rm -rf "$root"
fi

OUT=$(mktemp -d /tmp/kestrava-lane.XXXXXX)
mkdir -p "$OUT/host"
cat >"$OUT/lane.env" <<ENV
LANE_SRC='$SRC'
LANE_BUILD='$BUILD'
LANE_OUT=/tmp/out
HOME=/tmp/out/home
PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
LANE_CASES='${LANE_CASES:-}'
export LANE_SRC LANE_BUILD LANE_OUT HOME PATH LANE_CASES
ENV
pids=()
qemu_pid=
cleanup() {
    local p
    for p in "${pids[@]}" $qemu_pid; do kill "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
    [ -n "${LANE_KEEP:-}" ] && echo "lane: kept $OUT" || rm -rf "$OUT"
}
trap cleanup EXIT

echo "lane: kernel $KVER, build $BUILD, folder $OUT"
start=$SECONDS
timeout --kill-after=10 "$TIMEOUT" qemu-system-x86_64 -machine q35,accel=tcg -cpu max -smp 2 -m 1024 \
    -nographic -no-reboot -nic none \
    -kernel "$KERNEL" -initrd "$INITRD" \
    -append "console=ttyS0 quiet loglevel=3 panic=-1 rdinit=/init" \
    -virtfs local,path=/,mount_tag=root,security_model=none,readonly=on,multidevs=remap \
    -virtfs local,path="$OUT",mount_tag=out,security_model=none,multidevs=remap \
    -device qemu-xhci,id=xhci \
    -chardev socket,id=tira,path="$OUT/tira.sock",server=on,wait=off \
    -device usb-serial,id=tira0,bus=xhci.0,chardev=tira,serial=KESTRAVA0001 \
    -monitor unix:"$OUT/monitor.sock",server=on,wait=off \
    </dev/null >"$OUT/console.log" 2>&1 &
qemu_pid=$!

# Runs one monitor command, prints the monitor's answer.
monitor() {
    "$PYTHON" - "$OUT/monitor.sock" "$1" <<'PY'
import socket, sys, time
s = socket.socket(socket.AF_UNIX)
s.connect(sys.argv[1])
s.settimeout(5)
def until_prompt():
    data = b""
    while not data.endswith(b"(qemu) "):
        chunk = s.recv(4096)
        if not chunk:
            break
        data += chunk
    return data.decode(errors="replace")
until_prompt()
s.sendall(sys.argv[2].encode() + b"\n")
out = until_prompt().replace("\r", "")
# The monitor echoes the command with terminal escapes; the answer has none.
print("\n".join(l for l in out.split("\n") if l.strip() and "\x1b" not in l and not l.startswith("(qemu)")))
PY
}

for _ in $(seq 50); do [ -S "$OUT/monitor.sock" ] && break; sleep 0.1; done
for hook in tests/kernel/host-*.sh; do
    [ -x "$hook" ] || continue
    LANE_OUT=$OUT LANE_BUILD=$BUILD "$hook" >"$OUT/$(basename "$hook" .sh).log" 2>&1 &
    pids+=($!)
done

shown=0
while kill -0 "$qemu_pid" 2>/dev/null; do
    for req in "$OUT"/host/*.req; do
        [ -e "$req" ] || continue
        ans=${req%.req}.ans
        monitor "$(cat "$req")" >"$ans.tmp" 2>&1 || echo "lane: monitor failed" >>"$ans.tmp"
        rm -f "$req"
        mv "$ans.tmp" "$ans"
    done
    if [ -f "$OUT/cases" ]; then
        n=$(wc -l <"$OUT/cases")
        [ "$n" -gt "$shown" ] && sed -n "$((shown + 1)),${n}p" "$OUT/cases" && shown=$n
    fi
    sleep 0.2
done
wait "$qemu_pid" && rc=0 || rc=$?
qemu_pid=

# Lines the guest could not write to the share show on its console.
[ -s "$OUT/cases" ] || tr -d '\r' <"$OUT/console.log" | grep '^CASE ' >"$OUT/cases" || true
n=$(wc -l <"$OUT/cases")
[ "$n" -gt "$shown" ] && sed -n "$((shown + 1)),${n}p" "$OUT/cases"
echo "lane: $((SECONDS - start)) s"
failed=0
if [ ! -f "$OUT/done" ]; then
    echo "lane: the machine did not finish (qemu exit $rc); its console:"
    tail -n 40 "$OUT/console.log"
    failed=1
fi
if grep -q '^CASE [^ ]* FAIL' "$OUT/cases"; then
    [ -n "${LANE_VERBOSE:-}" ] || tail -n 60 "$OUT/console.log" | tr -d '\r'
    failed=1
fi
exit $failed
