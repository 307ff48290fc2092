#include "core/Settings.h"
#include "core/Wait.h"
#include "infrared/FakeTira.h"
#include "infrared/IrSignal.h"
#include "infrared/TiraDevice.h"
#include "infrared/TiraSerialDriver.h"
#include "infrared/Transmission.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QElapsedTimer>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QByteArray NecStream = QByteArray::fromHex("0465023300460046004600D3004600003"
                                                 "4B2");
const QByteArray NecIx = QByteArray::fromHex("49583400046502330046"
                                             "00D3" +
                                             QByteArray(32, '0') + "0122232F");

struct Fixture {
    Fixture() {
        t.folder.CreateDataFolders();
        t.settings.WriteIni(u"Tira", u"Device", tira.path());
        device.captureTimeoutMs = 1500;
    }
    FakeTira tira;
    TempFolder t;
    ScriptedPrompt prompt;
    TiraDevice device{t.folder, t.settings, prompt};
};

QByteArray necBlob() {
    TiraBurst burst;
    ParseTiraBurst(NecStream, &burst);
    return BlobFromTiming(TimingFromTiraBurst(burst))->encode();
}

} // namespace

TEST(TiraSerial, IdentifiesAndSendsTheExactIxBytesFromAWebPress) {
    Fixture f;
    ASSERT_FALSE(f.tira.path().isEmpty());
    QByteArray img = necBlob();
    img.append(SignalFileSize - img.size(), '\0');
    img[1999] = char(necBlob().size());
    f.t.writeFile(u"IRSignals/TV-Power.bin", img);
    f.t.settings.WriteIni(u"Remote-3", u"Device", u"TV");
    f.t.settings.WriteIni(u"Remote-3", u"Button-0", u"Power");

    EXPECT_TRUE(TXSignalById(f.device, u"3", u"0"));
    EXPECT_TRUE(f.device.TiraActive);
    EXPECT_TRUE(f.tira.fromHost.startsWith("IPIR"));
    // A signal without a repeating part goes out once.
    ASSERT_EQ(f.tira.transmissions.size(), 1);
    EXPECT_EQ(f.tira.fromHost, "IPIR" + NecIx);
    EXPECT_TRUE(f.prompt.shown.isEmpty());
}

TEST(TiraSerial, CaptureArrivesInPiecesAndBecomesABlob) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    f.tira.onCommand = [&](const QByteArray& cmd) {
        if (cmd.startsWith("IC")) // a remote pressed a moment after arming
            f.tira.writeInPieces(NecStream + NecStream.left(6), 3, 5);
    };
    ASSERT_TRUE(f.device.CaptureTira());
    EXPECT_EQ(
        QByteArray(reinterpret_cast<const char*>(f.device.SignalBuf.data()), f.device.SignalLen),
        necBlob());
    EXPECT_TRUE(f.device.CancelCaptureTira());
    EXPECT_TRUE(f.tira.fromHost.endsWith(QByteArray("IC\0\0IR", 6)));
}

QByteArray tiraStream(const std::vector<uint32_t>& us) {
    QByteArray out;
    for (uint32_t d : us) {
        out.append(char(d / 8 >> 8));
        out.append(char(d / 8 & 0xFF));
    }
    return out + QByteArray::fromHex("000034B2");
}

TEST(TiraSerial, HeldKeyIsCapturedWithItsRepeatAndSentSo) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    const std::vector<uint32_t> frame{9000, 4504, 560, 560, 560, 1688, 560};
    const std::vector<uint32_t> again{9000, 2248, 560};
    f.tira.onCommand = [&](const QByteArray& cmd) {
        if (!cmd.startsWith("IC"))
            return;
        // Bursts arrive when they have ended: the frame, then a repeat every 60 ms.
        QTimer::singleShot(10, [&] { f.tira.write(tiraStream(frame)); });
        QTimer::singleShot(70, [&] { f.tira.write(tiraStream(again)); });
        QTimer::singleShot(130, [&] { f.tira.write(tiraStream(again)); });
    };
    ASSERT_TRUE(f.device.CaptureTira());
    auto blob = IrBlob::decode(
        QByteArray(reinterpret_cast<const char*>(f.device.SignalBuf.data()), f.device.SignalLen));
    ASSERT_TRUE(blob);
    IrTiming t = TimingFromBlob(*blob);
    EXPECT_EQ(t.repeatBegin, 8);
    ASSERT_EQ(t.durations.size(), 12u);
    EXPECT_NEAR(int(t.durations[7]), 60000 - 11808, 20000); // timed on the host
    EXPECT_EQ(t.repeatFrame(), again);
    EXPECT_TRUE(f.device.CancelCaptureTira());

    f.tira.onCommand = nullptr;
    f.tira.transmissions.clear();
    ASSERT_TRUE(f.device.TestStudiedSignal());
    ASSERT_EQ(f.tira.transmissions.size(), 4);
    EXPECT_EQ(f.tira.transmissions[0].size(), 28 + 6); // frame, pause, repeat: 11 durations
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(f.tira.transmissions[i].mid(28).toHex(), "012f");
}

TEST(TiraSerial, StreamOutOfStepIsRestarted) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    int arms = 0;
    f.tira.onCommand = [&](const QByteArray& cmd) {
        if (!cmd.startsWith("IC"))
            return;
        if (++arms == 1)
            QTimer::singleShot(10, [&] {
                f.tira.write(QByteArray::fromHex("04650000"
                                                 "3400"));
            });
        else
            QTimer::singleShot(10, [&] { f.tira.write(NecStream); });
    };
    ASSERT_TRUE(f.device.CaptureTira());
    EXPECT_EQ(arms, 2);
    EXPECT_EQ(f.device.SignalLen, necBlob().size());
}

