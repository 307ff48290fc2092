#include "exchange/Exchange.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "remotes/Registry.h"
#include "support/FullDisk.h"
#include "support/TempFolder.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <sys/mount.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Archives as Python's zipfile writes them, and a reader that tells how names are stored.
QString Zip(const QString& mode, const QString& path,
            const std::map<QString, QString>& entries = {}) {
    QJsonObject o;
    for (const auto& [name, text] : entries)
        o[name] = text;
    QProcess p;
    p.start(u"/usr/bin/python3"_s,
            {QStringLiteral(KESTRAVA_TEST_DATA "/exchange/ziptool.py"), mode, path,
             QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact))});
    p.waitForFinished(60000);
    EXPECT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
    return QString::fromUtf8(p.readAllStandardOutput());
}

struct Install {
    Install() { t.folder.CreateDataFolders(); }
    QString key(int slot, const QString& key) {
        return t.settings.ReadIni(RemoteSection(slot), key);
    }
    QStringList signalFiles() const {
        return QDir(t.path(u"IRSignals")).entryList(QDir::Files, QDir::Name);
    }
    ImportResult import(const QString& archive, bool overwrite = false) {
        return ImportArchive(t.folder, t.settings, archive, overwrite);
    }
    TempFolder t;
};

} // namespace

// Export stores CP932 names without the UTF-8 flag and a remote's own files only;
// import takes the lowest free slots and skips a known remote unless overwriting.
TEST(Exchange, RoundTripBetweenTwoFolders) {
    Install from;
    from.t.writeRemote(1, u"TV"_s, 2, {u"電源"_s, u"音量+"_s});
    from.t.writeRemote(2, u"TV-2"_s, 2, {u"入力"_s});
    from.t.writeRemote(4, u"エアコン"_s, 2, {u"冷房"_s});
    from.t.settings.WriteIni(RemoteSection(1), ButtonKey(65), u"最後"_s);
    from.t.settings.WriteIni(RemoteSection(1), ButtonKey(66), u"範囲外"_s);
    from.t.writeRemote(5, u"空"_s, 2, {});

    QTemporaryDir out;
    const QString dir = out.filePath(u"a/b"_s);
    QDir().mkpath(dir);
    for (const ExportableRemote& r : ExportableRemotes(from.t.settings)) {
        QString error;
        ASSERT_TRUE(ExportDevice(from.t.folder, from.t.settings, r.name, r.slot,
                                 ArchivePath(dir, r.name), &error))
            << error.toStdString();
    }
    EXPECT_EQ(QDir(dir).entryList(QDir::Files, QDir::Name),
              (QStringList{u"TV-2.kxp"_s, u"TV.kxp"_s, u"エアコン.kxp"_s, u"空.kxp"_s}));

    const QJsonArray tv =
        QJsonDocument::fromJson(Zip(u"list"_s, ArchivePath(dir, u"TV"_s)).toUtf8()).array();
    QStringList names;
    for (const auto& e : tv) {
        names << e[u"name"_s].toString();
        EXPECT_FALSE(e[u"utf8"_s].toBool());
    }
    EXPECT_EQ(names, (QStringList{u"exp.txt"_s, u"TV-電源.bin"_s, u"TV-音量+.bin"_s}));
    EXPECT_EQ(tv[0][u"data"_s].toString(),
              u"Device=TV\r\nDesign=2\r\nButton-0=電源\r\nButton-1=音量+\r\nButton-65=最後\r\n"_s);
    EXPECT_EQ(tv[1][u"data"_s].toString(), u"TV電源"_s);
    if (!QStandardPaths::findExecutable(u"unzip"_s).isEmpty()) {
        EXPECT_EQ(QProcess::execute(u"unzip"_s, {u"-tqq"_s, ArchivePath(dir, u"エアコン"_s)}), 0);
    }

    Install to;
    to.t.writeRemote(1, u"BD"_s, 2, {u"再生"_s});
    to.t.writeRemote(3, u"エアコン"_s, 2, {u"暖房"_s, u"除湿"_s});
    auto imported = [&](const QString& name, bool overwrite = false) {
        return to.import(ArchivePath(dir, name), overwrite);
    };
    EXPECT_EQ(imported(u"TV"_s).slot, 2);
    EXPECT_EQ(to.key(2, u"Button-65"_s), u"最後"_s);
    EXPECT_EQ(imported(u"TV-2"_s).slot, 4);
    EXPECT_EQ(imported(u"エアコン"_s).outcome, ImportResult::Skipped);
    EXPECT_EQ(to.key(3, u"Button-0"_s), u"暖房"_s);
    EXPECT_TRUE(to.signalFiles().contains(u"エアコン-除湿.bin"_s));

    EXPECT_EQ(imported(u"エアコン"_s, true).slot, 3);
    EXPECT_EQ(to.key(3, u"Button-0"_s), u"冷房"_s);
    EXPECT_EQ(to.key(3, u"Button-1"_s), QString());
    EXPECT_EQ(to.signalFiles(), (QStringList{u"BD-再生.bin"_s, u"TV-2-入力.bin"_s, u"TV-電源.bin"_s,
                                             u"TV-音量+.bin"_s, u"エアコン-冷房.bin"_s}));
    EXPECT_EQ(to.t.readFile(u"IRSignals/TV-電源.bin"), ShiftJis::Encode(u"TV電源"));
    EXPECT_EQ(imported(u"空"_s).slot, 5);
    EXPECT_TRUE(QDir(to.t.path(u"unzip")).isEmpty());

    // A disk too full for setting.ini once the signals are copied keeps no signal.
    Install full;
    for (auto key : {u"A", u"B", u"C"})
        full.t.settings.WriteIni(u"Pad", key, QString(1000, u'x'));
    ImportResult r;
    {
        FullDisk disk(2000); // the archive's files fit, setting.ini no longer does
        ASSERT_TRUE(disk.ok());
        r = full.import(ArchivePath(dir, u"TV"_s));
    }
    EXPECT_EQ(r.outcome, ImportResult::Refused);
    EXPECT_TRUE(full.signalFiles().isEmpty()) << full.signalFiles().join(u' ').toStdString();
    EXPECT_EQ(full.key(1, u"Device"_s), QString());
}

