#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "support/TempFolder.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <utime.h>

using namespace Qt::StringLiterals;

namespace {

// A modification time of its own, so a same-size rewrite within a clock tick still counts.
void touchBack(const QString& path, int secondsAgo) {
    struct utimbuf t {};
    t.actime = t.modtime = time(nullptr) - secondsAgo;
    utime(QFile::encodeName(path).constData(), &t);
}

} // namespace

// A new file also closes the server to the internet until the owner opens it.
TEST(Settings, FirstWriteIsPrivateCp932AndNamesFoldAndValuesStayWhole) {
    TempFolder t;
    EXPECT_EQ(t.settings.ReadIni(u"WebServer", u"Port"), u""_s);
    EXPECT_FALSE(QFileInfo::exists(t.folder.settingsPath()));
    t.settings.WriteIni(u"Remote-1", u"Device", u"テレビ");
    t.settings.WriteIni(u"Remote-1", u"Design", u"4");
    t.settings.WriteIni(u"WebServer", u"Port", u"8080");

    EXPECT_EQ(t.readFile(u"setting.ini"),
              ShiftJis::Encode(u"[Options]\r\nInternet=0\r\n[Remote-1]\r\nDevice=テレビ\r\n"
                               u"Design=4\r\n[WebServer]\r\nPort=8080\r\n"));
    struct stat st {};
    ASSERT_EQ(stat(QFile::encodeName(t.folder.settingsPath()).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    // No temporary is left beside it.
    EXPECT_EQ(QDir(t.root()).entryList(QDir::Files), QStringList{u"setting.ini"_s});

    // Names fold case beyond ASCII; values stop whole within 1023 bytes and never add a key.
    t.writeFile(u"setting.ini", "[tira]\r\nTESTMODE=1\r\n[Options]\r\nInternet=\r\n");
    EXPECT_EQ(t.settings.ReadIni(u"TIRA", u"TestMode"), u"1"_s);
    t.settings.WriteIni(u"Remote-テレビＡ", u"Key", u"2");
    EXPECT_EQ(t.settings.ReadIni(u"REMOTE-テレビａ", u"kEY"), u"2"_s);
    EXPECT_EQ(t.settings.ReadIni(u"Options", u"Internet"), u""_s);

    const QString mixed = QString(1022, u'b') + u"テレビ"_s; // テ would end past byte 1023
    t.settings.WriteIni(u"S", u"Mixed", mixed);
    EXPECT_EQ(t.settings.ReadIni(u"S", u"Mixed"), QString(1022, u'b'));
    EXPECT_TRUE(t.readFile(u"setting.ini").contains(ShiftJis::Encode(mixed)));

    t.settings.WriteIni(u"Remote-1", u"Device", u"TV\r\n[Options]\r\nWebAuth=0");
    EXPECT_EQ(t.settings.ReadIni(u"Options", u"WebAuth"), u""_s);
    EXPECT_EQ(t.settings.ReadIni(u"Remote-1", u"Device"), u"TV  [Options]  WebAuth=0"_s);
}

TEST(Settings, ChangesAreSeenAtTheNextReadButAFailedReadKeepsTheLastGood) {
    TempFolder t;
    t.settings.WriteIni(u"Remote-1", u"Device", u"AAAA");
    EXPECT_EQ(t.settings.ReadIni(u"Remote-1", u"Device"), u"AAAA"_s);

    // Same size and the modification time put back: only the change time tells.
    const QByteArray name = QFile::encodeName(t.folder.settingsPath());
    struct stat before {};
    ASSERT_EQ(stat(name.constData(), &before), 0);
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    struct stat after {};
    do { // the change time ticks coarsely
        t.writeFile(u"setting.ini", "[Options]\r\nInternet=1\r\n[Remote-1]\r\nDevice=AAAA\r\n");
        ASSERT_EQ(utimensat(AT_FDCWD, name.constData(), times, 0), 0);
        ASSERT_EQ(stat(name.constData(), &after), 0);
    } while (after.st_ctim.tv_sec == before.st_ctim.tv_sec &&
             after.st_ctim.tv_nsec == before.st_ctim.tv_nsec);
    EXPECT_EQ(t.settings.ReadIni(u"Options", u"Internet"), u"1"_s);

    SettingsStore other(t.folder.settingsPath());
    other.WriteIni(u"Remote-1", u"Device", u"CCCC");
    EXPECT_EQ(t.settings.ReadIni(u"Remote-1", u"Device"), u"CCCC"_s);

    // A write is based on the file as it is now, not on what was read before.
    t.writeFile(u"setting.ini", "[Remote-2]\r\nDevice=X\r\n");
    touchBack(t.folder.settingsPath(), 5);
    t.settings.WriteIni(u"Remote-3", u"Device", u"Y");
    EXPECT_EQ(other.ReadIni(u"Remote-2", u"Device"), u"X"_s);
    EXPECT_EQ(other.ReadIni(u"Remote-3", u"Device"), u"Y"_s);

    // A batch reads the file once a turn of the event loop, yet writes start from it as it is.
    {
        SettingsStore::Batch batch(other);
        EXPECT_EQ(other.ReadIni(u"Remote-2", u"Device"), u"X"_s);
        t.writeFile(u"setting.ini", "[Remote-2]\r\nDevice=Z\r\n");
        touchBack(t.folder.settingsPath(), 7);
        EXPECT_EQ(other.ReadIni(u"Remote-2", u"Device"), u"X"_s);
        QCoreApplication::processEvents();
        EXPECT_EQ(other.ReadIni(u"Remote-2", u"Device"), u"Z"_s);
        t.writeFile(u"setting.ini", "[Remote-2]\r\nDevice=W\r\n");
        touchBack(t.folder.settingsPath(), 9);
        other.WriteIni(u"Remote-4", u"Device", u"V");
        EXPECT_EQ(t.settings.ReadIni(u"Remote-2", u"Device"), u"W"_s);
    }

    // Unreadable, emptied or gone for a moment: the last good contents answer, writes wait.
    const QString ini = t.folder.settingsPath();
    const QByteArray original = "[Options]\r\nInternet=0\n[Pos]\r\nMain_T=5";
    t.writeFile(u"setting.ini", original);
    EXPECT_EQ(t.settings.ReadIni(u"Options", u"Internet"), u"0"_s);
    EXPECT_FALSE(t.settings.Unreadable());

    ASSERT_TRUE(QFile::rename(ini, ini + u".away"_s));
    ASSERT_TRUE(QDir().mkdir(ini)); // a directory in its place cannot be read as a file
    EXPECT_EQ(t.settings.ReadIni(u"Options", u"Internet"), u"0"_s);
    EXPECT_TRUE(t.settings.Unreadable());
    t.settings.WriteIni(u"Pos", u"Main_L", u"3");
    EXPECT_FALSE(t.settings.DeleteIniSection(u"Pos"));
    EXPECT_TRUE(QFileInfo(ini).isDir());
    ASSERT_TRUE(QDir().rmdir(ini));
    ASSERT_TRUE(QFile::rename(ini + u".away"_s, ini));
    EXPECT_FALSE(t.settings.Unreadable());
    EXPECT_EQ(t.settings.ReadIni(u"Pos", u"Main_T"), u"5"_s);
    EXPECT_EQ(t.readFile(u"setting.ini"), original);

    // Emptied by an editor that truncates, then writes; gone for a moment.
    t.writeFile(u"setting.ini", {});
    EXPECT_EQ(t.settings.ReadIni(u"Options", u"Internet"), u"0"_s);
    t.settings.WriteIni(u"Pos", u"Main_L", u"3");
    EXPECT_EQ(t.readFile(u"setting.ini"), QByteArray());
    QFile::remove(ini);
    EXPECT_EQ(t.settings.ReadIni(u"Options", u"Internet"), u"0"_s);
    t.settings.WriteIni(u"Pos", u"Main_L", u"3");
    EXPECT_FALSE(QFileInfo::exists(ini));
    t.writeFile(u"setting.ini", "[Options]\r\nInternet=1\r\n");
    EXPECT_EQ(t.settings.ReadIni(u"Options", u"Internet"), u"1"_s);
    EXPECT_EQ(t.settings.ReadIni(u"Pos", u"Main_T"), u""_s);
}

TEST(Settings, DamagedFilesReadByTheRules) {
    TempFolder t;
    // No "=", no "]", keys before any section, a NUL, invalid CP932, no last line end.
    QByteArray damaged = "orphan=1\r\n[Good]\r\nnoequals\r\n[Broken\r\na=1\r\nnul=ab";
    damaged += '\0';
    damaged += "cd\r\nbad=\x81\x20\xFF\r\n[Next]\r\nlast=end";
    t.writeFile(u"setting.ini", damaged);
    EXPECT_EQ(t.settings.ReadIni(u"", u"orphan"), u""_s);
    EXPECT_EQ(t.settings.ReadIni(u"Good", u"noequals"), u""_s);
    EXPECT_EQ(t.settings.ReadIni(u"Good", u"a"), u"1"_s); // "[Broken" is a key line of Good
    EXPECT_EQ(t.settings.ReadIni(u"Broken", u"a"), u""_s);
    EXPECT_EQ(t.settings.ReadIni(u"Good", u"nul"), u"ab"_s);
    EXPECT_FALSE(t.settings.ReadIni(u"Good", u"bad").isEmpty());
    EXPECT_EQ(t.settings.ReadIni(u"Next", u"last"), u"end"_s);

    // The damaged lines survive a write untouched.
    t.settings.WriteIni(u"Next", u"added", u"1");
    EXPECT_TRUE(t.readFile(u"setting.ini").contains(QByteArray("bad=\x81\x20\xFF\r\n")));

    // Untouched lines keep their bytes; added lines take the ending of the file's first line.
    t.writeFile(u"setting.ini", "; by hand\r\n[A]\nx = 1\r\n\n[B] \ny=2");
    t.settings.WriteIni(u"A", u"z", u"3");
    t.settings.WriteIni(u"a", u"X", u"9");
    EXPECT_EQ(t.readFile(u"setting.ini"), "; by hand\r\n[A]\nx=9\r\nz=3\r\n\n[B] \ny=2");
    t.settings.WriteIni(u"C", u"w", u"4");
    EXPECT_EQ(t.readFile(u"setting.ini"),
              "; by hand\r\n[A]\nx=9\r\nz=3\r\n\n[B] \ny=2\r\n[C]\r\nw=4\r\n");
}
