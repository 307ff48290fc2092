#include "infrared/DataTable.h"
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

ToolRun run(const QString& dir, const QStringList& args, const QByteArray& input = {},
            QByteArray* bytes = nullptr) {
    QProcess p;
    p.setWorkingDirectory(dir);
    p.start(QStringLiteral(KESTRAVA_IR_BINARY), args);
    p.write(input);
    p.closeWriteChannel();
    p.waitForFinished(20000);
    const QByteArray out = p.readAllStandardOutput();
    if (bytes)
        *bytes = out;
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(out),
            QString::fromUtf8(p.readAllStandardError())};
}

} // namespace

TEST(IrTool, CapturesShowsSendsAndPipesWithTheSimulator) {
    QTemporaryDir dir;
    ToolRun captured = run(dir.path(), {u"capture"_s, u"sim"_s, u"tv.bin"_s, u"3"_s});
    ASSERT_EQ(captured.status, 0) << captured.out.toStdString();
    EXPECT_EQ(QFileInfo(dir.filePath(u"tv.bin"_s)).size(), SignalFileSize);

    ToolRun shown = run(dir.path(), {u"show"_s, u"tv.bin"_s});
    EXPECT_EQ(shown.status, 0);
    EXPECT_TRUE(shown.out.contains(u"\n+9000 -4504 +560 -560 "_s)) << shown.out.toStdString();
    EXPECT_TRUE(shown.out.contains(u"ir-ctl -c 38000"_s));
    EXPECT_EQ(run(dir.path(), {u"send"_s, u"sim"_s, u"tv.bin"_s}).status, 0);

    // "-" is standard input or output for every file, so the commands pipe.
    QByteArray signal, pronto;
    ASSERT_EQ(run(dir.path(), {u"encode"_s, u"nec:0x0408"_s, u"-"_s}, {}, &signal).status, 0);
    EXPECT_EQ(signal.size(), SignalFileSize);
    ToolRun r =
        run(dir.path(), {u"convert"_s, u"-"_s, u"-"_s, u"--to"_s, u"pronto"_s}, signal, &pronto);
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(pronto.startsWith("900A") || pronto.startsWith("0000")) << pronto.constData();
    EXPECT_TRUE(r.err.contains(u"wrote 1 signal(s)"_s)); // the words keep off the data
    r = run(dir.path(), {u"show"_s, u"-"_s}, pronto);
    EXPECT_TRUE(r.out.contains(u"(nec:0x0408)"_s)) << r.out.toStdString() << r.err.toStdString();
    r = run(dir.path(), {u"send"_s, u"sim"_s, u"-"_s}, signal);
    EXPECT_EQ(r.status, 0) << r.err.toStdString();

    // Failures say what failed in words, under the tool's own name.
    const ToolRun missing = run(dir.path(), {u"send"_s, u"/nonexistent/tty"_s, u"tv.bin"_s});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(missing.err.contains(
        u"kestrava-ir: /nonexistent/tty: cannot open the transceiver: no such device"_s))
        << missing.err.toStdString();
    EXPECT_FALSE(missing.err.contains(u"kestrava:"_s));
    // A file that cannot be stored is told before anybody is asked for a key.
    const ToolRun nowhere = run(dir.path(), {u"capture"_s, u"sim"_s, u"no/tv.bin"_s, u"3"_s});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_TRUE(nowhere.out.isEmpty()) << nowhere.out.toStdString();
    EXPECT_TRUE(nowhere.err.contains(u"no/tv.bin: cannot be written"_s));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              (QStringList{u"sim-transmit.log"_s, u"tv.bin"_s})); // nothing else, even piped
}

// 0 done, 1 failed, 2 bad usage, each with its words on the stream it belongs to.
TEST(IrTool, ExitStatusesAndHelp) {
    QTemporaryDir dir;
    const QList<QStringList> cases = DataTable(u"ir-tool/exits.tsv"_s);
    ASSERT_EQ(cases.size(), 14);
    for (const QStringList& c : cases) {
        SCOPED_TRACE(c[0].toStdString());
        const ToolRun r = run(dir.path(), c[0].split(u' '));
        EXPECT_EQ(r.status, c[1].toInt());
        const QString said = QString(c[2]).replace(u"$VERSION"_s, QStringLiteral(KESTRAVA_VERSION));
        EXPECT_TRUE((c[1] == u"0" ? r.out : r.err).contains(said))
            << r.out.toStdString() << r.err.toStdString();
    }
    EXPECT_TRUE(QDir(dir.path()).isEmpty());
}

// convert: formats from content, --to or name; many signals into a one-signal format need a dir.
TEST(IrTool, ConvertsBetweenFormats) {
    QTemporaryDir dir;
    // Two raw keys, one named with a slash.
    ASSERT_TRUE(
        QFile::copy(QStringLiteral(KESTRAVA_TEST_DATA "/ir-tool/tv.ir"), dir.filePath(u"tv.ir"_s)));
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

// A code to a signal file and back as JSON with its fields; one that does not fit writes nothing.
TEST(IrTool, EncodesACodeAndShowsItAsJson) {
    QTemporaryDir dir;
    ASSERT_EQ(run(dir.path(), {u"encode"_s, u"sony20:0x1f5a7f"_s, u"k.bin"_s}).status, 0);
    const ToolRun shown = run(dir.path(), {u"show"_s, u"k.bin"_s, u"--json"_s});
    ASSERT_EQ(shown.status, 0);
    QJsonObject o = QJsonDocument::fromJson(shown.out.toUtf8()).object();
    const QJsonArray timings = o.take(u"timings"_s).toArray();
    EXPECT_EQ(QJsonDocument(o).toJson(QJsonDocument::Compact).toStdString(),
              R"({"address":31,"carrier":40000,"command":127,"irp":{"D":31,"F":127,"S":90,)"
              R"("protocol":"Sony20"},"protocol":"sony20","repeat":[],"scancode":"0x1f5a7f",)"
              R"("spec":"sony20:0x1f5a7f","subdevice":90})");
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
