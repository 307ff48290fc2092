#include "infrared/SignalStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct ToolRun {
    int status;
    QString out, err;
};

ToolRun run(const QString& dir, const QStringList& args) {
    QProcess p;
    p.setWorkingDirectory(dir);
    p.start(QStringLiteral(KESTRAVA_IR_BINARY), args);
    p.waitForFinished(20000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

} // namespace

TEST(IrTool, CapturesShowsAndSendsWithTheSimulator) {
    QTemporaryDir dir;
    ToolRun captured = run(dir.path(), {u"capture"_s, u"sim"_s, u"tv.bin"_s, u"3"_s});
    ASSERT_EQ(captured.status, 0) << captured.out.toStdString();
    EXPECT_EQ(QFileInfo(dir.filePath(u"tv.bin"_s)).size(), SignalFileSize);

    ToolRun shown = run(dir.path(), {u"show"_s, u"tv.bin"_s});
    EXPECT_EQ(shown.status, 0);
    EXPECT_TRUE(shown.out.contains(u"\n+9000 -4504 +560 -560 "_s)) << shown.out.toStdString();
    EXPECT_TRUE(shown.out.contains(u"ir-ctl -c 38000"_s));
    EXPECT_EQ(run(dir.path(), {u"send"_s, u"sim"_s, u"tv.bin"_s}).status, 0);
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(u"sim-transmit.log"_s)));

    EXPECT_EQ(run(dir.path(), {u"show"_s, u"sim-transmit.log"_s}).status, 1); // not a signal
    // Failures say what failed in words, under the tool's own name.
    const ToolRun missing = run(dir.path(), {u"send"_s, u"/nonexistent/tty"_s, u"tv.bin"_s});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(missing.err.contains(
        u"kestrava-ir: /nonexistent/tty: cannot open the transceiver: no such device"_s))
        << missing.err.toStdString();
    EXPECT_FALSE(missing.err.contains(u"kestrava:"_s));
    const ToolRun bogus = run(dir.path(), {u"bogus"_s});
    EXPECT_EQ(bogus.status, 2);
    EXPECT_TRUE(bogus.err.startsWith(u"kestrava-ir: unknown command 'bogus'\nUsage:"_s));
    // A file that cannot be stored is told before anybody is asked for a key.
    const ToolRun nowhere = run(dir.path(), {u"capture"_s, u"sim"_s, u"no/tv.bin"_s, u"3"_s});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_TRUE(nowhere.out.isEmpty()) << nowhere.out.toStdString();
    EXPECT_TRUE(nowhere.err.contains(u"no/tv.bin: cannot be written"_s));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              (QStringList{u"sim-transmit.log"_s, u"tv.bin"_s}));

    const ToolRun version = run(dir.path(), {u"--version"_s});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, u"kestrava-ir " KESTRAVA_VERSION "\n"_s);
}

// convert: the input's format from its content, the output's from --to or
// the name; many signals into a one-signal format only into a directory.
TEST(IrTool, ConvertsBetweenFormats) {
    QTemporaryDir dir;
    QFile in(dir.filePath(u"tv.ir"_s));
    ASSERT_TRUE(in.open(QIODevice::WriteOnly));
    in.write("Filetype: IR signals file\nVersion: 1\n#\nname: Power\ntype: raw\n"
             "frequency: 38000\nduty_cycle: 0.330000\ndata: 9000 4500 560 1690 560\n"
             "#\nname: Mute/All\ntype: raw\nfrequency: 38000\nduty_cycle: 0.330000\n"
             "data: 9000 4500 560 560 560\n");
    in.close();
    ToolRun r = run(dir.path(), {u"convert"_s, u"tv.ir"_s, u"tv.conf"_s});
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    r = run(dir.path(), {u"convert"_s, u"tv.conf"_s, u"tv.pronto"_s});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains(u"give a directory as OUT"_s)) << r.err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(u"tv.pronto"_s)));
    r = run(dir.path(), {u"convert"_s, u"tv.conf"_s, u"keys/"_s, u"--to"_s, u"bin"_s});
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(QDir(dir.filePath(u"keys"_s)).entryList(QDir::Files),
              (QStringList{u"kestrava-Mute_All.bin"_s, u"kestrava-Power.bin"_s}));
    r = run(dir.path(), {u"show"_s, u"keys/kestrava-Power.bin"_s});
    EXPECT_TRUE(r.out.contains(u"\n+9000 -4504 +560 -1688 +560\n"_s)) << r.out.toStdString();
    r = run(dir.path(), {u"convert"_s, u"keys"_s, u"out.json"_s});
    EXPECT_EQ(r.status, 1);
    r = run(dir.path(), {u"convert"_s, u"keys/kestrava-Power.bin"_s, u"out.json"_s});
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    r = run(dir.path(), {u"convert"_s, u"tv.ir"_s, u"out"_s});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.contains(u"say --to FORMAT"_s)) << r.err.toStdString();
}

