#!/usr/bin/env bash
# HTTPS under load, the program itself with its certificate from files: keep-alive requests for the phone page (/m/) at 1, 50 and
# 500 connections (wrk) against nginx (one worker, the same certificate and
# page, TLS 1.3), then the same over plain HTTP, the handshake of a new
# connection (p50/p99 of 200, curl's own timing), and the server's RSS idle
# with HTTPS on. The servers run on the first core and wrk on the second where
# there are two. Prints one table; never fails on the figures.
#
#   bench/https/run.sh [BUILD_DIR]      (default: build; SECONDS_PER_CASE=5)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
secs=${SECONDS_PER_CASE:-5}
for tool in wrk nginx curl openssl; do
    command -v "$tool" >/dev/null || { echo "needs $tool (apt-get install wrk nginx curl openssl)"; exit 2; }
done
[ -x "$build/app/kestrava" ] || { echo "build first: tools/dev.sh test"; exit 2; }

server_cpu=() client_cpu=()
if [ "$(nproc)" -ge 2 ]; then server_cpu=(taskset -c 0) client_cpu=(taskset -c 1); fi

work=$(mktemp -d)
kpid= npid=
trap 'kill $kpid $npid 2>/dev/null || true; rm -rf "$work"' EXIT
home=$work/home
mkdir -p "$home/m" "$work/tmp"
kport=18621 ksport=18622 nport=18680 nsport=18681
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 \
    -keyout "$work/key.pem" -out "$work/cert.pem" -subj /CN=127.0.0.1 \
    -addext subjectAltName=IP:127.0.0.1 2>/dev/null
printf '[WebServer]\r\nPort=%s\r\nHttpsPort=%s\r\nCertFile=%s\r\nKeyFile=%s\r\n[Tira]\r\nDevice=sim\r\n' \
    $kport $ksport "$work/cert.pem" "$work/key.pem" >"$home/setting.ini"

chmod -R a+rX "$work" # nginx's worker runs as another user
"${server_cpu[@]}" "$build/app/kestrava" --headless --home "$home" 2>"$work/kestrava.log" &
kpid=$!
for _ in $(seq 50); do curl -sf --cacert "$work/cert.pem" -o /dev/null "https://127.0.0.1:$ksport/m/" && break; sleep 0.1; done
curl -s --cacert "$work/cert.pem" -o "$home/m/index.html" "https://127.0.0.1:$ksport/m/"
sleep 1
idle_kb=$(awk '/VmRSS/ {print $2}' "/proc/$kpid/status")

cat >"$work/nginx.conf" <<CONF
worker_processes 1;
pid $work/nginx.pid;
error_log $work/nginx-error.log;
events { worker_connections 2048; }
http {
    access_log off;
    types { text/html html; }
    keepalive_requests 1000000;
    client_body_temp_path $work/tmp; proxy_temp_path $work/tmp; fastcgi_temp_path $work/tmp;
    uwsgi_temp_path $work/tmp; scgi_temp_path $work/tmp;
    server {
        listen 127.0.0.1:$nport;
        listen 127.0.0.1:$nsport ssl;
        ssl_certificate $work/cert.pem;
        ssl_certificate_key $work/key.pem;
        ssl_protocols TLSv1.3;
        root $home;
    }
}
CONF
"${server_cpu[@]}" nginx -c "$work/nginx.conf" -g 'daemon off;' &
npid=$!
sleep 0.5

# wrk -> "rate p50 p99" (rate in requests per second), keep-alive
wrk_once() {
    "${client_cpu[@]}" wrk -t1 -c"$1" -d"${secs}s" --latency "$2" |
        awk '/Requests\/sec/ {r = $2} $1 == "50%" {p50 = $2} $1 == "99%" {p99 = $2}
             /Non-2xx|Socket errors/ {print "wrk: " $0 > "/dev/stderr"}
             END {printf "%.0f %s %s\n", r, p50, p99}'
}
# Each server in turn, twice; the better run counts.
best() { sort -n -r | head -1; }
pair() {
    local conns=$1 ours=$2 theirs=$3 k=() n=()
    for _ in 1 2; do
        k+=("$(wrk_once "$conns" "$ours")")
        n+=("$(wrk_once "$conns" "$theirs")")
    done
    echo "$(printf '%s\n' "${k[@]}" | best) $(printf '%s\n' "${n[@]}" | best)"
}
ratio() { awk "BEGIN {printf \"%.0f %%\", 100 * $1 / $2}"; }
# A new connection's handshake, 200 times -> "p50 p99" in ms
handshake() {
    for _ in $(seq 200); do
        "${client_cpu[@]}" curl -s -o /dev/null --cacert "$work/cert.pem" \
            -w '%{time_connect} %{time_appconnect}\n' "$1"
    done | awk '{print ($2 - $1) * 1000}' | sort -n |
        awk '{v[NR] = $1} END {printf "%.2f %.2f\n", v[int(NR * 0.5)], v[int(NR * 0.99)]}'
}

echo "| case | Kestrava | nginx | ratio |"
echo "|---|---|---|---|"
for scheme in https http; do
    [ $scheme = https ] && kp=$ksport np=$nsport || { kp=$kport; np=$nport; }
    for conns in 1 50 500; do
        read -r k _ kp99 n _ np99 < <(pair $conns "$scheme://127.0.0.1:$kp/m/" "$scheme://127.0.0.1:$np/m/index.html")
        echo "| $scheme /m/ keep-alive, $conns connections | $k req/s, p99 $kp99 | $n, p99 $np99 | $(ratio "$k" "$n") |"
    done
done
read -r h50 h99 < <(handshake "https://127.0.0.1:$ksport/m/")
read -r n50 n99 < <(handshake "https://127.0.0.1:$nsport/m/index.html")
echo "| TLS handshake of a new connection | p50 $h50 ms, p99 $h99 ms | p50 $n50 ms, p99 $n99 ms | - |"
echo
busy_kb=$(awk '/VmRSS/ {print $2}' "/proc/$kpid/status")
echo "RSS of the server with HTTPS on: idle $((idle_kb / 1024)) MiB, after the runs $((busy_kb / 1024)) MiB;" \
    "/m/ is $(stat -c %s "$home/m/index.html") bytes"
