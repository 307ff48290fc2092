#include "reservations/ReserveStore.h"
#include "core/ShiftJis.h"
#include "reservations/ClimateReserve.h"
#include "reservations/ReserveGrid.h"
#include "support/TempFolder.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

// Every change rewrites CP932 with CR LF, drops empty lines, ignores numbers naming no line, and
// handles files far above 1000 lines.
TEST(ReserveStore, ChangesRewriteTheFileWhole) {
    TempFolder t;
    const QString path = t.path(u"reserve/2026_11_23 07_05");
    t.writeFile(u"reserve/2026_11_23 07_05", "A|x\r\n\r\nB|y"); // no last line end
    ASSERT_EQ(Reserve::AddLine(path, u"テレビ", u"電源"), Reserve::AddResult::Added);
    EXPECT_EQ(t.readFile(u"reserve/2026_11_23 07_05"),
              "A|x\r\n\r\nB|y\r\n" + ShiftJis::Encode(u"テレビ|電源") + "\r\n");
    EXPECT_TRUE(Reserve::MoveLine(path, 4, true));
    EXPECT_EQ(t.readFile(u"reserve/2026_11_23 07_05"),
              "A|x\r\n" + ShiftJis::Encode(u"テレビ|電源") + "\r\nB|y\r\n");
    for (int line : {0, 4, -1})
        EXPECT_FALSE(Reserve::MoveLine(path, line, false));
    EXPECT_FALSE(Reserve::MoveLine(path, 1, true));
    EXPECT_FALSE(Reserve::DeleteLineIf(path, 1, u"B|y")); // stale row
    EXPECT_TRUE(Reserve::DeleteLineIf(path, 3, u"B|y"));
    EXPECT_TRUE(Reserve::DeleteLine(path, 2));
    EXPECT_TRUE(Reserve::DeleteLine(path, 1));
    EXPECT_TRUE(QFile::exists(path)); // the dialog leaves an empty file
    EXPECT_EQ(t.readFile(u"reserve/2026_11_23 07_05"), QByteArray());

    QByteArray many;
    for (int i = 1; i <= 1500; ++i)
        many += "D|f" + QByteArray::number(i) + "\r\n";
    many += "D|f1\r\n";
    t.writeFile(u"reserve/1111111 00_00", many);
    const QString big = t.path(u"reserve/1111111 00_00");
    EXPECT_TRUE(Reserve::MoveLine(big, 1400, false));
    QStringList lines = Reserve::ReadLines(big);
    ASSERT_EQ(lines.size(), 1501);
    EXPECT_EQ(lines[1399], u"D|f1401"_s);
    EXPECT_TRUE(Reserve::DeleteByContent(big, u"D|f1")); // both equal lines go
    EXPECT_EQ(Reserve::ReadLines(big).size(), 1499);

    // Nothing but a reservation name is ever written.
    EXPECT_EQ(Reserve::AddLine(t.path(u"reserve/../setting.ini"), u"A", u"x"),
              Reserve::AddResult::NotWritten);
    EXPECT_FALSE(QFile::exists(t.path(u"setting.ini")));
}

