# The wake-up of the power subsystem on the machine's real RTC.
if [ -e /sys/class/rtc/rtc0/wakealarm ]; then
    gtest rtc 'RtcKernel.*'
    echo 0 >/sys/class/rtc/rtc0/wakealarm
else
    report rtc skip "no /sys/class/rtc/rtc0/wakealarm"
fi
