#include "lircd/Lircd.h"
#include "climate/ClimateUnits.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "infrared/IrProtocol.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "lircd/LircdCommand.h"
#include "scenes/Scenes.h"
#include "support/ClimateTable.h"
#include "support/LogLines.h"
#include "support/ProgramProcess.h"
#include "support/ScriptedPrompt.h"
#include "support/SimHome.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What went out, decoded, with the carrier it went out on.
std::vector<std::pair<IrCode, int>> SentCodes(const QStringList& log) {
    std::vector<std::pair<IrCode, int>> sent;
    for (const QString& line : log) {
        const auto blob = IrBlob::decode(QByteArray::fromHex(line.section(u' ', 2).toLatin1()));
        const IrTiming t = blob ? TimingFromBlob(*blob) : IrTiming{};
        sent.emplace_back(DecodeSignal(t), t.carrierHz);
    }
    return sent;
}

// A socket bound and left behind (a dead server's), or connected (a client that never reads).
int UnixSocket(const QString& path, bool bound) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const QByteArray p = QFile::encodeName(path);
    std::memcpy(addr.sun_path, p.constData(), size_t(p.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const auto at = reinterpret_cast<sockaddr*>(&addr);
    if (!bound)
        return ::connect(fd, at, sizeof addr) == 0 ? fd : -1;
    const int made = ::bind(fd, at, sizeof addr) == 0 && ::listen(fd, 1) == 0 ? 0 : -1;
    ::close(fd);
    return made;
}

struct Ran {
    int code = -1;
    QString out;
};
Ran Client(const QString& program, const QStringList& args) {
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    p.waitForFinished(10000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAll())};
}

// A folder with the simulator, and the lircd server over it in this process.
class LircdHome : public ::testing::Test {
protected:
    LircdHome() {
        t.settings.WriteIni(u"Tira", u"Device", u"sim");
        t.settings.Write(Key::LircdSocket, u"lircd"_s);
    }
    void start() {
        lircd.Start();
        client.connectToServer(lircd.socketPath());
        ASSERT_TRUE(client.waitForConnected(2000));
    }
    // The whole answer to one line.
    QByteArray ask(const QByteArray& line) {
        client.write(line + '\n');
        QByteArray got;
        WaitUntil([&] { return (got += client.readAll()).endsWith("END\n"); }, 5000);
        return got;
    }

    TempFolder t;
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
    Lircd lircd{t.folder, t.settings, device};
    QLocalSocket client;
};

} // namespace

