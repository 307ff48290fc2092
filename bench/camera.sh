#!/usr/bin/env bash
# The camera's cost with the test pattern: time from a remote-page request to
# its last byte (median of 200, target < 20 ms), and the process's CPU over
# 60 s with TakePic on and no requests. Reports figures; never fails on them.
#
#   bench/camera.sh [BUILD_DIR] [IDLE_SECONDS]      (default: build 60)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
idle=${2:-60}
command -v curl >/dev/null || { echo "needs curl"; exit 2; }
[ -x "$build/app/kestrava" ] || { echo "build first: tools/dev.sh test"; exit 2; }

work=$(mktemp -d)
trap 'kill $kpid 2>/dev/null || true; rm -rf "$work"' EXIT
home=$work/home
mkdir -p "$home/pic"
port=18431
printf '[WebServer]\r\nPort=%s\r\n[Options]\r\nTakePic=1\r\n[Camera]\r\nDevice=test\r\n' $port \
    >"$home/setting.ini"
printf '[Remote-1]\r\nDevice=tv\r\nDesign=1\r\nButton-0=power\r\n' >>"$home/setting.ini"

"$build/app/kestrava" --headless --home "$home" 2>"$work/kestrava.log" &
kpid=$!
url="http://127.0.0.1:$port/remote1.asp?DevID=1&Button=&Device=tv"
for _ in $(seq 50); do curl -s -o /dev/null "$url" && break; sleep 0.1; done

for _ in $(seq 200); do
    curl -s -o /dev/null -w '%{time_total}\n' "$url"
done | sort -n | awk '{t[NR] = $1} END {printf "remote1.asp + picture: median %.1f ms of %d\n", 1000 * t[int((NR + 1) / 2)], NR}'
file "$home/pic/pict.jpg" 2>/dev/null || ls -l "$home/pic/pict.jpg"

ticks() { awk '{print $14 + $15}' "/proc/$kpid/stat"; }
hz=$(getconf CLK_TCK)
before=$(ticks)
sleep "$idle"
after=$(ticks)
echo "idle $idle s, TakePic on: $((after - before)) ticks of CPU" \
    "($(awk "BEGIN {printf \"%.2f\", 100 * ($after - $before) / $hz / $idle}") % of one core)"
