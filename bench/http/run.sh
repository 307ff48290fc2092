#!/usr/bin/env bash
# Drives the web server and nginx (one worker, same folder) with wrk on
# 127.0.0.1, streams a 1 GiB file with curl, and watches idle CPU.
# Reports figures; never fails on them.
#
#   bench/http/run.sh [BUILD_DIR]      (default: build)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build}
for tool in wrk nginx curl; do
    command -v "$tool" >/dev/null || { echo "needs $tool (apt-get install wrk nginx-light curl)"; exit 2; }
done
[ -x "$build/app/kestrava" ] || { echo "build first: tools/dev.sh test"; exit 2; }

work=$(mktemp -d)
trap 'kill $kpid $npid 2>/dev/null || true; rm -rf "$work"' EXIT
home=$work/home
mkdir -p "$home/pic"
kport=18421 nport=18480
printf '[WebServer]\r\nPort=%s\r\n' $kport >"$home/setting.ini"
head -c 2048 /dev/urandom >"$home/pic/bench.gif"
# 100 remotes of 66 buttons each, for the largest remote page.
for id in $(seq 100); do
    printf '[Remote-%s]\r\nDevice=device%s\r\nDesign=6\r\n' "$id" "$id"
    for k in $(seq 0 65); do printf 'Button-%s=func%s\r\n' "$k" "$k"; done
done >>"$home/setting.ini"
truncate -s 1G "$home/big.mpg"

"$build/app/kestrava" --headless --home "$home" 2>"$work/kestrava.log" &
kpid=$!
for _ in $(seq 50); do curl -s -o /dev/null "http://127.0.0.1:$kport/default.asp" && break; sleep 0.1; done
curl -s -o "$home/default.asp" "http://127.0.0.1:$kport/default.asp"

cat >"$work/nginx.conf" <<CONF
worker_processes 1;
pid $work/nginx.pid;
error_log $work/nginx-error.log;
events { worker_connections 1024; }
http {
    access_log off;
    types { image/gif gif; text/html asp; }
    client_body_temp_path $work/tmp; proxy_temp_path $work/tmp; fastcgi_temp_path $work/tmp;
    uwsgi_temp_path $work/tmp; scgi_temp_path $work/tmp;
    server { listen 127.0.0.1:$nport; root $home; keepalive_timeout 0; }
}
CONF
mkdir -p "$work/tmp"
nginx -c "$work/nginx.conf" -g 'daemon off;' &
npid=$!
sleep 0.5

rate() { # url -> requests per second
    wrk -t2 -c32 -d8s -H 'Connection: close' "$1" | awk '/Requests\/sec/ {print $2}'
}
pic_k=$(rate "http://127.0.0.1:$kport/pic/bench.gif")
pic_n=$(rate "http://127.0.0.1:$nport/pic/bench.gif")
page_k=$(rate "http://127.0.0.1:$kport/default.asp")
page_n=$(rate "http://127.0.0.1:$nport/default.asp")

page6_latency=$(wrk -t1 -c1 -d8s --latency -H 'Connection: close' \
    "http://127.0.0.1:$kport/remote6.asp?DevID=57&Button=&Device=device57" |
    awk '$1 == "50%" {print $2}')

speed=$(curl -s -o /dev/null -w '%{speed_download}' "http://127.0.0.1:$kport/big.mpg")
peak_kb=$(awk '/VmHWM/ {print $2}' "/proc/$kpid/status")

ticks() { awk '{print $14 + $15}' "/proc/$kpid/stat"; }
before=$(ticks)
sleep 30
after=$(ticks)

echo "picture 2 KiB:   kestrava $pic_k req/s, nginx $pic_n req/s ($(awk "BEGIN {printf \"%.0f\", 100*$pic_k/$pic_n}") %)"
echo "default.asp:     kestrava $page_k req/s (nginx, saved copy: $page_n req/s)"
echo "remote6.asp:     median $page6_latency per page (100 remotes x 66 buttons, one client)"
echo "1 GiB stream:    $(awk "BEGIN {printf \"%.0f\", $speed/1e6}") MB/s, peak RSS $((peak_kb / 1024)) MiB"
echo "idle 30 s:       $((after - before)) clock ticks of CPU"
