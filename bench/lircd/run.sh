#!/usr/bin/env bash
# The lircd socket: what a SEND_ONCE adds to the signal's own air time on the
# simulator (one client on one connection writing what irsend writes, p50/p99
# over 200 sends; then irsend itself, its process start included); then 50 irw
# clients while keys are heard (each must print each line) and the CPU the
# program uses with them connected and nothing heard.
# Prints the figures; never fails on them.
#
#   bench/lircd/run.sh [BUILD_DIR]      (default: build; IDLE_SECONDS=30)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
idle=${IDLE_SECONDS:-30}
for tool in irsend irw python3; do
    command -v "$tool" >/dev/null || { echo "needs $tool (apt-get install lirc python3)"; exit 2; }
done
[ -x "$build/app/kestrava" ] && [ -x "$build/tools/kestrava-ir/kestrava-ir" ] ||
    { echo "build first: tools/dev.sh test"; exit 2; }

server_cpu=() client_cpu=()
if [ "$(nproc)" -ge 2 ]; then server_cpu=(taskset -c 0) client_cpu=(taskset -c 1); fi

work=$(mktemp -d)
kpid= irws=()
trap 'kill $kpid "${irws[@]}" 2>/dev/null || true; rm -rf "$work"' EXIT
home=$work/home sock=$work/home/lircd
mkdir -p "$home/IRSignals"
"$build/tools/kestrava-ir/kestrava-ir" encode nec:0x0408 "$work/one.bin" >/dev/null
"$build/tools/kestrava-ir/kestrava-ir" encode nec:0x0409 "$work/two.bin" >/dev/null
{
    printf '[WebServer]\r\nPort=0\r\n[Tira]\r\nDevice=sim\r\n[Lircd]\r\nSocket=lircd\r\n'
    printf '[Remote-1]\r\nDevice=TV\r\nDesign=6\r\nButton-0=Up\r\nButton-1=Down\r\n'
} >"$home/setting.ini"
cp "$work/one.bin" "$home/IRSignals/TV-Up.bin"
cp "$work/two.bin" "$home/IRSignals/TV-Down.bin"
air_ms=$("$build/tools/kestrava-ir/kestrava-ir" show "$work/one.bin" | grep -v '^#' | head -1 |
    python3 -c '
import sys
t = [int(x) for x in sys.stdin.read().split()]
while t and t[-1] < 0: t.pop()
print(sum(abs(x) for x in t) // 1000)')

"${server_cpu[@]}" "$build/app/kestrava" --headless --home "$home" 2>"$work/kestrava.log" &
kpid=$!
for _ in $(seq 100); do [ -S "$sock" ] && break; sleep 0.1; done

"${client_cpu[@]}" python3 - "$sock" "$air_ms" "$home/sim-transmit.log" <<'PY'
import socket, subprocess, sys, time
path, air, log = sys.argv[1], int(sys.argv[2]), sys.argv[3]
s = socket.socket(socket.AF_UNIX); s.connect(path)
f = s.makefile("rb")
def send():
    t = time.perf_counter()
    s.sendall(b"SEND_ONCE TV Up\n")
    lines = [f.readline() for _ in range(4)]
    assert lines[2] == b"SUCCESS\n", lines
    return (time.perf_counter() - t) * 1000
def irsend():
    t = time.perf_counter()
    subprocess.run(["irsend", "-d", path, "SEND_ONCE", "TV", "Up"], check=True)
    return (time.perf_counter() - t) * 1000
send()  # opens the device
before = sum(1 for _ in open(log))
for name, f_ in (("SEND_ONCE on one connection", send), ("irsend SEND_ONCE", irsend)):
    whole = sorted(f_() for _ in range(200))
    p = lambda q: whole[min(len(whole) - 1, int(q * len(whole)))]
    print(f"{name}, 200 in a row: air time {air} ms; whole p50 {p(.5):.2f} ms,"
          f" p99 {p(.99):.2f} ms; beyond the air time p50 {p(.5) - air:.2f} ms,"
          f" p99 {p(.99) - air:.2f} ms")
print(f"sends in the simulator's log: {sum(1 for _ in open(log)) - before} of 400")
PY

# 50 irw clients, then 200 keys heard (two codes in turn: each a new press).
for i in $(seq 50); do
    irw "$sock" >"$work/irw$i.out" 2>/dev/null &
    irws+=($!)
done
sleep 1
python3 -c '
import sys
sys.stdout.write("nec:0x0408\nnec:0x0409\n" * 100)' >"$home/sim-receive.tmp"
t0=$(date +%s.%N)
mv "$home/sim-receive.tmp" "$home/sim-receive"
all=0
for _ in $(seq 200); do
    all=$(cat "$work"/irw*.out | wc -l)
    [ "$all" -ge $((50 * 200)) ] && break
    sleep 0.05
done
t1=$(date +%s.%N)
full=$(for i in $(seq 50); do [ "$(wc -l <"$work/irw$i.out")" -eq 200 ] && echo ok; done | wc -l)
echo "50 irw clients, 200 keys heard: $full of 50 got all 200 lines ($all lines in all)," \
    "within $(python3 -c "print(f'{($t1 - $t0) * 1000:.0f}')") ms of the file"

# Idle with the clients connected, once the transceiver has closed (30 s
# after the last send).
sleep 32
stat() { awk '{print $14 + $15}' "/proc/$kpid/stat"; }
t0=$(stat)
sleep "$idle"
echo "idle ${idle} s with 50 irw clients connected: $(($(stat) - t0)) CPU ticks"
