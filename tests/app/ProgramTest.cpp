#include "app/Demo.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "core/Wait.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "support/HttpClient.h"
#include "support/ProgramProcess.h"
#include "support/SimHome.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

QStringList home(const QString& dir) {
    return {u"--headless"_s, u"--home"_s, dir};
}

bool writeFile(const QString& path, const QByteArray& data = {}) {
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(data) == data.size();
}

} // namespace

TEST(Program, RunsHeadlessOnceOnItsFolderAndClosesOnSigterm) {
    QTemporaryDir tmp;
    const QString dir = tmp.path() + u"/home"_s;
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert(u"KESTRAVA_HOME"_s, dir); // the folder when --home is not given
    // Temporaries a killed save or learning left behind go; others stay.
    QDir().mkpath(dir + u"/IRSignals"_s);
    const QString stale[] = {dir + u"/setting.ini.4194305.Ab12Cd.tmp"_s,
                             dir + u"/IRSignals/TV-1.bin.4194305.x9Z7q0.tmp"_s, dir + u"/1.tmp"_s,
                             dir + u"/12.tmp"_s};
    for (const QString& file : stale)
        ASSERT_TRUE(writeFile(file));
    ASSERT_TRUE(writeFile(dir + u"/notes.tmp"_s));
    ProgramProcess p({u"--headless"_s}, env);
    ASSERT_TRUE(p.waitForLog(u"started on "_s + dir)) << p.log().toStdString();
    for (const QString& file : stale)
        EXPECT_FALSE(QFileInfo::exists(file)) << file.toStdString();
    EXPECT_TRUE(QFileInfo::exists(dir + u"/notes.tmp"_s));

    // Without a screen a first start says where to go; new settings serve the home network only.
    const quint16 port = p.webPort();
    EXPECT_TRUE(p.log().contains(u"first start: the pages are at http://"_s))
        << p.log().toStdString();
    EXPECT_TRUE(p.log().contains(u"settings are kept in "_s + dir + u"/setting.ini"_s));
    EXPECT_FALSE(p.log().contains(u"ありがとう"_s));
    SettingsStore settings(dir + u"/setting.ini"_s);
    EXPECT_EQ(settings.ReadIni(u"Options", u"Internet"), u"0"_s);
    EXPECT_EQ(settings.ReadIni(u"WebServer", u"Port"), QString::number(port));
    EXPECT_TRUE(QFileInfo(dir + u"/pic/panelB.jpg"_s).isFile());

    // A second instance on the folder ends at once with one line naming the first.
    QElapsedTimer timer;
    timer.start();
    ProgramProcess second(home(dir));
    ASSERT_TRUE(second.finish(5000));
    EXPECT_LT(timer.elapsed(), 2000);
    EXPECT_EQ(second.process.exitCode(), 0);
    const QString line = second.log().trimmed();
    EXPECT_TRUE(!line.contains(u'\n') && line.contains(dir) &&
                line.contains(u"pid "_s + QString::number(p.process.processId())))
        << line.toStdString();

    timer.restart();
    ASSERT_TRUE(p.stop(SIGTERM, 5000));
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_EQ(p.process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.process.exitCode(), 0);
    EXPECT_TRUE(p.log().contains(u"closing"_s));
}

TEST(Program, SigtermClosesTheDesktopEvenWithABoxOpen) {
    QTemporaryDir tmp;
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    // A new folder greets with a modal box that nobody answers.
    ProgramProcess p({u"--home"_s, tmp.path(), u"--verbose"_s}, env, ProgramProcess::KeepPlatform);
    ASSERT_TRUE(p.waitForLog(u"desktop"_s)) << p.log().toStdString();
    QElapsedTimer timer;
    timer.start();
    ASSERT_TRUE(p.stop(SIGTERM, 5000));
    // A box would hold it for good; a loaded machine only takes its time.
    EXPECT_LT(timer.elapsed(), 3000);
    EXPECT_EQ(p.process.exitCode(), 0);
}