TEST(TiraSerial, CaptureTimesOutAndIsCancelled) {
    Fixture f;
    f.device.captureTimeoutMs = 200;
    ASSERT_TRUE(f.device.ActivateTira(0));
    EXPECT_FALSE(f.device.CaptureTira());
    EXPECT_EQ(f.device.CaptureWaiting, 1);
    EXPECT_TRUE(f.device.CancelCaptureTira());
    EXPECT_TRUE(f.tira.fromHost.endsWith("IR"));
}

TEST(TiraSerial, SilentGarbledOrOldDevicesDoNotOpen) {
    {
        FakeTira tira;
        tira.answer = false;
        TiraSerialDriver d(tira.path());
        QElapsedTimer clock;
        clock.start();
        EXPECT_EQ(d.tira_start(0), TiraSerialDriver::NoReply);
        EXPECT_LT(clock.elapsed(), 2000);
    }
    {
        FakeTira tira;
        tira.answer = false;
        tira.onCommand = [&](const QByteArray&) { tira.write("\xFF\x00garbage\x13"); };
        TiraSerialDriver d(tira.path());
        EXPECT_NE(d.tira_start(0), 0);
    }
    {
        FakeTira tira;
        tira.version = 0x01; // Tira-1
        TiraSerialDriver d(tira.path());
        EXPECT_EQ(d.tira_start(0), TiraSerialDriver::Unsupported);
    }
    {
        FakeTira tira;
        tira.version = 0x20; // no transmitter fitted
        TiraSerialDriver d(tira.path());
        ASSERT_EQ(d.tira_start(0), 0);
        EXPECT_EQ(d.tira_transmit(3, -1, necBlob()), TiraSerialDriver::NoTransmitter);
        EXPECT_TRUE(tira.transmissions.isEmpty());
    }
    {
        // A send answered with garbage fails; the next one goes through.
        FakeTira tira;
        TiraSerialDriver d(tira.path());
        ASSERT_EQ(d.tira_start(0), 0);
        tira.answer = false;
        tira.onCommand = [&](const QByteArray&) { tira.write("OIQ\x01"); };
        EXPECT_EQ(d.tira_transmit(0, -1, necBlob()), TiraSerialDriver::NoReply);
        tira.answer = true;
        tira.onCommand = nullptr;
        EXPECT_EQ(d.tira_transmit(0, -1, necBlob()), 0);
    }
    TiraSerialDriver d(u"/nonexistent/ttyUSB9"_s);
    EXPECT_EQ(d.tira_start(0), TiraSerialDriver::NotOpen);
    EXPECT_EQ(d.tira_transmit(3, -1, necBlob()), TiraSerialDriver::NotOpen);
}

TEST(TiraSerial, UnpluggedDuringCaptureFailsCleanlyAndReopens) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    f.tira.onCommand = [&](const QByteArray& cmd) {
        if (cmd.startsWith("IC"))
            QTimer::singleShot(50, [&] { f.tira.hangUp(); });
    };
    QElapsedTimer clock;
    clock.start();
    EXPECT_FALSE(f.device.CaptureTira());
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_NE(f.device.driver()->tira_transmit(3, -1, necBlob()), 0);
    f.device.DeActivateTira();

    FakeTira again;
    f.t.settings.WriteIni(u"Tira", u"Device", again.path());
    ASSERT_TRUE(f.device.ActivateTira(0));
    EXPECT_EQ(f.device.driver()->tira_transmit(0, -1, necBlob()), 0);
    EXPECT_EQ(again.transmissions.size(), 1);
}

TEST(TiraSerial, UnpluggedDuringSendFailsCleanly) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    f.tira.answer = false;
    f.tira.onCommand = [&](const QByteArray& cmd) {
        if (cmd.startsWith("IX"))
            f.tira.hangUp();
    };
    QElapsedTimer clock;
    clock.start();
    EXPECT_NE(f.device.driver()->tira_transmit(3, -1, necBlob()), 0);
    EXPECT_LT(clock.elapsed(), 1000);
}

TEST(TiraSerial, DeviceReleasedWhileASendWaitsForItsReply) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    QByteArray img = necBlob();
    img.append(SignalFileSize - img.size(), '\0');
    img[1999] = char(necBlob().size());
    f.t.writeFile(u"IRSignals/TV-Power.bin", img);
    // The program closes while the unit has not yet confirmed the send.
    f.tira.answer = false;
    f.tira.onCommand = [&](const QByteArray& cmd) {
        if (cmd.startsWith("IX"))
            f.device.Unload();
    };
    EXPECT_FALSE(f.device.TransmitTira(f.t.path(u"IRSignals/TV-Power.bin")));
    EXPECT_EQ(f.device.driver(), nullptr);

    // Junk without any burst end is dropped rather than kept forever.
    f.tira.onCommand = nullptr;
    f.tira.answer = true;
    ASSERT_TRUE(f.device.ActivateTira(0));
    QTimer::singleShot(20, [&] { f.tira.write(QByteArray(20000, '\x11')); });
    QTimer::singleShot(100, [&] { f.tira.write(NecStream); });
    f.tira.onCommand = [&](const QByteArray&) {};
    EXPECT_TRUE(f.device.CaptureTira());
}