// CP932 names, UTF-8 names with and without the flag; a stray file of another device stays out.
TEST(Exchange, ImportsArchivesOfOtherTools) {
    QTemporaryDir out;
    const std::map<QString, QString> entries = {
        {u"exp.txt"_s, u"Device=テレビ\r\nDesign=3\r\nButton-2=電源\r\nDevice=乗っ取り\r\n"_s},
        {u"テレビ-電源.bin"_s, u"sig"_s},
        {u"テレビ-2-入力.bin"_s, u"other"_s},
        {u"ラジオ-電源.bin"_s, u"stray"_s}};
    for (const QString& mode : {u"cp932"_s, u"utf-8"_s, u"utf8"_s}) {
        SCOPED_TRACE(mode.toStdString());
        const QString archive = out.filePath(mode + u".kxp"_s);
        Zip(mode, archive, entries);
        Install to;
        to.t.writeRemote(1, u"テレビ-2"_s, 2, {u"入力"_s});
        const ImportResult r = to.import(archive);
        EXPECT_EQ(r.outcome, ImportResult::Imported) << r.reason.toStdString();
        EXPECT_EQ(r.slot, 2);
        for (const auto& [key, value] : {std::pair{u"Device"_s, u"テレビ"_s},
                                         {u"Design"_s, u"3"_s},
                                         {u"Button-2"_s, u"電源"_s}})
            EXPECT_EQ(to.key(2, key), value);
        EXPECT_EQ(to.signalFiles(), (QStringList{u"テレビ-2-入力.bin"_s, u"テレビ-電源.bin"_s}));
        EXPECT_EQ(to.t.readFile(u"IRSignals/テレビ-2-入力.bin"), ShiftJis::Encode(u"テレビ-2入力"));
        EXPECT_EQ(to.t.readFile(u"IRSignals/テレビ-電源.bin"), "sig");
    }
}