// A folder that cannot be created is one error line with the system's reason and status 1; a
// stored port that cannot be used is named, with the reason, and replaced for this run only.
TEST(Program, UnusableFoldersAndPortsAreReported) {
    QTemporaryDir tmp;
    ASSERT_TRUE(writeFile(tmp.path() + u"/file"_s));
    for (const QString& dir : {tmp.path() + u"/file/home"_s, tmp.path() + u"/file"_s}) {
        ProgramProcess p(home(dir));
        ASSERT_TRUE(p.finish());
        EXPECT_EQ(p.process.exitCode(), 1);
        EXPECT_EQ(p.log(), u"kestrava: error: cannot create program folder %1: %2\n"_s.arg(
                               dir, QString::fromLocal8Bit(strerror(ENOTDIR))));
    }
    QTcpServer holder;
    ASSERT_TRUE(holder.listen(QHostAddress::Any, 0));
    const QString taken = QString::number(holder.serverPort());
    for (const QString& stored : {taken, u"abc"_s}) {
        SettingsStore(tmp.path() + u"/setting.ini"_s).WriteIni(u"WebServer", u"Port", stored);
        ProgramProcess p(home(tmp.path()));
        const quint16 port = p.webPort();
        EXPECT_TRUE(port >= 8080 && port <= 8179) << p.log().toStdString();
        EXPECT_TRUE(p.log().contains(stored == taken
                                         ? u"cannot listen on port "_s + taken + u": in use"_s
                                         : u"WebServer/Port abc is not a port number (1-65535)"_s))
            << p.log().toStdString();
        EXPECT_TRUE(
            p.log().contains(u"using port "_s + QString::number(port) + u" for this run"_s));
        EXPECT_FALSE(p.log().contains(u"次に表示"_s)); // no port list comes headless
    }
}

// The window position saved at exit does not replace a setting.ini that cannot be read.
TEST(Program, AnUnreadableSettingsFileIsNeverRewritten) {
    QTemporaryDir tmp;
    const QString ini = tmp.path() + u"/setting.ini"_s;
    const QByteArray original = "; mine\r\n[WebServer]\nPort=0\r\n[Options]\r\nInternet=0";
    ASSERT_TRUE(writeFile(ini, original));
    // Root reads everything: run the program as nobody, on a folder of its own.
    std::function<void()> asNobody;
    if (geteuid() == 0) {
        for (const QString& path : {tmp.path(), ini})
            ASSERT_EQ(chown(QFile::encodeName(path).constData(), 65534, 65534), 0);
        asNobody = [] {
            if (setgid(65534) != 0 || setuid(65534) != 0)
                _exit(99);
        };
    }
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    ProgramProcess p({u"--home"_s, tmp.path()}, env, ProgramProcess::KeepPlatform, asNobody);
    ASSERT_TRUE(p.waitForLog(u"started on"_s)) << p.log().toStdString();
    ASSERT_EQ(chmod(QFile::encodeName(ini).constData(), 0), 0);
    ASSERT_TRUE(p.stop());
    EXPECT_TRUE(p.log().contains(u"cannot read"_s)) << p.log().toStdString();
    ASSERT_EQ(chmod(QFile::encodeName(ini).constData(), 0600), 0);
    QFile f(ini);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), original);
}

