#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/Wait.h"
#include "exchange/CodesExchange.h"
#include "infrared/DeviceList.h"
#include "infrared/FakeTira.h"
#include "infrared/IrSignal.h"
#include "infrared/TiraSerialDriver.h"
#include "infrared/Transceiver.h"
#include "remotes/Press.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>

#include <gtest/gtest.h>
#include <map>
#include <numeric>

using namespace Qt::StringLiterals;

namespace {

const QByteArray NecStream = QByteArray::fromHex("04650233004600460046 00D3 00460000 34B2");

QByteArray necBlob() {
    TiraBurst burst;
    ParseTiraBurst(NecStream, &burst);
    return BlobFromTiming(TimingFromTiraBurst(burst))->encode();
}

struct Fixture {
    Fixture() {
        t.folder.CreateDataFolders();
        t.settings.WriteIni(u"Tira", u"Device", tira->path());
        device.captureTimeoutMs = 1500;
        EXPECT_TRUE(WriteSignalFile(signal, necBlob()));
    }
    std::unique_ptr<FakeTira> tira = std::make_unique<FakeTira>();
    TempFolder t;
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
    QString signal = t.path(u"IRSignals/TV-Power.bin"_s);
};

// The durations (µs) an "IX" command sends.
std::vector<uint32_t> IxDurations(const QByteArray& ix) {
    std::vector<uint32_t> d;
    for (qsizetype i = 28; i < ix.size(); ++i)
        for (int nibble : {uint8_t(ix[i]) >> 4, ix[i] & 0x0F})
            if (nibble != 0x0F)
                d.push_back((uint8_t(ix[4 + 2 * nibble]) << 8 | uint8_t(ix[5 + 2 * nibble])) * 8u);
    return d;
}

} // namespace

// Timing out and the late signal are Transceiver's; here the bytes on the wire.
TEST(TiraSerial, CaptureArrivesInPiecesAndBecomesABlob) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    f.tira->onCommand = [&](const QByteArray& cmd) {
        if (cmd.startsWith("IC")) // a remote pressed a moment after arming
            f.tira->writeInPieces(NecStream + NecStream.left(6), 3, 5);
    };
    ASSERT_TRUE(f.device.CaptureTira());
    EXPECT_EQ(
        QByteArray(reinterpret_cast<const char*>(f.device.SignalBuf.data()), f.device.SignalLen),
        necBlob());
    EXPECT_TRUE(f.device.CancelCaptureTira());
    EXPECT_TRUE(f.tira->fromHost.endsWith(QByteArray("IC\0\0IR", 6)));
}

TEST(TiraSerial, SilentOrOldDevicesDoNotOpen) {
    const std::pair<int, int> cases[] = {{-1, TiraSerialDriver::NoReply},
                                         {0x01, TiraSerialDriver::Unsupported}, // Tira-1
                                         {0x20, 0}}; // no transmitter fitted
    for (auto [version, result] : cases) {
        FakeTira tira;
        tira.answer = version >= 0;
        tira.version = uint8_t(version);
        TiraSerialDriver d(tira.path());
        QElapsedTimer clock;
        clock.start();
        EXPECT_EQ(d.tira_start(0), result) << version;
        EXPECT_LT(clock.elapsed(), 2000);
        if (result == 0) {
            EXPECT_EQ(d.tira_transmit(3, -1, necBlob()), TiraSerialDriver::NoTransmitter);
        }
        EXPECT_TRUE(tira.transmissions.isEmpty());
    }
}

