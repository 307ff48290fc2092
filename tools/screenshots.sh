#!/usr/bin/env bash
# Runs Kestrava on a fresh demo folder under Xvfb, drives it with xdotool as a
# person would, and saves screenshots for looking at (they are not committed):
# the main window with and without its menu, the six on-screen remotes, each
# step of the learning wizard, the editor and its boxes, every page of the
# settings dialog, and the reservation dialog adding a daily reservation that
# the main window then shows as the next one. It waits for each window and each change of the screen, so
# it runs beside another instance and on a loaded machine.
#
#   tools/screenshots.sh [OUTDIR]     (default build/screenshots)
#
# tools/dev.sh shots installs what it needs, builds and runs this. Alone it
# needs a built program and the packages
# xvfb, xdotool, imagemagick and fonts-noto-cjk.
# The clicks are placed for a 1280x960 screen and the Noto CJK font.
set -euo pipefail
cd "$(dirname "$0")/.."
out=$(realpath -m "${1:-build/screenshots}")
bin=$PWD/build/app/kestrava
[ -x "$bin" ] || { echo "build the program first: tools/dev.sh run" >&2; exit 1; }
mkdir -p "$out"
rm -f "$out"/*.png

work=$(mktemp -d)
display=:$((70 + RANDOM % 100))
Xvfb "$display" -screen 0 1280x960x24 -nolisten tcp >"$work/xvfb.log" 2>&1 &
xvfb=$!
program=
cleanup() {
    [ -n "$program" ] && kill "$program" 2>/dev/null && wait "$program" 2>/dev/null
    kill "$xvfb" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
export DISPLAY=$display
for _ in $(seq 50); do xdotool getmouselocation >/dev/null 2>&1 && break; sleep 0.1; done

# Waits for a window whose name matches, and prints its id.
window() {
    local id
    for _ in $(seq 100); do
        id=$(xdotool search --onlyvisible --name "$1" 2>/dev/null | tail -1) && [ -n "$id" ] &&
            { echo "$id"; return; }
        sleep 0.1
    done
    echo "no window named $1" >&2
    return 1
}
# The place of a window: sets X Y WIDTH HEIGHT.
place() { eval "$(xdotool getwindowgeometry --shell "$1")"; }
shot() { # name id  -- the window as it is on the screen
    place "$2"
    import -window root -crop "${WIDTH}x${HEIGHT}+${X}+${Y}" +repage "$out/$1.png"
    echo "  $1.png (${WIDTH}x${HEIGHT})"
}
screen() { import -window root "$out/$1.png"; echo "  $1.png (whole screen)"; }
# xdotool remaps a spare key for each character that is not on the keyboard;
# one character a call keeps it from mixing them up.
typetext() {
    local i
    for ((i = 0; i < ${#1}; i++)); do
        xdotool type "${1:i:1}"
        sleep 0.08
    done
}
# A checksum of the whole screen, to see it change.
screensum() { import -window root rgb:- 2>/dev/null | md5sum; }
# Waits for the screen to differ from the checksum given (a few seconds at
# most: some clicks change nothing), then for it to hold still.
settle() {
    local now prev=
    for _ in $(seq 30); do
        now=$(screensum)
        [ "$now" != "$1" ] && break
        sleep 0.1
    done
    for _ in $(seq 60); do
        now=$(screensum)
        [ "$now" = "$prev" ] && return
        prev=$now
        sleep 0.15
    done
}
# Runs a command (a click, a key) and waits for what it changed.
act() {
    local before
    before=$(screensum)
    "$@"
    settle "$before"
}
click() { act xdotool mousemove "$1" "$2" click 1; }
at() { place "$1"; click $((X + $2)) $((Y + $3)); } # click in a window
key() { act xdotool key --delay 80 "$@"; }
# Waits until the program's log holds a line with the text.
logged() {
    for _ in $(seq 100); do
        grep -q -- "$1" "$work/program.log" && return
        sleep 0.1
    done
    echo "the program did not log: $1" >&2
    cat "$work/program.log" >&2
    return 1
}

"$bin" --demo "$work/home" >"$work/program.log" 2>&1 &
program=$!
logged 'started on'
main=$(window '^$')
settle ""
echo "screenshots in $out"
import -window root -crop 400x138+0+0 +repage "$out/01-main.png"
echo "  01-main.png"

# The six remotes, each chosen from the main window's list.
n=2
for i in 1 2 3 4 5 6; do
    click 43 125  # リモコン: shows the device list
    click 170 125 # opens it
    # The open list starts on its first entry.
    [ "$i" -gt 1 ] && key $(printf 'Down %.0s' $(seq $((i - 1))))
    key Return
    shot "$(printf '%02d' $n)-remote-$i" "$(window '^リモコン$')"
    n=$((n + 1))
done

click 344 12 # ▼ shows the menu
import -window root -crop 400x180+0+0 +repage "$out/08-main-menu.png"
echo "  08-main-menu.png"
click 108 29 # 設定
act xdotool mousemove 130 72
screen 09-menu-learning
click 360 74 # 新しいリモコンの学習
wizard=$(window 'リモコン信号の学習')
screen 10-wizard-open

at "$wizard" 30 175 # エアコン6ボタン: asks first
screen 11-wizard-aircon-question
key Escape
at "$wizard" 237 175 # テレビ20ボタン
at "$wizard" 220 75
key ctrl+a
typetext 寝室テレビ
learn() { # function, x and y of the picture button in the remote
    at "$wizard" 200 300
    typetext "$1"
    local before
    before=$(screensum)
    xdotool mousemove $((X + 390)) $((Y + 300)) click 1
    # The capture screen, then the simulator's signal, which ends it.
    settle "$before"
    [ -n "${4:-}" ] && screen "$4"
    settle "$(screensum)"
    [ -n "${5:-}" ] && screen "$5"
    at "$(window '^リモコン$')" "$2" "$3"
}
learn 電源 32 32 12-wizard-step2-capture 13-wizard-step3-picture
screen 14-wizard-learned-one
learn 入力切替 32 64
learn 音量+ 80 64
screen 15-wizard-three-learned
at "$wizard" 330 615 # 完了
grep -q '寝室テレビ' <(iconv -f CP932 -t UTF-8 "$work/home/setting.ini") ||
    { echo "the learned remote was not stored" >&2; exit 1; }

click 108 29
act xdotool mousemove 130 72
click 360 97 # 学習済みリモコンの編集
editor=$(window 'リモコン信号の学習')
screen 16-editor-open
shot 17-editor "$editor"
place "$editor"
at "$editor" $((WIDTH - 70)) 40 # 選択した機器を削除: asks first
screen 18-editor-delete-question
key Escape
place "$editor"
at "$editor" $((WIDTH - 50)) $((HEIGHT - 24)) # キャンセル

# The settings dialog, page by page; キャンセル keeps what was clicked, and
# nothing is clicked here.
click 108 29 # 設定
click 150 50 # 全般設定
setup=$(window 'Kestrava - 設定')
n=19
for page in tira web notify-mail notify-dns power reserve; do
    if [ "$page" = notify-dns ]; then
        place "$setup"
        at "$setup" 260 62 # the inner page ダイナミックDNSのアップデート
    fi
    shot "$n-setup-$page" "$setup"
    n=$((n + 1))
    [ "$page" = notify-mail ] || key ctrl+Tab
done
key Escape

# The reservation dialog, from the main window's 予約追加: every day at 07:30
# AM, then the main window with it as the next reservation.
click 119 167
reserve=$(window '予約の追加')
screen 25-reserve-open
at "$reserve" 30 82 # 毎日
at "$reserve" 60 183 # the hour
key $(printf 'Down %.0s' $(seq 7)) Return
at "$reserve" 224 183 # the minute
key $(printf 'Down %.0s' $(seq 30)) Return
at "$reserve" 519 283 # 追加
shot 26-reserve-added "$reserve"
at "$reserve" 588 495 # 閉じる
import -window root -crop 400x180+0+0 +repage "$out/27-main-next-reservation.png"
echo "  27-main-next-reservation.png"
echo "sim-transmit.log: $(wc -l <"$work/home/sim-transmit.log") transmissions"
