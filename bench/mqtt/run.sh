#!/usr/bin/env bash
# MQTT with 50 remotes of 66 keys on a broker of its own: how soon after
# connecting all discovery configs are out, then what a press asked for over
# MQTT adds to the signal's own air time on the simulator (message to the
# press event, p50/p99 over 200 presses); then CPU and memory while idle.
# Prints the figures; never fails on them.
#
#   bench/mqtt/run.sh [BUILD_DIR]      (default: build; IDLE_SECONDS=60)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
idle=${IDLE_SECONDS:-60}
[ -x /usr/sbin/mosquitto ] || { echo "needs mosquitto (apt-get install mosquitto)"; exit 2; }
[ -x "$build/bench/kestrava_mqtt_bench" ] || { echo "build first: tools/dev.sh bench"; exit 2; }

work=$(mktemp -d)
trap 'kill $kpid $bpid $cpid 2>/dev/null || true; rm -rf "$work"' EXIT
kpid= bpid= cpid=
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
printf 'listener %s 127.0.0.1\nallow_anonymous true\n' "$port" >"$work/mosquitto.conf"
[ "$(id -u)" = 0 ] && echo "user root" >>"$work/mosquitto.conf"
/usr/sbin/mosquitto -c "$work/mosquitto.conf" >"$work/broker.log" 2>&1 &
bpid=$!
sleep 0.5

home=$work/home
mkdir -p "$home/IRSignals"
"$build/tools/kestrava-ir/kestrava-ir" encode nec:0x0408 "$work/one.bin" >/dev/null
{
    printf '[WebServer]\r\nPort=0\r\n[Tira]\r\nDevice=sim\r\n'
    printf '[MQTT]\r\nServer=127.0.0.1:%s\r\nNodeId=bench\r\n' "$port"
    for r in $(seq 1 50); do
        printf '[Remote-%s]\r\nDevice=R%s\r\nDesign=6\r\n' "$r" "$r"
        for k in $(seq 0 65); do
            printf 'Button-%s=F%s\r\n' "$k" "$k"
            cp "$work/one.bin" "$home/IRSignals/R$r-F$k.bin"
        done
    done
} >"$home/setting.ini"
air_ms=$("$build/tools/kestrava-ir/kestrava-ir" show "$work/one.bin" | grep -v '^#' | head -1 |
    python3 -c '
import sys
t = [int(x) for x in sys.stdin.read().split()]
while t and t[-1] < 0: t.pop()
print(sum(abs(x) for x in t) // 1000)')

# A button and a trigger per key and a key-heard event per remote (the
# simulator can listen); the hub's emitter, receiver and four sensors.
"$build/bench/kestrava_mqtt_bench" "$port" kestrava/bench $((50 * (66 * 2 + 1) + 6)) "$air_ms" \
    >"$work/client.out" &
cpid=$!
for _ in $(seq 50); do grep -q ready "$work/client.out" 2>/dev/null && break; sleep 0.1; done
"$build/app/kestrava" --headless --home "$home" 2>"$work/kestrava.log" &
kpid=$!
wait $cpid || true
grep -v ready "$work/client.out"

# Idle: CPU ticks and RSS over a quiet stretch, keep-alives only, once the
# transceiver has closed (30 s after the last press).
sleep 32
stat() { awk '{print $14 + $15}' "/proc/$kpid/stat"; }
rss() { awk '/VmRSS/ {print $2}' "/proc/$kpid/status"; }
t0=$(stat) r0=$(rss)
sleep "$idle"
echo "idle ${idle} s with MQTT on: $(($(stat) - t0)) CPU ticks, RSS ${r0} -> $(rss) kB"
