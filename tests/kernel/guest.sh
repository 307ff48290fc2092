#!/bin/sh
# Inside the lane's virtual machine (see lane.sh): runs every
# tests/kernel/cases/*.sh in name order (only those whose name holds
# $LANE_CASES when set), each in its own shell, with the functions below. Everything written goes to $LANE_OUT, the shared folder.
#
#   report NAME ok|FAIL|skip TEXT    one line per case
#   host_do MONITOR-COMMAND          runs a QEMU monitor command on the host
#                                    (e.g. "device_del tira0"), prints its
#                                    answer; fails after 30 s without one
#   gtest NAME FILTER                runs kestrava_kernel_tests with the gtest
#                                    filter and reports it as case NAME, with
#                                    the lines the tests print as "FIGURES ..."
#   wait_for PATH [SECONDS]          until PATH exists (10 s)
#   start_udev                       udev, for module loading on hotplug and
#                                    the /dev/serial/by-id links (not started
#                                    otherwise: a case loads its modules)
cd "$LANE_SRC" || exit 1
mkdir -p "$LANE_OUT/home" "$LANE_OUT/host"

report() {
    name=$1 result=$2
    shift 2
    echo "CASE $name $result $*" | tee -a "$LANE_OUT/cases"
}

host_seq=0
host_do() {
    host_seq=$((host_seq + 1))
    base=$LANE_OUT/host/$$-$host_seq
    printf '%s\n' "$*" >"$base.tmp" && mv "$base.tmp" "$base.req"
    i=0
    while [ ! -e "$base.ans" ]; do
        i=$((i + 1))
        [ $i -gt 300 ] && echo "host_do: no answer to $*" && return 1
        sleep 0.1
    done
    cat "$base.ans"
    rm -f "$base.ans"
}

wait_for() {
    i=0
    while [ ! -e "$1" ]; do
        i=$((i + 1))
        [ $i -gt $((${2:-10} * 10)) ] && return 1
        sleep 0.1
    done
}

start_udev() {
    pidof systemd-udevd >/dev/null && return
    SYSTEMD_IGNORE_CHROOT=1 /lib/systemd/systemd-udevd --daemon >/dev/null 2>&1
    SYSTEMD_IGNORE_CHROOT=1 udevadm trigger --action=add
    udevadm settle -t 20
}

gtest() {
    name=$1 filter=$2 log=$LANE_OUT/$1.log
    QT_QPA_PLATFORM=offscreen timeout 120 "$LANE_BUILD/tests/kestrava_kernel_tests" \
        --gtest_filter="$filter" >"$log" 2>&1
    rc=$?
    figures=$(sed -n 's/^FIGURES //p' "$log" | tr '\n' ' ')
    if grep -q '^\[  SKIPPED \]' "$log" && ! grep -q '^\[  FAILED  \]' "$log"; then
        report "$name" skip "$(grep -A1 '^\[ RUN' "$log" | sed -n 's/.*Skipped: *//p' | head -n 1)$figures"
    elif [ $rc -eq 0 ] && grep -q '^\[  PASSED  \] [1-9]' "$log"; then
        report "$name" ok "$figures"
    else
        report "$name" FAIL "$figures(exit $rc) $(grep -m 3 -E 'Failure|Expected|Which is|Value of' "$log" | tr '\n' ' ')"
        cat "$log"
    fi
}

for f in tests/kernel/cases/*.sh; do
    case "$f" in *"$LANE_CASES"*) ;; *) continue ;; esac
    (. "./$f")
done
touch "$LANE_OUT/done"