// Each answer byte for byte as lircd gives it, names ours in UTF-8.
TEST(LircdCommand, AnswersAsLircd) {
    const LircdCatalog catalog{{u"TV"_s, {{u"Power"_s, 0x4000}, {u"Vol Up"_s, 0x4001}}},
                               {u"居間のエアコン"_s, {{u"冷房～"_s, 0}}},
                               {u"Empty"_s, {}}};
    const struct {
        const char* line;
        const char* error; // none: a success with data
        QList<QByteArray> data = {};
    } replies[] = {
        {"", "bad send packet"},
        {" \t", "bad send packet"},
        {"FOO bar", "unknown directive: \"FOO\""},
        {"SIMULATE 0000000000000001 00 Power TV", "SIMULATE command is disabled"},
        {"LIST  ", nullptr, {"TV", "居間のエアコン", "Empty"}},
        {"list TV", nullptr, {"0000000000004000 Power", "0000000000004001 Vol_Up"}},
        {"LIST tv vol_up", nullptr, {"0000000000004001 Vol_Up"}},
        // U+301C is what CP932 keeps as U+FF5E.
        {"LIST 居間のエアコン 冷房〜", nullptr, {"0000000000000000 冷房～"}},
        {"LIST Empty", nullptr},
        {"LIST Radio", "unknown remote: \"Radio\""},
        {"LIST TV Mute", "unknown command: \"Mute\""},
        {"LIST TV Power 1", "bad send packet (trailing ws)"},
        {"SEND_ONCE", "remote missing"},
        {"SEND_ONCE Radio", "unknown remote: \"Radio\""},
        {"SEND_ONCE TV Power x", "bad send packet (reps/eol)"},
        {"SEND_ONCE TV Power -1", "bad send packet (reps/eol)"},
        {"SEND_ONCE TV Power 601", "too many repeats: \"601\" > \"600\""},
        {"SEND_ONCE TV Power 2 2", "bad send packet (trailing ws)"},
        {"SEND_START TV", "code missing"},
        {"VERSION\r", nullptr, {KESTRAVA_VERSION}},
    };
    for (const auto& c : replies) {
        const LircdRequest r = ParseLircdCommand(c.line, catalog);
        EXPECT_EQ(r.kind, LircdRequest::Kind::Reply) << c.line;
        EXPECT_EQ(r.reply, c.error ? LircdError(c.line, c.error) : LircdSuccess(c.line, c.data))
            << c.line;
    }
    const struct {
        const char* line;
        LircdRequest::Kind kind;
        const char* key; // "" for none
        int times;
    } sends[] = {
        {"SEND_ONCE TV Power", LircdRequest::Kind::SendOnce, "Power", 1},
        {"send_once\tTV\tVol_Up 3\r", LircdRequest::Kind::SendOnce, "Vol Up", 3},
        {"SEND_START TV Power", LircdRequest::Kind::SendStart, "Power", 1},
        {"SEND_STOP", LircdRequest::Kind::SendStop, "", 1},
    };
    for (const auto& c : sends) {
        const LircdRequest r = ParseLircdCommand(c.line, catalog);
        EXPECT_EQ(r.kind, c.kind) << c.line;
        EXPECT_EQ(r.key ? r.key->name : QString(), QString::fromUtf8(c.key)) << c.line;
        EXPECT_EQ(r.times, c.times) << c.line;
    }
    EXPECT_EQ(LircdKeyLine(0x4001, 0x1a, u"Vol Up", u"居間のTV"),
              "0000000000004001 1a Vol_Up 居間のTV\n");
}

// A stale socket is replaced, and bad clients (outside, endless, never reading) hold up no other.
TEST_F(LircdHome, StaleSocketsAndBadClientsDoNotHoldUpTheOthers) {
    LogLines log;
    const QString path = t.path(u"lircd");
    ASSERT_EQ(UnixSocket(path, true), 0); // left behind by a server that ended
    QTcpServer probe;                     // a free port
    probe.listen(QHostAddress::LocalHost);
    t.settings.Write(Key::LircdPort, QString::number(probe.serverPort()));
    probe.close();
    lircd.atHome = [](const QHostAddress&) { return false; };
    start();
    EXPECT_EQ(lircd.socketPath(), path);
    QLocalSocket& good = client;
    QTcpSocket outside;
    outside.connectToHost(QHostAddress::LocalHost, lircd.port());
    ASSERT_TRUE(outside.waitForConnected(2000));
    outside.write("VERSION\n");
    ASSERT_TRUE(WaitUntil([&] { return outside.state() == QTcpSocket::UnconnectedState; }));
    EXPECT_EQ(outside.readAll(), "");

    QLocalSocket endless;
    endless.connectToServer(lircd.socketPath());
    ASSERT_TRUE(endless.waitForConnected(2000));
    // A raw socket never read from: the kernel's buffer fills, then ours.
    const int mute = UnixSocket(lircd.socketPath(), false);
    ASSERT_GE(mute, 0);
    ASSERT_TRUE(WaitUntil([&] { return lircd.clients() == 3; }));

    endless.write(QByteArray(LircdMaxLine + 1, 'x'));
    ASSERT_TRUE(WaitUntil([&] { return endless.state() == QLocalSocket::UnconnectedState; }));
    const int lines = 20000; // about 800 kB
    QByteArray got;
    for (int i = 0; i < lines; ++i) {
        lircd.KeyHeard(IrCode{IrProtocol::Nec, 0x4001, false, {}, false}, i & 0xff, u"TV"_s,
                       u"Vol"_s);
        if (i % 500 == 0)
            got += (WaitMs(1), good.readAll());
    }
    ASSERT_TRUE(WaitUntil([&] {
        got += good.readAll();
        return got.count('\n') >= lines;
    })) << got.count('\n');
    EXPECT_EQ(got.count('\n'), lines);
    EXPECT_EQ(lircd.clients(), 1) << "the client that does not read is still there";
    good.write("VERSION\n");
    ASSERT_TRUE(WaitUntil([&] { return good.bytesAvailable() > 0; }));
    EXPECT_EQ(good.readAll(), LircdSuccess("VERSION", {KESTRAVA_VERSION}));
    ::close(mute);

    // The socket is removed at close; a plain file or a missing folder is left alone and logged.
    lircd.Close();
    EXPECT_FALSE(QFile::exists(path));
    t.writeFile(u"plain", "a file");
    t.settings.Write(Key::LircdSocket, u"plain"_s);
    Lircd second(t.folder, t.settings, device);
    second.Start();
    EXPECT_TRUE(second.socketPath().isEmpty());
    EXPECT_EQ(t.readFile(u"plain"), "a file");
    t.settings.Write(Key::LircdSocket, u"missing/lircd"_s);
    second.Start();
    EXPECT_TRUE(second.socketPath().isEmpty());
    EXPECT_TRUE(log.text().contains(u"plain is not a socket"_s)) << log.text().toStdString();
    EXPECT_TRUE(log.text().contains(u"cannot make the lircd socket "_s + t.path(u"missing/lircd")));
}

