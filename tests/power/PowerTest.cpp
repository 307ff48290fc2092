#include "power/Power.h"
#include "reservations/Scheduler.h"
#include "support/FixedClock.h"
#include "support/HttpClient.h"
#include "support/LogindMock.h"
#include "support/ProgramProcess.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Monday 2026/11/23.
QDateTime at(int day, int h, int m) {
    return QDateTime(QDate(2026, 11, day), QTime(h, m));
}

struct Machine {
    LogindMock logind;
    TempFolder t;
    FixedClock clock{at(23, 12, 0).addSecs(30)};
    ScriptedPrompt prompt;
    Scheduler scheduler{t.folder, t.settings, clock};
    Power power{t.settings, prompt, scheduler};
    QStringList events;

    Machine() {
        EXPECT_TRUE(logind.ready);
        scheduler.hibernate = [this] { power.HibernateNow(); };
        power.busAddress = logind.address;
        power.stepMs = 1;
        power.wakeAlarmPath = t.path(u"wakealarm");
        t.writeFile(u"wakealarm", "");
        power.deActivateTira = [this] { events << u"deactivate"_s; };
        QObject::connect(&power, &Power::countdownStep, [this](int v) {
            if (v == 1 || v == 100)
                events << QString::number(v);
        });
    }
};

} // namespace

// "" and "Hibern" hibernate, else suspend, after release and countdown; no reservation, no alarm.
TEST(Power, SleepsByTheSettingAfterTheCountdown) {
    Machine m;
    m.power.HibernateNow();
    EXPECT_EQ(m.events, (QStringList{u"deactivate"_s, u"1"_s, u"100"_s}));
    EXPECT_TRUE(m.t.readFile(u"wakealarm").isEmpty());
    m.t.settings.WriteIni(u"Power", u"HibernOrSuspend", u"Hibern");
    m.power.HibernateNow();
    m.t.settings.WriteIni(u"Power", u"HibernOrSuspend", u"hibern");
    m.power.HibernateNow();
    EXPECT_EQ(m.logind.calls(), (QStringList{u"CanHibernate"_s, u"Hibernate"_s, u"CanHibernate"_s,
                                             u"Hibernate"_s, u"CanSuspend"_s, u"Suspend"_s}));
}

// A cancel at the last step cancels, a second start is ignored, and "cannot hibernate" stays on.
TEST(Power, CancelledOrUnableStaysOn) {
    Machine m;
    m.logind.answer(u"CanHibernate"_s, u"na"_s);
    int starts = 0;
    QObject::connect(&m.power, &Power::countdownStarted, [&] { ++starts; });
    auto steps = QObject::connect(&m.power, &Power::countdownStep, [&](int v) {
        if (v == 50)
            m.power.HibernateNow();
        if (v == 100)
            m.power.Cancel();
    });
    m.power.HibernateNow();
    EXPECT_EQ(starts, 1);
    EXPECT_TRUE(m.events.contains(u"100"_s));
    EXPECT_TRUE(m.logind.calls().isEmpty());
    QObject::disconnect(steps);
    m.power.HibernateNow();
    EXPECT_EQ(m.logind.calls(), QStringList{u"CanHibernate"_s});
}

// The alarm is the next due time less 2 minutes, replaced each time; without one sleep goes on.
TEST(Power, WakeUpTwoMinutesBeforeTheNextReservation) {
    Machine m;
    auto cancel = QObject::connect(&m.power, &Power::countdownStarted, [&] { m.power.Cancel(); });
    auto wakeFor = [&](const QString& name) {
        m.t.writeFile(u"reserve/"_s + name, "A|a\r\n");
        m.scheduler.FillGrid();
        m.power.HibernateNow();
        return QDateTime::fromSecsSinceEpoch(m.t.readFile(u"wakealarm").toLongLong());
    };
    EXPECT_EQ(wakeFor(u"0000010 09_00"_s), at(27, 8, 58));  // Fridays
    EXPECT_EQ(wakeFor(u"1111111 12_00"_s), at(24, 11, 58)); // the present minute is over
    EXPECT_EQ(wakeFor(u"2026_11_24 00_01"_s), at(23, 23, 59));
    EXPECT_TRUE(m.t.readFile(u"wakealarm").endsWith("\n"));
    // An RTC in local time is set in local time.
    m.t.writeFile(u"adjtime", "0.0 0 0.0\n0\nLOCAL\n");
    m.power.adjtimePath = m.t.path(u"adjtime");
    const QDateTime tokyo(QDate(2026, 11, 24), QTime(7, 0), Qt::OffsetFromUTC, 9 * 3600);
    EXPECT_TRUE(m.power.SetResumeTask(tokyo));
    EXPECT_EQ(m.t.readFile(u"wakealarm").toLongLong(), tokyo.toSecsSinceEpoch() + 9 * 3600);

    m.power.wakeAlarmPath = m.t.path(u"no-rtc");
    EXPECT_FALSE(m.power.SetResumeTask(at(24, 1, 0)));
    m.power.wakeAlarmPath = m.t.root(); // cannot be written
    QObject::disconnect(cancel);
    m.power.HibernateNow();
    EXPECT_EQ(m.logind.calls(), (QStringList{u"CanHibernate"_s, u"Hibernate"_s}));
}

// The scan sleeps only with PowerControl "1" and nothing due within 5 minutes after.
TEST(Power, ScanSleepsWhenNothingIsNear) {
    Machine m;
    m.t.settings.WriteIni(u"Tira", u"Testmode", u"1");
    QDir().mkpath(m.t.path(u"testmode/reserve"));
    m.t.writeFile(u"testmode/reserve/1111111 12_00", "T|1\r\n");
    m.t.writeFile(u"testmode/reserve/1111111 12_05", "T|1\r\n");
    m.scheduler.FillGrid();
    auto scanAt = [&](int min) {
        m.clock.at = at(23, 12, min).addSecs(1);
        m.scheduler.Tick();
        return m.logind.calls().size();
    };
    EXPECT_EQ(scanAt(0), 0);
    m.t.settings.WriteIni(u"Options", u"PowerControl", u"1");
    m.scheduler.LastScanMinute.clear();
    EXPECT_EQ(scanAt(0), 0);
    EXPECT_EQ(scanAt(5), 2);
    m.scheduler.Stop();
}

// The page answers at once, the countdown starts 10 s later; SIGTERM cancels and ends it.
TEST(Power, WebPageSleepsLaterAndSigtermCancels) {
    LogindMock logind;
    QTemporaryDir home;
    SettingsStore settings(home.path() + u"/setting.ini"_s);
    settings.WriteIni(u"WebServer", u"Port", u"0");
    settings.WriteIni(u"Options", u"PowerControl", u"1");
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, logind.address);
    ProgramProcess p({u"--headless"_s, u"--home"_s, home.path()}, env);
    const quint16 port = p.webPort();
    QElapsedTimer took;
    took.start();
    EXPECT_TRUE(Fetch(port, "GET /hibern.asp HTTP/1.1\r\n\r\n").startsWith("HTTP/1.1 200"));
    ASSERT_TRUE(p.waitForLog(u"goes to sleep in 10 seconds"_s, 15000)) << p.log().toStdString();
    EXPECT_GE(took.elapsed(), 9000); // a coarse timer may come 5% early
    ASSERT_TRUE(p.stop(SIGTERM, 5000));
    EXPECT_EQ(p.process.exitCode(), 0);
    EXPECT_TRUE(p.log().contains(u"going to sleep cancelled"_s));
    EXPECT_TRUE(logind.calls().isEmpty());
}