TEST(TiraSerial, PressesDuringASendQueueAndReachTheWireInOrder) {
    Fixture f;
    f.t.settings.WriteIni(u"Remote-3", u"Device", u"TV");
    QList<QByteArray> expected;
    for (int k = 0; k < 10; ++k) {
        // Ten keys that differ in one space, so the wire shows their order.
        IrTiming timing{{9000, 4500, 560, uint32_t(1000 + 300 * k), 560}, 38000, -1};
        const QByteArray blob = BlobFromTiming(timing)->encode();
        expected << TiraTransmitCommand(TimingFromBlob(*IrBlob::decode(blob)).frame(), 38000);
        const QString name = u"K"_s + QString::number(k);
        f.t.settings.WriteIni(u"Remote-3", u"Button-"_s + QString::number(k), name);
        ASSERT_TRUE(WriteSignalFile(f.t.path(u"IRSignals/TV-"_s + name + u".bin"_s), blob));
    }
    // Each press comes while the ones before it still wait for the device.
    std::vector<SendResult> results(10, SendResult::Failed);
    int answered = 0;
    for (int k = 0; k < 10; ++k)
        QTimer::singleShot(k * 3, [&, k] {
            results[size_t(k)] = TXSignalById(f.device, u"3", QString::number(k));
            ++answered;
        });
    ASSERT_TRUE(WaitUntil([&] { return answered == 10; }));
    EXPECT_EQ(results, std::vector<SendResult>(10, SendResult::Sent));
    EXPECT_EQ(f.tira->transmissions, expected);
    // Opened and identified once, then each signal (none repeats) goes out once.
    EXPECT_EQ(f.tira->fromHost, "IPIR" + expected.join());
    EXPECT_TRUE(f.prompt.shown.isEmpty());

    // A flood is bounded: one on the wire, 32 waiting, the rest busy at once.
    std::map<SendResult, int> flood;
    const QString path = f.t.path(u"IRSignals/TV-K0.bin"_s);
    for (int i = 0; i < Transceiver::MaxQueued + 8; ++i)
        f.device.Enqueue(path, [&](SendResult r) { ++flood[r]; });
    EXPECT_EQ(flood[SendResult::Busy], 7);
    EXPECT_TRUE(WaitUntil([&] { return flood[SendResult::Sent] == Transceiver::MaxQueued + 1; }));
    EXPECT_EQ(f.tira->transmissions.size(), 10 + Transceiver::MaxQueued + 1);

    // A press during a trial of another device goes out on the set one, afterwards.
    FakeTira candidate;
    int sent = 0;
    candidate.onCommand = [&](const QByteArray& cmd) {
        if (cmd == "IP")
            f.device.Enqueue(path, [&](SendResult r) { sent += r == SendResult::Sent; });
    };
    const qsizetype before = f.tira->transmissions.size();
    EXPECT_TRUE(f.device.TestTarget(candidate.path(), 0));
    EXPECT_TRUE(WaitUntil([&] { return sent == 1; }));
    EXPECT_TRUE(candidate.transmissions.isEmpty());
    EXPECT_EQ(f.tira->transmissions.size(), before + 1);
}

TEST(TiraSerial, UnpluggedTiraComesBackAtItsPath) {
    Fixture f;
    auto& [tira, t, prompt, device, signal] = f;
    const QString link = t.path(u"ttyTira"_s);
    ASSERT_TRUE(QFile::link(tira->path(), link));
    t.settings.WriteIni(u"Tira", u"Device", link);
    device.timReturn.setInterval(100);
    ASSERT_TRUE(device.TransmitTira(signal, Transceiver::Origin::Background));

    // Pulled during a capture: it and the next press fail at once; it is looked for until back.
    tira->onCommand = [&](const QByteArray& cmd) {
        if (cmd.startsWith("IC"))
            QTimer::singleShot(50, [&] { tira->hangUp(); });
    };
    QElapsedTimer clock;
    clock.start();
    EXPECT_FALSE(device.CaptureTira());
    EXPECT_LT(clock.elapsed(), 1000);
    tira.reset();
    ASSERT_TRUE(QFile::remove(link));
    EXPECT_FALSE(device.TransmitTira(signal, Transceiver::Origin::Background));
    EXPECT_FALSE(device.TiraActive);
    EXPECT_TRUE(device.timReturn.isActive());
    WaitMs(250); // still missing: nothing to open
    EXPECT_FALSE(device.TiraActive);

    tira = std::make_unique<FakeTira>();
    ASSERT_TRUE(QFile::link(tira->path(), link));
    EXPECT_TRUE(WaitUntil([&] { return device.TiraActive; })); // opened afresh in the background
    EXPECT_TRUE(tira->fromHost.startsWith("IPIR"));
    EXPECT_TRUE(device.TransmitTira(signal, Transceiver::Origin::Background));
    EXPECT_EQ(tira->transmissions.size(), 1);

    // A device that stops answering is opened again from the start at the next press.
    tira->answer = false;
    EXPECT_FALSE(device.TransmitTira(signal, Transceiver::Origin::Background));
    tira->answer = true;
    tira->fromHost.clear();
    EXPECT_TRUE(device.TransmitTira(signal, Transceiver::Origin::Background));
    EXPECT_TRUE(tira->fromHost.startsWith("IPIR"));
    EXPECT_EQ(tira->transmissions.size(), 2);
}

