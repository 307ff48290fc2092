#!/usr/bin/env bash
# `kestrava --import-codes` of a 2,000-key Flipper library (the SmartIR
# climate file stored as test data, its keys cycled under new names) into a
# running instance; then that the instance serves the new remotes. Prints the
# figures; never fails on them.
#
#   bench/import/run.sh [BUILD_DIR]      (default: build)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$(realpath "${1:-build}")
for tool in curl python3; do
    command -v "$tool" >/dev/null || { echo "needs $tool"; exit 2; }
done
[ -x "$build/app/kestrava" ] || { echo "build first: tools/dev.sh test"; exit 2; }

work=$(mktemp -d)
trap 'kill $kpid 2>/dev/null || true; rm -rf "$work"' EXIT
home=$work/home port=18531
mkdir -p "$home/IRSignals"
printf '[WebServer]\r\nPort=%s\r\n[Tira]\r\nDevice=sim\r\n' $port >"$home/setting.ini"
"$build/tools/kestrava-ir/kestrava-ir" convert tests/data/smartir/climate-2301.json \
    "$work/one.ir" --to flipper >/dev/null
python3 - "$work/one.ir" "$work/big.ir" <<'PY'
import sys
head, *keys = open(sys.argv[1]).read().split("#\n")
keys = [k for k in keys if k.startswith("name: ")]
with open(sys.argv[2], "w") as out:
    out.write(head)
    for i in range(2000):
        body = keys[i % len(keys)].split("\n", 1)[1]
        out.write(f"#\nname: Key {i + 1}\n{body}")
PY

"$build/app/kestrava" --headless --home "$home" 2>"$work/kestrava.log" &
kpid=$!
for _ in $(seq 50); do curl -sf "http://127.0.0.1:$port/api/v1/status" >/dev/null && break; sleep 0.1; done
start=$(date +%s.%N)
"$build/app/kestrava" --home "$home" --import-codes "$work/big.ir" --remote Big >"$work/import.log"
end=$(date +%s.%N)
remotes=$(grep -c "keys added" "$work/import.log" || true)
python3 -c "print(f'--import-codes of 2000 keys into a running instance: {$end - $start:.2f} s, $remotes remotes')"
sleep 1
count=$(curl -s "http://127.0.0.1:$port/api/v1/remotes" | python3 -c '
import json, sys
d = json.load(sys.stdin)
rs = d.get("remotes", d) if isinstance(d, dict) else d
print(sum(len(r.get("keys", [])) for r in rs if str(r.get("name", "")).startswith("Big")))')
echo "the running instance serves $count keys of the Big remotes"
