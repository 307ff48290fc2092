#!/usr/bin/env bash
# Drives the web server and nginx (one worker, sendfile on, same folder) with
# wrk on 127.0.0.1, every request with "Connection: close". The servers run on
# the first core and wrk on the second where there are two. Also streams a
# 1 GiB file, a burst of 500 connections for memory, and watches idle CPU.
# Prints one table; never fails on the figures.
#
#   bench/http/run.sh [BUILD_DIR]      (default: build; SECONDS_PER_CASE=5, best of two)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
secs=${SECONDS_PER_CASE:-5}
for tool in wrk nginx curl; do
    command -v "$tool" >/dev/null || { echo "needs $tool (apt-get install wrk nginx-light curl)"; exit 2; }
done
[ -x "$build/app/kestrava" ] || { echo "build first: tools/dev.sh test"; exit 2; }

server_cpu=() client_cpu=()
if [ "$(nproc)" -ge 2 ]; then server_cpu=(taskset -c 0) client_cpu=(taskset -c 1); fi

work=$(mktemp -d)
trap 'kill $kpid $npid 2>/dev/null || true; rm -rf "$work"' EXIT
home=$work/home
mkdir -p "$home/pic" "$home/IRSignals"
kport=18421 nport=18480
head -c 1434 /dev/urandom >"$home/pic/bench.gif"
truncate -s 1G "$home/big.mpg"
# A phone remote of 66 keys on the simulator.
(cd "$work" && "$build/tools/kestrava-ir/kestrava-ir" capture sim "$home/IRSignals/TV-F0.bin" 5 >/dev/null)
{
    printf '[WebServer]\r\nPort=%s\r\n[Tira]\r\nDevice=sim\r\n' $kport
    printf '[Remote-1]\r\nDevice=TV\r\nDesign=6\r\n'
    for k in $(seq 0 65); do
        printf 'Button-%s=F%s\r\n' "$k" "$k"
        [ "$k" = 0 ] || cp "$home/IRSignals/TV-F0.bin" "$home/IRSignals/TV-F$k.bin"
    done
} >"$home/setting.ini"

chmod -R a+rX "$work" # nginx's worker runs as another user
"${server_cpu[@]}" "$build/app/kestrava" --headless --home "$home" 2>"$work/kestrava.log" &
kpid=$!
for _ in $(seq 50); do curl -s -o /dev/null "http://127.0.0.1:$kport/default.asp" && break; sleep 0.1; done
curl -s -o "$home/default.asp" "http://127.0.0.1:$kport/default.asp"

cat >"$work/nginx.conf" <<CONF
worker_processes 1;
pid $work/nginx.pid;
error_log $work/nginx-error.log;
events { worker_connections 2048; }
http {
    access_log off;
    sendfile on;
    types { image/gif gif; text/html asp; video/mpeg mpg; }
    client_body_temp_path $work/tmp; proxy_temp_path $work/tmp; fastcgi_temp_path $work/tmp;
    uwsgi_temp_path $work/tmp; scgi_temp_path $work/tmp;
    server { listen 127.0.0.1:$nport; root $home; keepalive_timeout 0; }
}
CONF
mkdir -p "$work/tmp"
"${server_cpu[@]}" nginx -c "$work/nginx.conf" -g 'daemon off;' &
npid=$!
sleep 0.5