namespace {
// A made-up /sys and /dev as the kernel shows a USB serial adapter, its node a fake Tira.
struct FakeUsb {
    explicit FakeUsb(const TempFolder& t) : t(t), sys(t.path(u"sys"_s)), dev(t.path(u"dev"_s)) {
        QDir().mkpath(sys + u"/class/tty"_s);
        QDir().mkpath(dev + u"/serial/by-id"_s);
    }
    void plug(const QString& tty, const QString& serial, const QString& node) {
        const QString usb = sys + u"/devices/usb1/"_s + tty;
        const QString port = usb + u"/1-1:1.0/"_s + tty;
        QDir().mkpath(port + u"/tty/"_s + tty);
        for (auto [name, text] : {std::pair{u"idVendor"_s, u"0403"_s},
                                  {u"idProduct"_s, u"6001"_s},
                                  {u"serial"_s, serial}})
            if (!text.isEmpty())
                t.writeFile(u"sys/devices/usb1/"_s + tty + u'/' + name, text.toUtf8());
        QFile::link(port, port + u"/tty/"_s + tty + u"/device"_s);
        QFile::link(port + u"/tty/"_s + tty, sys + u"/class/tty/"_s + tty);
        QFile::link(node, dev + u'/' + tty);
    }
    void unplug(const QString& tty) {
        QFile::remove(dev + u'/' + tty);
        QFile::remove(sys + u"/class/tty/"_s + tty);
        QDir(sys + u"/devices/usb1/"_s + tty).removeRecursively();
    }
    const TempFolder& t;
    QString sys, dev;
};
} // namespace

TEST(TiraSerial, ReplugUnderAnotherNameIsFoundByUsbIdentityAndStrangersAreRefused) {
    Fixture f;
    auto& [tira, t, prompt, device, signal] = f;
    FakeUsb usb(t);
    device.system = {usb.sys, usb.dev};
    device.timReturn.setInterval(100);
    const QString configured = usb.dev + u"/ttyUSB0"_s;
    t.settings.WriteIni(u"Tira", u"Device", configured);
    usb.plug(u"ttyUSB0"_s, u"KA"_s, tira->path());
    ASSERT_TRUE(device.TransmitTira(signal, Transceiver::Origin::Background));

    // Pulled while open and idle: the port is let go of at once.
    tira->hangUp();
    EXPECT_TRUE(WaitUntil([&] { return !device.TiraActive; }, 1000));

    // Back as ttyUSB1, while another adapter has taken ttyUSB0.
    usb.unplug(u"ttyUSB0"_s);
    tira = std::make_unique<FakeTira>();
    FakeTira stranger;
    usb.plug(u"ttyUSB1"_s, u"KA"_s, tira->path());
    usb.plug(u"ttyUSB0"_s, u"KB"_s, stranger.path());
    EXPECT_TRUE(device.TransmitTira(signal, Transceiver::Origin::Background));
    EXPECT_EQ(tira->transmissions.size(), 1);

    // Ours gone: the stranger at the set name is not used; ours is taken up again as ttyUSB2.
    tira->hangUp();
    usb.unplug(u"ttyUSB1"_s);
    EXPECT_TRUE(WaitUntil([&] { return !device.TiraActive; }, 1000));
    EXPECT_FALSE(device.TransmitTira(signal, Transceiver::Origin::Background));
    EXPECT_TRUE(stranger.fromHost.isEmpty());
    EXPECT_TRUE(prompt.shown.join(u'\n').contains(u"USB 0403:6001 serial KB"_s));
    tira = std::make_unique<FakeTira>();
    usb.plug(u"ttyUSB2"_s, u"KA"_s, tira->path());
    EXPECT_TRUE(WaitUntil([&] { return device.TiraActive; }, 2000));
    EXPECT_TRUE(tira->fromHost.startsWith("IPIR"));
    EXPECT_TRUE(stranger.fromHost.isEmpty());
    EXPECT_EQ(t.settings.Read(Key::TransceiverPath), configured);

    // Through udev's link if any; two adapters without serial numbers: neither is taken.
    const QString byId = usb.dev + u"/serial/by-id/usb-FTDI_KA-if00-port0"_s;
    ASSERT_TRUE(QFile::link(u"../../ttyUSB2"_s, byId));
    const UsbIdentity ours = UsbIdentityOf(usb.dev + u"/ttyUSB2"_s, device.system);
    EXPECT_EQ(ours.byId, byId);
    EXPECT_EQ(FindUsbSerial(ours, device.system), byId);
    usb.plug(u"ttyUSB3"_s, {}, stranger.path());
    usb.plug(u"ttyUSB4"_s, {}, stranger.path());
    const UsbIdentity plain = UsbIdentityOf(usb.dev + u"/ttyUSB3"_s, device.system);
    EXPECT_TRUE(plain.known());
    EXPECT_EQ(FindUsbSerial(plain, device.system), QString());
}

