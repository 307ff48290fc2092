// The wake-up on the virtual machine's own RTC (rtc_cmos). Run by cases/20-rtc.sh.
#include "kernel/Lane.h"
#include "power/Power.h"
#include "reservations/Scheduler.h"
#include "support/FixedClock.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QFile>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// Read back as set; days ahead, on a clock that takes only the next day, within that day.
TEST(RtcKernel, WakeUpIsWrittenToTheClockAndReadBack) {
    TempFolder t;
    const QDateTime now = QDateTime::currentDateTime();
    FixedClock clock{now};
    ScriptedPrompt prompt;
    Scheduler scheduler{t.folder, t.settings, clock};
    Power power{t.settings, prompt, scheduler};
    power.adjtimePath = t.path(u"adjtime"); // none: the clock keeps UTC
    QStringList figures;
    for (int minutes : {60, 3 * 24 * 60}) {
        const QDateTime when = now.addSecs(minutes * 60);
        EXPECT_TRUE(power.SetResumeTask(when)) << minutes;
        QFile alarm(power.wakeAlarmPath);
        ASSERT_TRUE(alarm.open(QIODevice::ReadOnly));
        const qint64 set = alarm.readAll().trimmed().toLongLong();
        const qint64 want = minutes < 24 * 60 || set == when.toSecsSinceEpoch()
                                ? when.toSecsSinceEpoch()
                                : now.addSecs(86400 - 300).toSecsSinceEpoch();
        EXPECT_NEAR(set, want, 60) << minutes;
        figures << u"%1 min ahead: %2 read back %3"_s.arg(minutes)
                       .arg(when.toSecsSinceEpoch())
                       .arg(set);
    }
    Figures(figures.join(u"; "_s));
}