rss() { awk '/VmRSS/ {print $2}' "/proc/$kpid/status"; }
ticks() { awk '{print $14 + $15}' "/proc/$kpid/stat"; }
# wrk -> "rate p50 p99" (rate in requests per second)
wrk_once() {
    local conns=$1 url=$2
    "${client_cpu[@]}" wrk -t1 -c"$conns" -d"${secs}s" --latency -H 'Connection: close' "$url" |
        awk '/Requests\/sec/ {r = $2} $1 == "50%" {p50 = $2} $1 == "99%" {p99 = $2}
             /Non-2xx|Socket errors/ {print "wrk: " $0 > "/dev/stderr"}
             END {printf "%.0f %s %s\n", r, p50, p99}'
}
# Both servers in turn, twice; each keeps its better run, so that a moment of
# load elsewhere on the machine does not decide a figure.
# -> "rate p50 p99" of ours, then of nginx
pair() {
    local conns=$1 path=$2 k=() n=()
    for _ in 1 2; do
        k+=("$(wrk_once "$conns" "http://127.0.0.1:$kport$path")")
        n+=("$(wrk_once "$conns" "http://127.0.0.1:$nport$path")")
    done
    echo "$(printf '%s\n' "${k[@]}" | sort -n -r | head -1) $(printf '%s\n' "${n[@]}" | sort -n -r | head -1)"
}
measure() {
    { wrk_once "$1" "http://127.0.0.1:$kport$2"; wrk_once "$1" "http://127.0.0.1:$kport$2"; } |
        sort -n -r | head -1
}
ratio() { awk "BEGIN {printf \"%.0f %%\", 100 * $1 / $2}"; }
stream() {
    "${client_cpu[@]}" curl -s -o /dev/null -w '%{speed_download}' "$1" |
        awk '{printf "%.1f GB/s", $1 / 1e9}'
}

# Streaming first, while the peak is the stream's own; the file is in the
# page cache for both servers.
# One stream swings by a quarter from run to run on loopback: each server
# streams three times in turn, and the median counts.
cat "$home/big.mpg" >/dev/null
idle_kb=$(rss)
sk=() sn=()
for _ in 1 2 3; do
    sk+=("$(stream "http://127.0.0.1:$kport/big.mpg")")
    sn+=("$(stream "http://127.0.0.1:$nport/big.mpg")")
done
peak_kb=$(awk '/VmHWM/ {print $2}' "/proc/$kpid/status")
median() { printf '%s\n' "$@" | sort -n | sed -n 2p; }
stream_k=$(median "${sk[@]}")
stream_n=$(median "${sn[@]}")

pic=/pic/bench.gif
read -r p1_k _ _ p1_n _ _ < <(pair 1 "$pic")
read -r p50_k _ _ p50_n _ _ < <(pair 50 "$pic")
read -r p500_k _ p99_k p500_n _ p99_n < <(pair 500 "$pic")
burst_kb=$(rss)
read -r page_k _ _ page_n _ _ < <(pair 50 /default.asp)
read -r phone_k phone_p50 _ < <(measure 10 "/cremote.asp?DevID=1&Device=TV")
read -r press_k press_p50 _ < <(measure 10 "/cremote.asp?DevID=1&Button=0&Device=TV")
log_kb=$(($(stat -c %s "$home/sim-transmit.log") / 1024))

# A minute after the burst; the last 30 seconds of it count as idle.
sleep 30
before=$(ticks)
sleep 30
after=$(ticks)
later_kb=$(rss)

echo "| case | Kestrava | nginx | ratio |"
echo "|---|---|---|---|"
echo "| 1.4 KB picture, 1 connection | $p1_k req/s | $p1_n | $(ratio "$p1_k" "$p1_n") |"
echo "| 1.4 KB picture, 50 connections | $p50_k req/s | $p50_n | $(ratio "$p50_k" "$p50_n") |"
echo "| 1.4 KB picture, 500 connections | $p500_k req/s, p99 $p99_k | $p500_n, p99 $p99_n | $(ratio "$p500_k" "$p500_n") |"
echo "| \`default.asp\`, 50 connections | $page_k req/s | $page_n (static copy) | $(ratio "$page_k" "$page_n") |"
echo "| phone page \`cremote.asp\` (66 keys, no press), 10 connections | $phone_k req/s, p50 $phone_p50 | - | - |"
echo "| phone press \`cremote.asp\` (simulator, presses queue), 10 connections | $press_k req/s, p50 $press_p50 | - | - |"
echo "| 1 GiB file | $stream_k, peak RSS $((peak_kb / 1024)) MiB | $stream_n | - |"
echo
echo "RSS: idle $((idle_kb / 1024)) MiB, after 500 connections $((burst_kb / 1024)) MiB," \
    "a minute after the last request $((later_kb / 1024)) MiB; idle 30 s: $((after - before)) clock ticks of CPU;" \
    "sim-transmit.log ${log_kb} KiB"