// With Internet=0 a public client (in a network namespace) is refused, fail closed too.
TEST(Program, ThePublicIsRefusedWhileTheSettingsCannotBeRead) {
    QTemporaryDir tmp;
    SettingsStore(tmp.path() + u"/setting.ini"_s).WriteIni(u"WebServer", u"Port", u"8080");
    const char* script = R"sh(
ip link set lo up && ip addr add 203.0.113.5/32 dev lo || exit 0
echo ready
"$0" --headless --home "$1" 2>"$1/log" &
for i in $(seq 100); do grep -q "listening on port" "$1/log" && break; sleep 0.1; done
ask() { echo "$1=$(curl -s -m 5 -o /dev/null -w '%{http_code}' --interface "$2" "http://$2:8080/default.asp")"; }
ask home 127.0.0.1; ask public 203.0.113.5
rm "$1/setting.ini"; mkdir "$1/setting.ini"; ask unreadable 203.0.113.5
kill $!; wait
)sh";
    QProcess sh;
    sh.start(u"unshare"_s, {u"-rn"_s, u"sh"_s, u"-c"_s, QString::fromLatin1(script),
                            QStringLiteral(KESTRAVA_BINARY), tmp.path()});
    ASSERT_TRUE(sh.waitForFinished(30000));
    const QString out = QString::fromUtf8(sh.readAllStandardOutput());
    if (!out.startsWith(u"ready"_s))
        GTEST_SKIP() << "no network namespace here: " << sh.readAllStandardError().constData();
    EXPECT_EQ(out, u"ready\nhome=200\npublic=000\nunreadable=000\n"_s) << out.toStdString();
}

TEST(Program, PressesFromManyPhonesAtOnceAllGoOutInOrder) {
    QTemporaryDir tmp;
    const QString dir = MakeSimHome(tmp.path() + u"/home"_s); // keys 0, 1: NecSignal(0x40, k)
    SettingsStore settings(dir + u"/setting.ini"_s);
    for (int k = 2; k < 10; ++k) {
        const QString name = u"F"_s + QString::number(k);
        settings.WriteIni(u"Remote-1", u"Button-"_s + QString::number(k), name);
        ASSERT_TRUE(WriteSignalFile(dir + u"/IRSignals/TV-"_s + name + u".bin"_s,
                                    SimDriver::NecSignal(0x40, uint8_t(k))));
    }
    ProgramProcess p(home(dir));
    const quint16 listening = p.webPort();
    ASSERT_NE(listening, 0) << p.log().toStdString();

    // Ten phones press within a few milliseconds; each send lasts longer.
    std::vector<std::unique_ptr<RawConnection>> phones;
    for (int k = 0; k < 10; ++k) {
        phones.push_back(std::make_unique<RawConnection>(listening));
        phones.back()->send("GET /cremote.asp?DevID=1&Button=" + QByteArray::number(k) +
                            "&Device=TV HTTP/1.1\r\nHost: localhost\r\n\r\n");
        WaitMs(5);
    }
    for (auto& phone : phones) {
        const QByteArray page = phone->readAll(10000);
        // The key list, not a failure page.
        EXPECT_TRUE(page.startsWith("HTTP/1.1 200") && page.contains("cremote.asp?&Dummy="))
            << page.left(200).toStdString();
    }
    const QStringList lines = SimLog(dir);
    ASSERT_EQ(lines.size(), 10);
    for (int k = 0; k < 10; ++k) // "<time> <count> <hex bytes>"
        EXPECT_EQ(QByteArray::fromHex(lines[k].section(u' ', 2).toLatin1()),
                  SimDriver::NecSignal(0x40, uint8_t(k)))
            << k;
}

