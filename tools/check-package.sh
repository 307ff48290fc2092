#!/usr/bin/env bash
# Checks what the Debian package installs and the package itself: the desktop
# entry, the AppStream data, the udev rule, the man pages, lintian; then
# installs build-deb/kestrava_*.deb on this machine, checks the units, runs the
# program (its version, and a headless start answering a page), and removes
# the package again. Run by `tools/dev.sh package-check` after the package is
# built, and by CI. Leaves the machine as it found it.
set -euo pipefail
cd "$(dirname "$0")/.."

sudo=()
[ "$(id -u)" -ne 0 ] && sudo=(sudo)
tmp=$(mktemp -d)
pid=
installed_here=
cleanup() {
    [ -n "$pid" ] && kill "$pid" 2>/dev/null
    [ -n "$installed_here" ] &&
        "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get remove -y -qq kestrava >/dev/null
    rm -rf "$tmp"
}
trap cleanup EXIT
step() { printf '== %s\n' "$*"; }
fail() {
    printf 'FAILED: %s\n' "$*" >&2
    exit 1
}

debs=(build-deb/kestrava_*.deb)
[ -f "${debs[0]}" ] || fail "no package in build-deb/ (tools/dev.sh deb builds it)"
deb=${debs[-1]}

step desktop entry
desktop-file-validate dist/kestrava.desktop
step AppStream metadata
appstreamcli validate --no-net dist/kestrava.metainfo.xml
step udev rule
tools/check-udev-rules.sh dist/70-kestrava.rules
step man pages
for page in dist/kestrava.1 dist/kestrava-ir.1; do
    warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$page" 2>&1 >/dev/null)
    [ -z "$warnings" ] || fail "$page: $warnings"
done
step completions
bash -n dist/completion/kestrava.bash
step "lintian $deb"
lintian --fail-on error "$deb"

step "install $deb"
dpkg-query -W -f='${Status}' kestrava 2>/dev/null | grep -q "install ok installed" &&
    fail "kestrava is installed already; remove it first"
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "./$deb" >/dev/null
installed_here=1
for f in /usr/bin/kestrava /usr/bin/kestrava-ir /usr/share/kestrava/help/index.html \
    /usr/share/doc/kestrava/copyright /usr/lib/systemd/user/kestrava.service \
    /usr/lib/systemd/system/kestrava@.service /usr/lib/udev/rules.d/70-kestrava.rules \
    /usr/share/bash-completion/completions/kestrava \
    /usr/share/bash-completion/completions/kestrava-ir \
    /usr/share/zsh/vendor-completions/_kestrava; do
    [ -e "$f" ] || fail "$f is not installed"
done
# The installed program finds everything relative to itself.
! grep -q "$PWD" /usr/bin/kestrava || fail "/usr/bin/kestrava holds the build tree's path"

step systemd units
# A container without systemd may not run systemd-analyze at all: tried on a
# unit that is surely right first.
printf '[Service]\nExecStart=/bin/true\n' >"$tmp/probe.service"
if ! probe=$(systemd-analyze --man=no verify "$tmp/probe.service" 2>&1) || [ -n "$probe" ]; then
    echo "skipped: systemd-analyze cannot verify units on this machine: ${probe:-not found}"
else
    for unit in /usr/lib/systemd/user/kestrava.service /usr/lib/systemd/system/kestrava@.service; do
        # A mistake in a unit is only a warning for systemd-analyze: any output counts.
        out=$(systemd-analyze verify "$unit" 2>&1) && [ -z "$out" ] || fail "$unit: $out"
    done
fi

step kestrava --version
version=$(kestrava --version)
[[ $version =~ ^kestrava\ [0-9]+\.[0-9]+\.[0-9]+$ ]] || fail "kestrava --version: $version"
kestrava-ir --version >/dev/null

step headless start on a new folder
mkfifo "$tmp/log"
kestrava --home "$tmp/home" --headless 2>"$tmp/log" &
pid=$!
exec 3<"$tmp/log"
port=
while IFS= read -r -t 30 -u 3 line; do
    echo "$line" >>"$tmp/kestrava.log"
    if [[ $line =~ listening\ on\ port\ ([0-9]+) ]]; then
        port=${BASH_REMATCH[1]}
        break
    fi
done
cat <&3 >>"$tmp/kestrava.log" &
[ -n "$port" ] || { cat "$tmp/kestrava.log"; fail "the program did not start its web server"; }
page=$(curl -fsS --max-time 10 "http://127.0.0.1:$port/") || fail "no page on port $port"
[ -n "$page" ] || fail "an empty page on port $port"
kill -TERM "$pid"
status=0
wait "$pid" || status=$?
pid=
[ "$status" -eq 0 ] || { cat "$tmp/kestrava.log"; fail "stopped by SIGTERM with status $status"; }
exec 3<&-

step remove
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get remove -y -qq kestrava >/dev/null
installed_here=
[ ! -e /usr/bin/kestrava ] && [ ! -e /usr/share/kestrava ] || fail "files left after removal"
echo "package checks passed"