// Debian's irsend (socket and TCP port), irw and irexec against the program.
TEST(Lircd, DebianClientsDriveTheProgram) {
    const QString irsend = QStandardPaths::findExecutable(u"irsend"_s);
    const QString irw = QStandardPaths::findExecutable(u"irw"_s);
    const QString irexec = QStandardPaths::findExecutable(u"irexec"_s);
    if (irsend.isEmpty() || irw.isEmpty() || irexec.isEmpty())
        GTEST_SKIP() << "no lirc here";
    QTemporaryDir tmp;
    const QString dir = MakeSimHome(tmp.path());
    QString port;
    {
        SettingsStore s(dir + u"/setting.ini"_s);
        s.Write(Key::LircdSocket, u"lircd"_s);
        QTcpServer probe; // a free port
        probe.listen(QHostAddress::LocalHost);
        port = QString::number(probe.serverPort());
        s.Write(Key::LircdPort, port);
    }
    const QString socket = dir + u"/lircd"_s;
    ProgramProcess p({u"--headless"_s, u"--home"_s, dir});
    ASSERT_TRUE(p.waitForLog(u"lircd socket at"_s)) << p.log().toStdString();
    const QStringList d{u"-d"_s, socket};

    Ran r = Client(irsend, d + QStringList{u"LIST"_s, {}, {}});
    EXPECT_EQ(r.code, 0);
    EXPECT_TRUE(r.out.contains(u"TV"_s)) << r.out.toStdString();

    r = Client(irsend, d + QStringList{u"SEND_ONCE"_s, u"TV"_s, u"Power"_s});
    EXPECT_EQ(r.code, 0) << r.out.toStdString();
    EXPECT_EQ(SimLog(dir).size(), 1) << "answered before the send went out";
    r = Client(irsend, d + QStringList{u"SEND_ONCE"_s, u"TV"_s, u"Mute"_s});
    EXPECT_NE(r.code, 0) << r.out.toStdString();
    r = Client(irsend, d + QStringList{u"--count=3"_s, u"SEND_ONCE"_s, u"TV"_s, u"Vol_Up"_s});
    EXPECT_EQ(r.code, 0) << r.out.toStdString();
    EXPECT_EQ(SimLog(dir).size(), 4);

    // A held key repeats until stopped, and sends nothing after.
    ASSERT_EQ(Client(irsend, d + QStringList{u"SEND_START"_s, u"TV"_s, u"Vol_Up"_s}).code, 0);
    WaitMs(600);
    r = Client(irsend, d + QStringList{u"SEND_STOP"_s, u"TV"_s, u"Vol_Up"_s});
    EXPECT_EQ(r.code, 0) << r.out.toStdString();
    WaitMs(300);
    const QStringList log = SimLog(dir);
    const qsizetype held = log.size();
    EXPECT_GE(held, 4 + 6);
    EXPECT_EQ(SentCodes(log.mid(4, 1))[0].first.scancode, 0x4001u);
    WaitMs(500);
    EXPECT_EQ(SimLog(dir).size(), held);
    r = Client(irsend, d + QStringList{u"SEND_STOP"_s, u"TV"_s, u"Vol_Up"_s});
    EXPECT_TRUE(r.out.contains(u"not repeating"_s)) << r.out.toStdString();

    // The same through the TCP port, as lircd's --listen.
    r = Client(irsend, {u"--address=127.0.0.1:"_s + port, u"SEND_ONCE"_s, u"TV"_s, u"Power"_s});
    EXPECT_EQ(r.code, 0) << r.out.toStdString();
    EXPECT_EQ(SimLog(dir).size(), held + 1);

    // Keys heard: irw prints each line, irexec runs what its lircrc says.
    QFile rc(dir + u"/lircrc"_s);
    ASSERT_TRUE(rc.open(QIODevice::WriteOnly));
    rc.write("begin\n prog = irexec\n button = Vol_Up\n config = touch " + QFile::encodeName(dir) +
             "/ran\nend\n");
    rc.close();
    QProcess watch, exec;
    watch.start(irw, {socket});
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"LIRC_SOCKET_PATH"_s, socket);
    exec.setProcessEnvironment(env);
    exec.start(irexec, {dir + u"/lircrc"_s});
    ASSERT_TRUE(watch.waitForStarted() && exec.waitForStarted());
    WaitMs(700); // both connected
    ASSERT_TRUE(SimHear(dir, "nec:0x4001\nnec:0x4001\n"));
    QByteArray seen;
    EXPECT_TRUE(WaitUntil([&] {
        seen += watch.readAllStandardOutput();
        return seen.count('\n') >= 2;
    })) << p.log().toStdString();
    EXPECT_EQ(seen, "0000000000004001 00 Vol_Up TV\n0000000000004001 01 Vol_Up TV\n");
    EXPECT_TRUE(WaitUntil([&] { return QFile::exists(dir + u"/ran"_s); }));
    watch.kill();
    exec.kill();
    watch.waitForFinished();
    exec.waitForFinished();

    ASSERT_TRUE(p.stop());
    EXPECT_FALSE(QFile::exists(socket));
}