// One line per remote or archive, status 1 when one fails; a running instance serves the import.
TEST(Program, ExportsAndImportsFromTheCommandLine) {
    TempFolder t;
    t.writeRemote(2, u"TV"_s, 1, {u"電源"_s});
    t.writeRemote(5, u"エアコン"_s, 1, {u"電源"_s});
    const QString from = t.root(), to = t.dir.filePath(u"to"_s), out = t.dir.filePath(u"out"_s);
    auto run = [](const QStringList& args, QString* output) {
        QProcess p;
        p.start(QStringLiteral(KESTRAVA_BINARY), args);
        p.waitForFinished(20000);
        *output = QString::fromUtf8(p.readAllStandardOutput());
        return p.exitCode();
    };
    QString output;
    EXPECT_EQ(run({u"--home"_s, from, u"--export"_s, out}, &output), 0);
    EXPECT_EQ(output,
              u"TV: written to %1/TV.kxp\nエアコン: written to %1/エアコン.kxp\n"_s.arg(out));
    EXPECT_EQ(run({u"--home"_s, from, u"--export"_s, out, u"TV"_s, u"DVD"_s}, &output), 1);
    EXPECT_EQ(output, u"DVD: no such remote\nTV: written to %1/TV.kxp\n"_s.arg(out));

    // Into a folder that is not there, a refused archive leaves no trace.
    ASSERT_TRUE(writeFile(out + u"/junk.kxp"_s, "not an archive"));
    EXPECT_EQ(run({u"--home"_s, to, u"--import"_s, out + u"/junk.kxp"_s}, &output), 1);
    EXPECT_FALSE(QFileInfo::exists(to));

    ProgramProcess running(home(to));
    const quint16 port = running.webPort();
    ASSERT_NE(port, 0);
    EXPECT_EQ(run({u"--home"_s, to, u"--import"_s, out + u"/エアコン.kxp"_s, out + u"/junk.kxp"_s},
                  &output),
              1);
    EXPECT_EQ(output,
              u"%1/エアコン.kxp: imported エアコン as remote 1\n"
              "%1/junk.kxp: refused: not a readable archive (Not a zip archive)\n"_s.arg(out));
    EXPECT_EQ(run({u"--home"_s, to, u"--import"_s, out + u"/エアコン.kxp"_s}, &output), 1);
    EXPECT_TRUE(output.contains(u"skipped, エアコン is already remote 1"_s))
        << output.toStdString();
    EXPECT_EQ(
        run({u"--home"_s, to, u"--import"_s, u"--overwrite"_s, out + u"/エアコン.kxp"_s}, &output),
        0);
    const QByteArray page =
        BodyOf(Fetch(port, "GET /remote.asp HTTP/1.1\r\nHost: localhost\r\n\r\n"));
    EXPECT_TRUE(page.contains(ShiftJis::Encode(u"エアコン"_s))) << page.toStdString();
}