// Adds stop at what the reader still takes and at MaxFiles; a name that breaks a row never goes in.
TEST(ReserveStore, AddsStopBeforeTheyBuryTheStore) {
    TempFolder t;
    const QString path = t.path(u"reserve/2026_11_23 07_05");
    const QString longName(Reserve::MaxNameLength, u'x');
    const QByteArray owner = ShiftJis::Encode(u"テレビ|電源") + "\r\n";
    const QByteArray flood = QByteArray(2 * Reserve::MaxNameLength, 'x').insert(200, '|') + "\r\n";
    QByteArray bytes = owner;
    while (bytes.size() + 2 * flood.size() <= Reserve::MaxFileBytes)
        bytes += flood;
    t.writeFile(u"reserve/2026_11_23 07_05", bytes);
    EXPECT_EQ(Reserve::AddLine(path, longName, longName), Reserve::AddResult::Added);
    EXPECT_EQ(Reserve::AddLine(path, longName, longName), Reserve::AddResult::FileFull);
    EXPECT_EQ(t.readFile(u"reserve/2026_11_23 07_05"), bytes + flood);
    EXPECT_EQ(Reserve::ReadLines(path).front(), u"テレビ|電源"_s);
    EXPECT_EQ(Reserve::AddLine(path, u"A", u"x"), Reserve::AddResult::Added); // a short one fits

    for (const QString& bad : {u"TV\tx"_s, u"TV\0x"_s, u"TV\x1b"_s, u"TV\x7f"_s, u"TV\u0085"_s,
                               u"a|b"_s, QString(), longName + u'x'}) {
        EXPECT_EQ(Reserve::AddLine(t.path(u"reserve/1111111 00_00"), bad, u"x"),
                  Reserve::AddResult::BadName);
        EXPECT_EQ(Reserve::AddLine(t.path(u"reserve/1111111 00_00"), u"TV", bad),
                  Reserve::AddResult::BadName);
    }
    EXPECT_FALSE(QFile::exists(t.path(u"reserve/1111111 00_00")));

    for (int i = 2; i < Reserve::MaxFiles; ++i) // links and other files count too
        t.writeFile(
            u"reserve/"_s + QDate(2030, 1, 1).addDays(i).toString(u"yyyy_MM_dd") + u" 00_00"_s, "");
    ASSERT_TRUE(QFile::link(path, t.path(u"reserve/2020_01_01 00_00")));
    EXPECT_EQ(Reserve::AddLine(t.path(u"reserve/1111111 00_00"), u"A", u"x"),
              Reserve::AddResult::TooManyFiles);
    EXPECT_FALSE(QFile::exists(t.path(u"reserve/1111111 00_00")));
    EXPECT_EQ(Reserve::AddLine(path, u"A", u"y"), Reserve::AddResult::Added); // a known moment
}

// A link is never read, written, replaced or deleted through; a pipe does not stall a reader.
TEST(ReserveStore, LinksAreLeftAlone) {
    TempFolder t;
    t.writeFile(u"outside", "Secret|1\r\n");
    const QString link = t.path(u"reserve/2026_11_23 07_05");
    QDir().mkpath(t.path(u"reserve"));
    ASSERT_TRUE(QFile::link(t.path(u"outside"), link));
    ASSERT_TRUE(QFile::link(t.path(u"nowhere"), t.path(u"reserve/2026_11_23 08_05")));
    ASSERT_EQ(mkfifo(QFile::encodeName(t.path(u"reserve/2026_11_23 09_05")).constData(), 0600), 0);
    t.writeFile(u"reserve/1111111 00_00", "A|x\r\n");

    EXPECT_EQ(Reserve::ListNames(t.path(u"reserve")), QStringList{u"1111111 00_00"_s});
    for (const QString& name : {u"07_05"_s, u"08_05"_s, u"09_05"_s}) {
        const QString path = t.path(u"reserve/2026_11_23 "_s + name);
        EXPECT_EQ(Reserve::ReadLines(path), QStringList{});
        EXPECT_EQ(Reserve::AddLine(path, u"A", u"x"), Reserve::AddResult::NotWritten);
        EXPECT_FALSE(Reserve::MoveLine(path, 1, false));
        EXPECT_FALSE(Reserve::DeleteLine(path, 1));
        EXPECT_FALSE(Reserve::DeleteByContent(path, u"Secret|1"));
        EXPECT_FALSE(Reserve::RemoveFile(path));
    }
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(t.readFile(u"outside"), "Secret|1\r\n");
    EXPECT_FALSE(QFile::exists(t.path(u"nowhere")));
}