// Each press flips its remote's toggle bit, kept over one press's count; the stored carrier stays.
TEST_F(LircdHome, PressesFlipTheToggleBitPerRemote) {
    t.folder.CreateDataFolders();
    const struct {
        int slot, button;
        QString remote, key, spec;
        bool toggle;
    } keys[] = {{1, 0, u"TV"_s, u"1"_s, u"rc5:0x0001"_s, false},
                {1, 1, u"TV"_s, u"Vol"_s, u"rc5:0x0010"_s, false},
                {2, 0, u"PC"_s, u"OK"_s, u"rc6_mce:0x800f0422"_s, true}};
    for (const auto& k : keys) {
        IrCode code = *ParseCodeSpec(k.spec);
        code.toggle = k.toggle;
        code.repeats = true;
        IrTiming timing = *EncodeSignal(code);
        timing.carrierHz = 38000;
        t.settings.WriteIni(RemoteSection(k.slot), u"Device", k.remote);
        t.settings.WriteIni(RemoteSection(k.slot), u"Design", u"4"_s);
        t.settings.WriteIni(RemoteSection(k.slot), ButtonKey(k.button), k.key);
        ASSERT_TRUE(WriteSignalFile(SignalFilePath(t.folder, k.remote, k.key),
                                    BlobFromTiming(timing)->encode()));
    }
    start();
    for (const char* line :
         {"SEND_ONCE TV 1", "SEND_ONCE PC OK", "SEND_ONCE TV 1", "SEND_ONCE TV Vol 2"})
        EXPECT_TRUE(ask(line).contains("SUCCESS")) << line;
    QStringList sent;
    for (const auto& [code, carrier] : SentCodes(SimLog(t.root())))
        sent << u"%1 toggle %2 repeats %3 at %4"_s.arg(CodeSpec(code))
                    .arg(int(code.toggle))
                    .arg(int(code.repeats))
                    .arg(carrier);
    EXPECT_EQ(sent, (QStringList{u"rc5:0x0001 toggle 0 repeats 1 at 38000"_s,
                                 u"rc6_mce:0x800f0422 toggle 1 repeats 1 at 38000"_s,
                                 u"rc5:0x0001 toggle 1 repeats 1 at 38000"_s,
                                 u"rc5:0x0010 toggle 0 repeats 1 at 38000"_s,
                                 u"rc5:0x0010 toggle 0 repeats 1 at 38000"_s}));
}