// Refused whole: nothing in IRSignals/ or setting.ini, beside the folder, or left in unzip/.
TEST(Exchange, RefusesHostileArchivesWhole) {
    QTemporaryDir out;
    const QString exp = u"Device=TV\r\nDesign=1\r\nButton-0=電源\r\n"_s;
    auto archive = [&](const QString& name, const QString& mode,
                       std::map<QString, QString> entries) {
        const QString path = out.filePath(name);
        Zip(mode, path, entries);
        return path;
    };
    std::vector<std::pair<QString, QString>> cases; // archive, expected reason
    for (const QString& evil : {u"../TV-x.bin"_s, u"/tmp/TV-x.bin"_s, u"C:TV-x.bin"_s,
                                u"sub\\TV-x.bin"_s, u"..TV-x.bin"_s})
        cases.push_back({archive(u"slip%1.kxp"_s.arg(cases.size()), u"utf8"_s,
                                 {{u"exp.txt"_s, exp}, {u"TV-ok.bin"_s, u"x"_s}, {evil, u"x"_s}}),
                         {}});
    cases.push_back({archive(u"many.kxp"_s, u"many"_s, {{u"exp.txt"_s, exp}}), u"entries"_s});
    cases.push_back({archive(u"big.kxp"_s, u"big"_s, {{u"exp.txt"_s, exp}}), u"1 MiB"_s});
    cases.push_back({archive(u"bomb.kxp"_s, u"bomb"_s, {{u"exp.txt"_s, exp}}), u"unpacks"_s});
    cases.push_back({archive(u"noexp.kxp"_s, u"utf8"_s, {{u"TV-x.bin"_s, u"x"_s}}), u"exp.txt"_s});
    cases.push_back(
        {archive(u"nodevice.kxp"_s, u"utf8"_s, {{u"exp.txt"_s, u"Device=a/b"_s}}), u"device"_s});
    const std::map<QString, QString> good = {{u"exp.txt"_s, exp}, {u"TV-電源.bin"_s, u"x"_s}};
    for (const QString& mode : {u"truncated"_s, u"crc"_s})
        cases.push_back({archive(mode + u".kxp"_s, mode, good), {}});
    cases.push_back({archive(u"locked.kxp"_s, u"locked"_s, {{u"exp.txt"_s, exp}}), u"encrypted"_s});
    // Values past 1023 CP932 bytes, a design other than 1 to 6, a TAB in a name: no remote.
    const QString long1024 = QString(512, u'電');
    for (const auto& [text, reason] :
         {std::pair{u"Device="_s + long1024 + u"\r\nDesign=1\r\n"_s, u"longer than 1023"_s},
          {u"Device=TV\r\nDesign=1\r\nButton-3="_s + long1024, u"longer than 1023"_s},
          {u"Device=TV\r\nDesign=]\r\n"_s, u"design"_s},
          {u"Device=TV\r\nDesign=7\r\n"_s, u"design"_s},
          {u"Device=TV\r\n"_s, u"design"_s},
          {u"Device=TV\r\nDesign=1\r\nButton-0=a\tb\r\n"_s, u"control"_s}})
        cases.push_back({archive(u"exp%1.kxp"_s.arg(cases.size()), u"utf8"_s,
                                 {{u"exp.txt"_s, text}, {u"TV-電源.bin"_s, u"x"_s}}),
                         reason});

    Install to;
    to.t.writeRemote(1, u"BD"_s, 2, {u"再生"_s});
    const QByteArray ini = to.t.readFile(u"setting.ini");
    for (const auto& [path, reason] : cases) {
        SCOPED_TRACE(path.toStdString());
        const ImportResult r = to.import(path, true);
        EXPECT_EQ(r.outcome, ImportResult::Refused);
        EXPECT_TRUE(r.reason.contains(reason)) << r.reason.toStdString();
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(CheckArchive(file.readAll()), r.reason); // the same checks in memory
        EXPECT_EQ(to.t.readFile(u"setting.ini"), ini);
    }
    QStringList everything;
    for (QDirIterator it(to.t.dir.path(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
        everything << QDir(to.t.dir.path()).relativeFilePath(it.next());
    everything.sort();
    EXPECT_EQ(everything, (QStringList{u"home/IRSignals/BD-再生.bin"_s, u"home/setting.ini"_s}));
    EXPECT_FALSE(QFile::exists(u"/tmp/TV-x.bin"_s));
    // The program goes on: a good archive still imports, a value of 1023 bytes whole.
    const QString long1023 = QString(511, u'電') + u'a';
    const QString goodPath =
        archive(u"good.kxp"_s, u"utf8"_s,
                {{u"exp.txt"_s, exp + u"Button-7="_s + long1023}, {u"TV-電源.bin"_s, u"x"_s}});
    QFile goodFile(goodPath);
    ASSERT_TRUE(goodFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(CheckArchive(goodFile.readAll()), QString());
    EXPECT_EQ(to.import(goodPath).outcome, ImportResult::Imported);
    EXPECT_EQ(to.key(2, u"Button-7"_s), long1023);
}

// A disk filling while unpacking or copying is told in the system's words; nothing is kept.
TEST(Exchange, FullDiskIsToldAndLeavesNothing) {
    QTemporaryDir mnt;
    if (geteuid() != 0 ||
        ::mount("tmpfs", QFile::encodeName(mnt.path()).constData(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "needs root to mount a small tmpfs";
    struct Unmount {
        QByteArray path;
        ~Unmount() { ::umount2(path.constData(), MNT_DETACH); }
    } unmount{QFile::encodeName(mnt.path())};
    QTemporaryDir out;
    const std::map<QString, QString> exp = {{u"exp.txt"_s, u"Device=TV\r\nDesign=1\r\n"_s}};
    ProgramFolder folder(mnt.filePath(u"home"_s));
    SettingsStore settings(folder.settingsPath());
    settings.WriteIni(u"Remote-1", u"Device", u"BD");
    for (const QString& mode : {u"noise2"_s, u"noise1"_s}) { // 1.2 MB to unpack; 0.6 MB twice
        SCOPED_TRACE(mode.toStdString());
        const QString path = out.filePath(mode + u".kxp"_s);
        Zip(mode, path, exp);
        const ImportResult r = ImportArchive(folder, settings, path, false);
        EXPECT_EQ(r.outcome, ImportResult::Refused);
        EXPECT_TRUE(r.reason.contains(QString::fromLocal8Bit(strerror(ENOSPC))))
            << r.reason.toStdString();
        EXPECT_TRUE(QDir(folder.path(u"IRSignals")).isEmpty());
        EXPECT_TRUE(QDir(folder.path(u"unzip")).isEmpty());
        EXPECT_EQ(settings.ReadIni(u"Remote-2", u"Device"), QString());
    }
}