TEST(TiraSerial, PortIsHeldExclusivelyAndRefusalsSayWhy) {
    Fixture f;
    TiraSerialDriver first(f.tira->path()); // say kestrava-ir, run by hand
    ASSERT_EQ(first.tira_start(0), 0);
    TiraSerialDriver second(f.tira->path());
    EXPECT_EQ(second.tira_start(0), TiraSerialDriver::InUse);
    // We hold it ourselves here, so the holder named is this very process.
    const QString holder = QCoreApplication::applicationName().left(15) + u" (pid "_s +
                           QString::number(QCoreApplication::applicationPid()) + u')';
    EXPECT_EQ(TiraSerialDriver::HolderOf(f.tira->path()), holder);
    EXPECT_FALSE(f.device.TransmitTira(f.signal));
    ASSERT_EQ(f.prompt.shown.size(), 1);
    EXPECT_TRUE(f.prompt.shown[0].contains(holder + u"）が使用中"_s))
        << f.prompt.shown[0].toStdString();
    EXPECT_EQ(first.tira_transmit(0, -1, necBlob()), 0); // undisturbed
    first.tira_stop();
    EXPECT_EQ(second.tira_start(0), 0);

    TiraSerialDriver missing(u"/nonexistent/ttyUSB9"_s);
    EXPECT_EQ(missing.tira_start(0), TiraSerialDriver::Missing);
    EXPECT_TRUE(missing.problem().contains(u"見つかりません"_s));
}

// A real remote's 7 s key goes out in one command; a pause too long for a count splits two.
TEST(TiraSerial, LongSignalsGoOutWhole) {
    Fixture f;
    const CodesImportResult r = ImportCodes(
        f.t.folder, f.t.settings,
        {QStringLiteral(KESTRAVA_TEST_DATA "/flipper-irdb/dyson-purifier-humidify-ph04.ir"),
         u"Dyson"_s, 0});
    ASSERT_TRUE(r.ok()) << r.error.toStdString() << r.refused.join(u'\n').toStdString();
    EXPECT_EQ(r.remotes[0].added, 13);
    EXPECT_EQ(f.device.TransmitAndWait(SignalFilePath(f.t.folder, u"Dyson", u"Filter_reset"),
                                       Transceiver::Origin::Background),
              SendResult::Sent);
    ASSERT_EQ(f.tira->transmissions.size(), 1);
    const std::vector<uint32_t> sent = IxDurations(f.tira->transmissions[0]);
    EXPECT_EQ(sent.size(), 795u);
    EXPECT_NEAR(std::accumulate(sent.begin(), sent.end(), 0.0), 7155131, 7155131 * 0.01);

    const IrTiming paused{{560, 700000, 1120, 40000}, 38000, -1};
    ASSERT_TRUE(
        WriteSignalFile(f.t.path(u"IRSignals/Fan-Off.bin"_s), BlobFromTiming(paused)->encode()));
    QElapsedTimer took;
    took.start();
    EXPECT_EQ(f.device.TransmitAndWait(f.t.path(u"IRSignals/Fan-Off.bin"_s),
                                       Transceiver::Origin::Background),
              SendResult::Sent);
    EXPECT_GE(took.elapsed(), 700);
    ASSERT_EQ(f.tira->transmissions.size(), 3);
    EXPECT_EQ(IxDurations(f.tira->transmissions[1]), std::vector<uint32_t>{560});
    EXPECT_EQ(IxDurations(f.tira->transmissions[2]), std::vector<uint32_t>{1120});
}
