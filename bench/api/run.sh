#!/usr/bin/env bash
# The JSON API under load: GET /api/v1/remotes with 50 remotes of 66 keys at 10
# keep-alive connections (wrk), then what a press through the API adds to the
# signal's own air time on the simulator (one client, p50/p99 over 200 presses).
# Prints the figures; never fails on them.
#
#   bench/api/run.sh [BUILD_DIR]      (default: build; SECONDS_PER_CASE=10)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
secs=${SECONDS_PER_CASE:-10}
for tool in wrk curl python3; do
    command -v "$tool" >/dev/null || { echo "needs $tool (apt-get install wrk curl python3)"; exit 2; }
done
[ -x "$build/app/kestrava" ] || { echo "build first: tools/dev.sh test"; exit 2; }

server_cpu=() client_cpu=()
if [ "$(nproc)" -ge 2 ]; then server_cpu=(taskset -c 0) client_cpu=(taskset -c 1); fi

work=$(mktemp -d)
trap 'kill $kpid 2>/dev/null || true; rm -rf "$work"' EXIT
home=$work/home port=18521
mkdir -p "$home/IRSignals"
(cd "$work" && "$build/tools/kestrava-ir/kestrava-ir" capture sim "$work/one.bin" 5 >/dev/null)
{
    printf '[WebServer]\r\nPort=%s\r\n[Tira]\r\nDevice=sim\r\n' $port
    for r in $(seq 1 50); do
        printf '[Remote-%s]\r\nDevice=R%s\r\nDesign=6\r\n' "$r" "$r"
        for k in $(seq 0 65); do
            printf 'Button-%s=F%s\r\n' "$k" "$k"
            cp "$work/one.bin" "$home/IRSignals/R$r-F$k.bin"
        done
    done
} >"$home/setting.ini"

"${server_cpu[@]}" "$build/app/kestrava" --headless --home "$home" 2>"$work/kestrava.log" &
kpid=$!
for _ in $(seq 50); do curl -sf "http://127.0.0.1:$port/api/v1/status" >/dev/null && break; sleep 0.1; done
bytes=$(curl -s "http://127.0.0.1:$port/api/v1/remotes" | wc -c)
echo "GET /api/v1/remotes: $bytes bytes, 50 remotes x 66 keys"
"${client_cpu[@]}" wrk -t2 -c10 -d"${secs}s" --latency "http://127.0.0.1:$port/api/v1/remotes" |
    grep -E "Requests/sec|Latency|99%"

# A press through the API against the signal's own air time, as the
# simulator's log stamps each send.
# The simulator is on air for the whole frame, its repeat included, in whole
# milliseconds of a coarse timer.
air_ms=$("$build/tools/kestrava-ir/kestrava-ir" show "$work/one.bin" | grep -v '^#' | head -1 |
    python3 -c '
import sys
t = [int(x) for x in sys.stdin.read().split()]
while t and t[-1] < 0: t.pop()
print(sum(abs(x) for x in t) // 1000)')
python3 - "$port" "$air_ms" <<'PY'
import http.client, sys, time
port, air = int(sys.argv[1]), int(sys.argv[2])
c = http.client.HTTPConnection("127.0.0.1", port)
def press():
    t = time.perf_counter()
    c.request("POST", "/api/v1/remotes/1/keys/0/press", body=b"")
    r = c.getresponse(); r.read()
    assert r.status == 200, r.status
    return (time.perf_counter() - t) * 1000
def page():
    t = time.perf_counter()
    d = http.client.HTTPConnection("127.0.0.1", port)
    d.request("GET", "/remote6.asp?DevID=1&Button=0"); d.getresponse().read(); d.close()
    return (time.perf_counter() - t) * 1000
press()  # opens the device
for name, f in (("API press", press), ("classic page press", page)):
    whole = sorted(f() for _ in range(200))
    p = lambda q: whole[min(len(whole) - 1, int(q * len(whole)))]
    print(f"{name}, one client, 200 in a row: air time {air} ms; whole p50 {p(.5):.2f} ms,"
          f" p99 {p(.99):.2f} ms; beyond the air time p50 {p(.5) - air:.2f} ms,"
          f" p99 {p(.99) - air:.2f} ms")
PY