// A code to a signal file with its exact timings, and back as JSON with the
// protocol's fields; a code that does not fit is refused before any file.
TEST(IrTool, EncodesACodeAndShowsItAsJson) {
    QTemporaryDir dir;
    ASSERT_EQ(run(dir.path(), {u"encode"_s, u"sony20:0x1f5a7f"_s, u"k.bin"_s}).status, 0);
    const ToolRun shown = run(dir.path(), {u"show"_s, u"k.bin"_s, u"--json"_s});
    ASSERT_EQ(shown.status, 0);
    const QJsonObject o = QJsonDocument::fromJson(shown.out.toUtf8()).object();
    EXPECT_EQ(o[u"protocol"_s].toString(), u"sony20"_s);
    EXPECT_EQ(o[u"scancode"_s].toString(), u"0x1f5a7f"_s);
    EXPECT_EQ(o[u"carrier"_s].toInt(), 40000);
    EXPECT_EQ(o[u"address"_s].toInt(), 0x1F);
    EXPECT_EQ(o[u"subdevice"_s].toInt(), 0x5A);
    EXPECT_EQ(o[u"command"_s].toInt(), 0x7F);
    const QJsonArray timings = o[u"timings"_s].toArray();
    ASSERT_EQ(timings.size(), 42);
    EXPECT_EQ(timings[0].toInt(), 2400);
    EXPECT_EQ(timings[1].toInt(), -600);
    EXPECT_TRUE(
        run(dir.path(), {u"show"_s, u"k.bin"_s}).out.contains(u"# protocol Sony20 0x1f5a7f"_s));

    const ToolRun bad = run(dir.path(), {u"encode"_s, u"nec:0x10000"_s, u"x.bin"_s});
    EXPECT_EQ(bad.status, 2);
    EXPECT_TRUE(bad.err.contains(u"does not fit nec"_s)) << bad.err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(u"x.bin"_s)));
}

TEST(IrTool, WritesAndShowsAnAirConditionersStateFrame) {
    QTemporaryDir dir;
    const ToolRun listed = run(dir.path(), {u"climate"_s, u"--list"_s});
    EXPECT_EQ(listed.status, 0) << listed.err.toStdString();
    ToolRun r = run(dir.path(), {u"climate"_s, u"nosuch"_s, u"mode=cool"_s, u"ac.bin"_s});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.contains(u"climate --list"_s)) << r.err.toStdString();
    const QString family = listed.out.section(u'\t', 0, 0);
    if (family.isEmpty())
        GTEST_SKIP() << "no air-conditioner family is built in";
    r = run(dir.path(), {u"climate"_s, family, u"mode=cool"_s, u"temp=99"_s, u"ac.bin"_s});
    EXPECT_EQ(r.status, 2); // beyond the range: said so, nothing written
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(u"ac.bin"_s)));
    r = run(dir.path(),
            {u"climate"_s, family, u"power=on"_s, u"mode=cool"_s, u"temp=25"_s, u"ac.bin"_s});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    r = run(dir.path(), {u"show"_s, u"ac.bin"_s, u"--json"_s});
    const QJsonObject climate =
        QJsonDocument::fromJson(r.out.toUtf8()).object()[u"climate"_s].toObject();
    EXPECT_EQ(climate[u"family"_s], family);
    EXPECT_EQ(climate[u"mode"_s], u"cool"_s);
    EXPECT_EQ(climate[u"temperature"_s].toDouble(), 25);
}