// Masks before dates; empty lines, foreign names and a 10 MB file left out; broken bytes shown.
TEST(ReserveStore, NamesAndTheGridInNameOrder) {
    TempFolder t;
    t.writeFile(u"reserve/2026_01_02 08_00", "Z|1\r\n\r\nY|2\r\n");
    t.writeFile(u"reserve/1111111 09_00", "A|1\r\n");
    t.writeFile(u"reserve/0100100 21_30", "\x81\xff|\x82\r\nno bar\r\n");
    t.writeFile(u"reserve/notes.txt", "Q|1\r\n");
    t.writeFile(u"reserve/1111111 09_00.1.abcdef.tmp", "Q|1\r\n");
    t.writeFile(u"reserve/2026_01_01 08_00", "");
    t.writeFile(u"reserve/1111111 10_00", QByteArray(10 << 20, 'x'));
    ReserveGrid grid;
    grid.FillGrid(t.path(u"reserve"));
    QStringList seen;
    for (const ReserveRow& r : grid.rows())
        seen << r.day + u' ' + r.time + u' ' + r.device + u'|' + r.function;
    EXPECT_EQ(seen, (QStringList{u"月木 21:30 \uFFFD\uFFFD|\uFFFD"_s, u"月木 21:30 |no bar"_s,
                                 u"毎日 09:00 A|1"_s, u"2026/01/02 08:00 Z|1"_s,
                                 u"2026/01/02 08:00 Y|2"_s}));
    EXPECT_EQ(grid.rowCount(), 6); // and the empty last row
    EXPECT_EQ(grid.data(grid.index(5, 1), Qt::DisplayRole).toString(), QString());

    // Names both ways: what the dialog and the pages write and what the lists show.
    EXPECT_EQ(Reserve::NameFor(Reserve::MaskFor({0, 1, 0, 0, 1, 0, 0}), u"07:05"),
              u"0100100 07_05"_s);
    for (const auto& [day, name] : {std::pair{u"月木"_s, u"0100100 21_30"_s},
                                    {u"毎日"_s, u"1111111 21_30"_s},
                                    {u"2026/11/23"_s, u"2026_11_23 21_30"_s}}) {
        EXPECT_EQ(Reserve::DayText(name), day);
        EXPECT_EQ(Reserve::NameFromTexts(day, u"21:30"), name);
    }
    for (auto bad : {u"../setting.ini"_s, u"2026_11_23 7_05"_s, u"0100100 21_30.tmp"_s,
                     u"0120100 21_30"_s, u" _"_s, u"2026/11/23 07_05"_s})
        EXPECT_FALSE(Reserve::IsValidName(bad)) << bad.toStdString();
}

// An air conditioner's state written as a function reads back whole through CP932; junk as none.
TEST(ReserveStore, ClimateLinesReadBackToTheirState) {
    ClimateCaps caps;
    caps.modes = {ClimateMode::Cool, ClimateMode::Heat, ClimateMode::Dry};
    caps.fans = {u"auto"_s, u"quiet"_s, u"3"_s, u"high speed"_s};
    caps.swing = true;
    caps.step = 0.5;
    const ClimateState believed{true, ClimateMode::Heat, 22, u"3"_s, false};
    const ClimateState states[] = {{true, ClimateMode::Cool, 26, u"auto"_s, false},
                                   {true, ClimateMode::Heat, 16.5, u"quiet"_s, true},
                                   {true, ClimateMode::Dry, 30, u"high speed"_s, false},
                                   {false, ClimateMode::Heat, 22, u"3"_s, false}};
    for (const ClimateState& s : states) {
        const QString function = Reserve::ClimateFunction(s);
        EXPECT_EQ(ShiftJis::Decode(ShiftJis::Encode(function)), function);
        EXPECT_EQ(Reserve::ClimateStateOfFunction(caps, function, believed), s)
            << function.toStdString();
    }
    for (const QString& junk : {u"送風 26℃ 自動"_s, u"冷房 26℃ 強"_s, u"冷房 x℃ 自動"_s,
                                u"冷房 26 自動"_s, u""_s, u"電源"_s})
        EXPECT_FALSE(Reserve::ClimateStateOfFunction(caps, junk, believed)) << junk.toStdString();
}
