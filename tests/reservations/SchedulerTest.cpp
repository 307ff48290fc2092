#include "reservations/Scheduler.h"
#include "core/Settings.h"
#include "support/FixedClock.h"
#include "support/TempFolder.h"

#include <QElapsedTimer>
#include <QFile>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Monday 2026/11/23.
QDateTime at(int day, int h, int m, int s = 0) {
    return QDateTime(QDate(2026, 11, day), QTime(h, m, s));
}

struct Desk {
    TempFolder t;
    FixedClock clock{at(23, 12, 0, 30)};
    Scheduler scheduler{t.folder, t.settings, clock};
    QStringList fired, sent;

    Desk() {
        QObject::connect(&scheduler, &Scheduler::fired,
                         [this](const QString& d, const QString& f) { fired << d + u'|' + f; });
    }
    void file(const QString& name, const QByteArray& lines) {
        t.writeFile(u"reserve/"_s + name, lines);
        for (const QByteArray& line : lines.split('\n'))
            if (line.contains('|'))
                t.writeFile(u"IRSignals/"_s +
                                QString::fromLatin1(line.trimmed()).replace(u'|', u'-') + u".bin"_s,
                            "x");
    }
    bool exists(const QString& name) const { return QFile::exists(t.path(u"reserve/"_s + name)); }
};

} // namespace

// A tick fires all of its minute in grid order though sends take time or fail; no minute twice.
TEST(Scheduler, FiresTheMinuteWholeInGridOrder) {
    Desk d;
    d.t.settings.WriteIni(u"Options", u"Interval", u"30");
    d.file(u"2026_11_23 12_00"_s, "E|e\r\nF|f\r\n");
    d.file(u"1111111 12_00"_s, "A|a\r\nB|b\r\n");
    d.file(u"0100000 12_00"_s, "C|c\r\n");
    d.file(u"0010000 12_00"_s, "D|d\r\n");    // Tuesdays
    d.file(u"2026_11_23 11_00"_s, "G|g\r\n"); // earlier today
    d.file(u"2026_11_22 12_00"_s, "H|h\r\n"); // yesterday
    d.file(u"1111111 12_01"_s, "N|n\r\n");    // the next minute
    d.file(u"0100000 12_00 "_s, "X|x\r\n");   // not a reservation name
    d.scheduler.send = [&](const QString& path) {
        d.sent << path.section(u'/', -1);
        d.clock.at = d.clock.at.addSecs(40);
        return d.sent.size() != 2;
    };
    d.scheduler.FillGrid();
    QElapsedTimer took;
    took.start();
    d.scheduler.Tick();
    EXPECT_GE(took.elapsed(), 5 * 30 - 5); // the pause behind each signal
    EXPECT_EQ(d.fired, (QStringList{u"C|c"_s, u"A|a"_s, u"B|b"_s, u"E|e"_s, u"F|f"_s}));
    EXPECT_EQ(d.sent.size(), 5);
    EXPECT_FALSE(d.exists(u"2026_11_23 12_00"_s));
    EXPECT_FALSE(d.exists(u"2026_11_22 12_00"_s));
    EXPECT_TRUE(d.exists(u"2026_11_23 11_00"_s));
    EXPECT_EQ(d.scheduler.grid.rows().size(), 6u); // refilled after the deletion

    d.clock.at = at(23, 12, 0, 59);
    d.scheduler.LastScanMinute = u"12:00"_s;
    d.scheduler.Tick();
    EXPECT_EQ(d.fired.size(), 5);

    // After midnight the earlier one-shot goes without firing.
    d.clock.at = at(24, 0, 0, 5);
    d.scheduler.Tick();
    EXPECT_FALSE(d.exists(u"2026_11_23 11_00"_s));
    EXPECT_EQ(d.fired.size(), 5);
}

// Test mode works in its own folder, sends nothing and does not pause.
TEST(Scheduler, TestModeFiresWithoutPausesInItsOwnFolder) {
    Desk d;
    d.t.settings.WriteIni(u"Tira", u"Testmode", u"1");
    d.t.settings.WriteIni(u"Options", u"Interval", u"5000");
    d.file(u"2026_11_23 12_00"_s, "A|a\r\n");
    d.t.writeFile(u"testmode/reserve/2026_11_23 12_00", "T|1\r\nT|2\r\n");
    d.scheduler.send = [&](const QString&) { return ADD_FAILURE(), false; };
    d.scheduler.FillGrid();
    QElapsedTimer took;
    took.start();
    d.scheduler.Tick();
    EXPECT_LT(took.elapsed(), 1000);
    EXPECT_EQ(d.fired, (QStringList{u"T|1"_s, u"T|2"_s}));
    EXPECT_FALSE(QFile::exists(d.t.path(u"testmode/reserve/2026_11_23 12_00")));
    EXPECT_TRUE(d.exists(u"2026_11_23 12_00"_s));
}

// The present minute counts as over, so today's weekly row is a week away; past one-shots first.
TEST(Scheduler, GetNextReserveAcrossAWeek) {
    Desk d;
    EXPECT_EQ(d.scheduler.GetNextReserve(), QString());
    auto adding = [&](const QString& name) {
        d.file(name, "A|a\r\n");
        d.scheduler.FillGrid();
        return d.scheduler.GetNextReserve();
    };
    EXPECT_EQ(adding(u"0100000 12_00"_s), u"2026/11/30 12:00"_s);
    d.file(u"0000010 09_00"_s, "B|b\r\n"); // Fridays
    EXPECT_EQ(adding(u"1111111 11_59"_s), u"2026/11/24 11:59"_s);
    EXPECT_EQ(adding(u"1111111 12_01"_s), u"2026/11/23 12:01"_s);
    EXPECT_EQ(adding(u"2026_11_01 08_00"_s), u"2026/11/01 08:00"_s);
}

// Air conditioner and scene lines go to their senders; a line none takes sends nothing.
TEST(Scheduler, ClimateAndSceneLinesGoToTheirSender) {
    Desk d;
    d.t.settings.WriteIni(u"Options", u"Interval", u"0");
    d.t.writeFile(u"reserve/1111111 12_00"_s,
                  ShiftJis::Encode(u"寝室|冷房 26℃ 自動\r\nシーン|映画\r\nGone|key\r\n"_s));
    QStringList scenes;
    d.scheduler.sendScene = [&](const QString& name) { return scenes << name, true; };
    QStringList climate;
    d.scheduler.sendClimate = [&](const QString& device, const QString& function) {
        climate << device + u'|' + function;
        return device == u"寝室";
    };
    d.scheduler.send = [&](const QString& path) { return d.sent << path, true; };
    d.scheduler.FillGrid();
    d.scheduler.Tick();
    EXPECT_EQ(climate, (QStringList{u"寝室|冷房 26℃ 自動"_s, u"Gone|key"_s}));
    EXPECT_EQ(scenes, QStringList{u"映画"_s});
    EXPECT_TRUE(d.sent.isEmpty());
}
