# What a user runs first on a LIRC device: kestrava-ir capture, and the program
# headless learning a key through its API (as the phone page does), while
# ir-ctl sends a frame 1, 3 and 8 s later on rc-loopback's second emitter, the
# one its learning receiver hears (a remote held close to it). Both learn each
# frame at once. The stored signals must carry
# the code sent and the durations a second reader (ir-ctl -r) saw. kestrava-ir's
# seconds count from its prompt: here, where every file the loader opens
# crosses 9p under emulation, it takes a second or more to start.
rmmod rc-loopback 2>/dev/null
modprobe rc-loopback && wait_for /dev/lirc0 5
IR=$LANE_BUILD/tools/kestrava-ir/kestrava-ir
DIR=$LANE_OUT/capture
HOME_DIR=$DIR/home
URL=http://127.0.0.1:8421/api/v1
mkdir -p "$HOME_DIR"

ms() {
    echo $((($(date +%s%N) - $1) / 1000000))
}

# check NAME SPEC: kestrava-ir's text of the stored signal ($DIR/NAME.shown)
# against SPEC and the durations the reader saw ($DIR/NAME.heard), each within
# 8 us and 3 %. Prints the figure, or the fault and fails.
check() {
    awk -v name="$1" -v spec="($2)" '
        FNR == 1 { file++ }
        file == 1 && index($0, spec) { decoded = 1 }
        file == 1 && /^\+/ && got == "" { got = $0 }
        file == 2 && want == "" { want = $0 }
        END {
            sub(/#.*/, "", want)
            n = split(got, g, " "); m = split(want, w, " ")
            if (!decoded) { print name ": not decoded as " spec; exit 1 }
            if (n != m || n == 0) { print name ": " n " durations stored, " m " sent"; exit 1 }
            for (i = 1; i <= n; i++) {
                x = g[i] + 0; y = w[i] + 0
                if (x < 0) x = -x
                if (y < 0) y = -y
                d = x > y ? x - y : y - x
                if (d > worst) worst = d
                if (d > 8 + y * 0.03) bad = bad " " i ":" x "/" y
            }
            if (bad != "") { print name ": durations differ at" bad; exit 1 }
            printf "%s %d durations within %d us", name, n, worst
        }' "$DIR/$1.shown" "$DIR/$1.heard"
}

printf '[Tira]\nDevice=/dev/lirc0\n[WebServer]\nPort=8421\n' >"$HOME_DIR/setting.ini"
"$LANE_BUILD/app/kestrava" --headless --home "$HOME_DIR" >"$DIR/program.log" 2>&1 &
program=$!
i=0
until curl -sf "$URL/status" >/dev/null || [ $i -gt 300 ]; do
    i=$((i + 1))
    sleep 0.1
done
id=$(curl -sf -H 'Content-Type: application/json' -d '{"name":"TV","design":4}' \
    "$URL/remotes" | grep -o '"id": *[0-9]*' | head -n 1 | grep -o '[0-9]*$')

cli= api= failed= key=0
for send in 1:nec:0x0408 3:rc5:0x1e0c 8:sony12:0x010015; do
    delay=${send%%:*} spec=${send#*:}
    timeout 40 ir-ctl -d /dev/lirc0 -r -1 >"$DIR/cli-$delay.heard" 2>&1 &
    reader=$!
    start=$(date +%s%N)
    "$IR" capture /dev/lirc0 "$DIR/$delay.bin" 20 >"$DIR/cli-$delay.shown" 2>&1 &
    tool=$!
    i=0
    until grep -q "press the key" "$DIR/cli-$delay.shown" || [ $i -gt 200 ]; do
        i=$((i + 1))
        sleep 0.05
    done
    prompt=$(ms "$start")
    start=$(date +%s%N)
    curl -s --fail-with-body -H 'Content-Type: application/json' -d "{\"name\":\"K$key\"}" \
        "$URL/remotes/$id/keys/$key/learn" >"$DIR/api-$delay.out" 2>&1 &
    request=$!
    sleep "$delay"
    ir-ctl -d /dev/lirc0 -e 2 -S "$spec"
    wait $request
    api_rc=$?
    learned=$(ms "$start")
    wait $tool
    tool_rc=$?
    wait $reader
    cp "$DIR/cli-$delay.heard" "$DIR/api-$delay.heard"
    f=
    if [ $tool_rc -eq 0 ] && f=$(check "cli-$delay" "$spec"); then
        cli="$cli $f, prompt after $prompt ms;"
    else
        failed="$failed ${f:-cli-$delay: $(tail -n 2 "$DIR/cli-$delay.shown" | tr '\n' ' ')};"
    fi
    f=
    if [ $api_rc -eq 0 ] && [ -n "$id" ] &&
        "$IR" show "$HOME_DIR/IRSignals/TV-K$key.bin" >"$DIR/api-$delay.shown" 2>&1 &&
        f=$(check "api-$delay" "$spec"); then
        api="$api $f, learned after $learned ms;"
    else
        failed="$failed ${f:-api-$delay: $(tr '\n' ' ' <"$DIR/api-$delay.out")};"
    fi
    key=$((key + 1))
done
kill -TERM $program
wait $program
case "$failed" in
*cli-*) report capture-cli FAIL "$failed" ;;
*) report capture-cli ok "$cli" ;;
esac
case "$failed" in
*api-*)
    report capture-learn FAIL "$([ -n "$id" ] || echo "no remote made;")$failed"
    tail -n 20 "$DIR/program.log"
    ;;
*) report capture-learn ok "$api" ;;
esac
