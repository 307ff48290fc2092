#!/usr/bin/env bash
# The first GET /api/v1/remotes with 100 remotes of 66 keys (each key its own
# signal file): after a start with nothing known yet, after a restart, and
# after one remote is renamed. Median of RUNS starts: the time curl waits and,
# with perf, the CPU time the program spends on it (what a busy machine does
# not stretch). Prints the figures; never fails on them.
#
#   bench/api/first-list.sh [BUILD_DIR]      (default: build; RUNS=5)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
runs=${RUNS:-5}
for tool in curl python3; do
    command -v "$tool" >/dev/null || { echo "needs $tool (apt-get install curl python3)"; exit 2; }
done
[ -x "$build/app/kestrava" ] || { echo "build first: tools/dev.sh test"; exit 2; }

work=$(mktemp -d)
kpid=
trap 'kill $kpid 2>/dev/null || true; rm -rf "$work"' EXIT
home=$work/home port=18531
mkdir -p "$home/IRSignals"
# Every key its own code (device = remote, function = key), as in a real home:
# nothing may be worked out once and shared between keys. One irdb file of
# all 6,600 keys, converted into signal files named by its rows.
{
    echo functionname,protocol,device,subdevice,function
    for r in $(seq 1 100); do
        for k in $(seq 0 65); do echo "R$r-F$k,NEC1,$r,-1,$k"; done
    done
} >"$work/codes.csv"
"$build/tools/kestrava-ir/kestrava-ir" convert "$work/codes.csv" "$home/IRSignals" --to bin >/dev/null
{
    printf '[WebServer]\r\nPort=%s\r\n[Tira]\r\nDevice=sim\r\n' $port
    for r in $(seq 1 100); do
        printf '[Remote-%s]\r\nDevice=R%s\r\nDesign=6\r\n' "$r" "$r"
        for k in $(seq 0 65); do
            printf 'Button-%s=F%s\r\n' "$k" "$k"
        done
    done
} >"$home/setting.ini"

start() {
    QT_LOGGING_RULES=kestrava.api.debug=true \
        "$build/app/kestrava" --headless --home "$home" 2>>"$work/kestrava.log" &
    kpid=$!
    for _ in $(seq 100); do curl -sf "http://127.0.0.1:$port/api/v1/status" >/dev/null && return; sleep 0.1; done
    echo "did not start"; exit 1
}
stop() { kill "$kpid"; wait "$kpid" 2>/dev/null || true; kpid=; }
# "wall/cpu" for one GET of $1: seconds waited, ms of the program's CPU.
get() {
    local url="http://127.0.0.1:$port/api/v1/remotes$1" wall cpu=0
    if command -v perf >/dev/null; then
        wall=$(perf stat -x, -e task-clock -p "$kpid" -o "$work/stat" -- \
            curl -s -o /dev/null -w '%{time_total}' "$url")
        cpu=$(awk -F, '/task-clock/ { print $1 }' "$work/stat")
    else
        wall=$(curl -s -o /dev/null -w '%{time_total}' "$url")
    fi
    echo "$wall/$cpu"
}
first() { get ""; }

cold=() warm=() renamed=() light=() elsewhere=()
for i in $(seq "$runs"); do
    rm -f "$home/SignalCodes.cache"
    start; cold+=("$(first)"); stop
    start; warm+=("$(first)")
    curl -s -o /dev/null -X PATCH -H 'Content-Type: application/json' \
        -d "{\"name\":\"Renamed$i\"}" "http://127.0.0.1:$port/api/v1/remotes/50"
    renamed+=("$(first)")
    light+=("$(get '?keys=none')")
    # A change the API did not make (another front, an editor): all remade.
    touch "$home/setting.ini"
    elsewhere+=("$(first)")
    stop
done
# The list is made right after a start; the log says what that cost.
grep -o 'remotes listed in [0-9.]* ms' "$work/kestrava.log" | sed 's/^/made at a start: /' | sort | uniq -c | head -3 || true
python3 - "${cold[*]}" "${warm[*]}" "${renamed[*]}" "${light[*]}" "${elsewhere[*]}" <<'PY'
import statistics, sys
for name, times in zip(("first start (nothing known)", "after a restart", "after a rename",
                        "keys=none after that", "after a change made elsewhere"), sys.argv[1:]):
    wall = sorted(float(t.split("/")[0]) * 1000 for t in times.split())
    cpu = sorted(float(t.split("/")[1]) for t in times.split())
    print(f"GET /api/v1/remotes, 100 remotes x 66 keys, {name}: median {statistics.median(wall):.1f} ms"
          f" (min {wall[0]:.1f}, max {wall[-1]:.1f}); program CPU median {statistics.median(cpu):.1f} ms"
          f" (min {cpu[0]:.1f}); {len(wall)} runs")
PY