// An air conditioner is a remote whose keys are its states; scenes are one remote, run by name.
TEST_F(LircdHome, AirConditionersAndScenesAreRemotes) {
    t.writeRemote(1, u"TV"_s, 1, {u"Power"_s, u"Mute"_s});
    WriteSignalFile(SignalFilePath(t.folder, u"TV", u"Power"), SimDriver::NecSignal(1, 0));
    QFile::remove(SignalFilePath(t.folder, u"TV", u"Mute"));
    ClimateUnits units(t.folder, t.settings, device);
    ASSERT_TRUE(units.importSmartIr(u"寝室"_s, SmartIrFile()));
    Scenes scenes(t.folder, t.settings, device, units);
    for (const char* json :
         {R"({"name":"映画 を見る","steps":[{"type":"key","remote":1,"key":0}]})",
          R"({"name":"mute","steps":[{"type":"key","remote":1,"key":1}]})"})
        ASSERT_TRUE(scenes.create(*SceneFromJson(QJsonDocument::fromJson(json).object())));
    lircd.SetClimates(&units);
    lircd.SetScenes(&scenes);
    start();
    EXPECT_EQ(
        ask("LIST ac1"),
        LircdSuccess("LIST ac1", {"0000000000000000 off", "0000000000000000 cool_24_low",
                                  "0000000000000000 cool_24_high", "0000000000000000 cool_25_low",
                                  "0000000000000000 fan_low"}));
    EXPECT_EQ(ask("SEND_ONCE ac1 cool_25_low"), LircdSuccess("SEND_ONCE ac1 cool_25_low"));
    EXPECT_EQ(units.unit(u"ac1"_s)->state.temperature, 25);
    EXPECT_TRUE(units.unit(u"ac1"_s)->state.power);
    EXPECT_EQ(SimLog(t.root()).size(), 1);
    EXPECT_EQ(ask("SEND_START ac1 off"),
              LircdError("SEND_START ac1 off", "an air conditioner's keys are sent once"));

    EXPECT_EQ(ask("LIST scenes"), LircdSuccess("LIST scenes", {"0000000000000001 映画_を見る",
                                                               "0000000000000002 mute"}));
    EXPECT_EQ(ask("SEND_ONCE scenes 映画_を見る"), LircdSuccess("SEND_ONCE scenes 映画_を見る"));
    EXPECT_EQ(SimLog(t.root()).size(), 2);
    EXPECT_EQ(ask("SEND_ONCE scenes mute"),
              LircdError("SEND_ONCE scenes mute",
                         "手順 1（TV Mute）: このキーはまだ学習されていません。"));
    EXPECT_EQ(ask("SEND_START scenes mute"),
              LircdError("SEND_START scenes mute", "a scene is run once"));
}