// 0 done, 1 failed, 2 bad usage, 3 no instance: a script tells them apart.
TEST(Program, DemoFolderIsPreparedOnceAndItsInstanceTakesCommandsAndReservations) {
    QTemporaryDir tmp;
    const QString dir = tmp.path() + u"/demo"_s;
    QTcpServer other; // another demo running: its port is taken
    other.listen(QHostAddress::Any, DemoWebPort);
    {
        ProgramProcess first({u"--headless"_s, u"--demo"_s, dir});
        ASSERT_TRUE(first.waitForLog(u"started on "_s + dir)) << first.log().toStdString();
        ASSERT_TRUE(first.stop(SIGINT)); // as Ctrl-C does
        ASSERT_EQ(first.process.exitCode(), 0);
    }
    SettingsStore settings(dir + u"/setting.ini"_s);
    EXPECT_EQ(settings.ReadIni(u"Tira", u"Device"), u"sim"_s);
    const qint64 port = Val(settings.ReadIni(u"WebServer", u"Port"));
    EXPECT_TRUE(port != DemoWebPort && port >= 8080 && port <= 8179) << port;
    // The help's demo section names every remote the folder got.
    QFile help(QStringLiteral(KESTRAVA_HELP_SOURCE) + u"/first-run.html"_s);
    ASSERT_TRUE(help.open(QIODevice::ReadOnly));
    const QString demo =
        QString::fromUtf8(help.readAll()).section(u"id=\"demo\""_s, 1).section(u"<h2"_s, 0, 0);
    for (int id = 1; id <= 6; ++id) {
        const QString name = settings.ReadIni(u"Remote-"_s + QString::number(id), u"Device");
        EXPECT_TRUE(!name.isEmpty() && demo.contains(name)) << id;
    }

    const QString remote = settings.ReadIni(u"Remote-1"_s, u"Device");
    const QString key = settings.ReadIni(u"Remote-1"_s, u"Button-0");
    struct Case {
        QStringList args;
        int status;
        QString said;
    };
    auto check = [&](const std::vector<Case>& cases) {
        for (const Case& c : cases) {
            QProcess cli;
            cli.start(QStringLiteral(KESTRAVA_BINARY), QStringList{u"--home"_s, dir} + c.args);
            cli.waitForFinished(20000);
            const QString out =
                QString::fromUtf8(cli.readAllStandardOutput() + cli.readAllStandardError());
            EXPECT_EQ(cli.exitCode(), c.status) << c.args.join(u' ').toStdString();
            EXPECT_TRUE(out.contains(c.said)) << out.toStdString();
        }
    };
    check({
        {{u"--press"_s, remote, key}, 3, u"no instance is running"_s},
        {{u"--scene"_s, u"映画"_s}, 3, u"no instance is running"_s},
        {{u"-h"_s}, 0, u"3 no instance running"_s},
        {{u"--press"_s, remote}, 2, u"--press takes a remote and a key"_s},
        {{u"--json"_s}, 2, u"--json goes with --list"_s},
        {{u"--bogus"_s}, 2, u"bogus"_s},
    });

    // The owner's changes stay; the clock is moved to seconds before a minute for a reservation.
    settings.WriteIni(u"Remote-6", u"Device", u"BS");
    const QDateTime real = QDateTime::currentDateTime();
    const qint64 offset = 54000 - (real.time().second() * 1000 + real.time().msec());
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"KESTRAVA_TEST_CLOCK_OFFSET_MS"_s, QString::number(offset));
    ProgramProcess p({u"--headless"_s, u"--demo"_s, dir}, env);
    ASSERT_TRUE(p.waitForLog(u"started on "_s + dir)) << p.log().toStdString();
    const quint16 web = p.webPort();
    EXPECT_EQ(settings.ReadIni(u"Remote-6", u"Device"), u"BS"_s);
    const QDateTime due = real.addMSecs(offset + 60000);
    const QByteArray body =
        due.toString(u"'R1=Single&Year='yyyy'&Month='MM'&Date='dd'&R2=H24&Hour='HH'&Min='mm")
            .toLatin1() +
        "&B1=%92%C7%89%C1&Dev=%83e%83%8C%83r&Func=%93d%8C%B9"; // 追加 テレビ 電源
    const QByteArray page =
        BodyOf(Fetch(web, "POST /add2.asp HTTP/1.1\r\nHost: localhost\r\nContent-Length: " +
                              QByteArray::number(body.size()) + "\r\n\r\n" + body));
    const QString file = dir + u"/reserve/"_s + due.toString(u"yyyy_MM_dd HH_mm");
    ASSERT_TRUE(QFileInfo::exists(file)) << page.toStdString();
    EXPECT_TRUE(SimLog(dir).isEmpty());

    const QByteArray scene = R"({"name":"映画","steps":[{"type":"wait","ms":100}]})";
    ASSERT_EQ(ApiStatus(ApiCall(web, "POST", "/api/v1/scenes", scene)), 201);
    check({
        {{u"--list"_s}, 0, u"\t"_s + key},
        {{u"--list"_s, u"--json"_s}, 0, u"{\"remotes\":[{\"id\":1,"_s},
        {{u"--press"_s, remote, key}, 0, {}},
        {{u"--press"_s, remote, u"no such key"_s}, 1, u"no such key"_s},
        {{u"--scene"_s, u"映画"_s}, 0, {}},
        {{u"--scene"_s, u"無い"_s}, 1, u"no scene is named '無い'"_s},
    });
    // The reservation goes out in its minute, and its one-shot file goes.
    EXPECT_TRUE(WaitUntil([&] { return !QFileInfo::exists(file); }, 20000));
    EXPECT_EQ(SimLog(dir).size(), 2) << "the press and the reservation";
}
