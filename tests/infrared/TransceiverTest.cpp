#include "infrared/Transceiver.h"
#include "core/Settings.h"
#include "core/Wait.h"
#include "infrared/IrSignal.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "remotes/Press.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Fixture {
    Fixture() {
        t.folder.CreateDataFolders();
        t.settings.WriteIni(u"Tira", u"Device", u"sim");
        device.captureTimeoutMs = 2000;
    }
    SimDriver* sim() { return static_cast<SimDriver*>(device.driver()); }
    QList<QByteArray> sent() {
        QList<QByteArray> lines = t.readFile(u"sim-transmit.log").split('\n');
        lines.removeAll(QByteArray());
        return lines;
    }
    void learn(QStringView name, const QByteArray& blob) {
        ASSERT_TRUE(WriteSignalFile(t.path(u"IRSignals/"_s + name.toString() + u".bin"_s), blob));
    }
    TempFolder t;
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
};

// A logged transmission is "<time> <count> <hex bytes>".
QByteArray loggedBytes(const QByteArray& line) {
    return QByteArray::fromHex(line.mid(line.indexOf(' ', line.indexOf(' ') + 1) + 1));
}

} // namespace

TEST(Transceiver, OpensOnFirstSendAndClosesWhenIdle) {
    Fixture f;
    f.device.timDeactivate.setInterval(100);
    QByteArray blob = SimDriver::SampleCapture();
    f.learn(u"TV-Power", blob);

    EXPECT_TRUE(f.device.TransmitTira(f.t.path(u"IRSignals/TV-Power.bin")));
    EXPECT_TRUE(f.device.TiraActive);
    EXPECT_TRUE(f.device.Timer1.isActive());
    // Open: a changed setting is not read again until the device has closed.
    f.t.settings.WriteIni(u"Tira", u"Device", u"");
    EXPECT_TRUE(f.device.TransmitTira(f.t.path(u"IRSignals/TV-Power.bin")));
    auto lines = f.sent();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(loggedBytes(lines[0]), blob);

    EXPECT_TRUE(WaitForSignal(&f.device.timDeactivate, &QTimer::timeout, 1000));
    EXPECT_FALSE(f.device.TiraActive);
    EXPECT_FALSE(f.device.Timer1.isActive());
    EXPECT_FALSE(f.device.timDeactivate.isActive());
    EXPECT_TRUE(f.prompt.shown.isEmpty());
}

TEST(Transceiver, SimulatorLogKeepsItsNewestMegabyte) {
    Fixture f;
    QByteArray old;
    for (int i = 0; old.size() <= SimDriver::LogBytes + SimDriver::LogSlackBytes; ++i)
        old += "old line " + QByteArray::number(i) + '\n';
    f.t.writeFile(u"sim-transmit.log", old);
    f.learn(u"TV-Power", SimDriver::SampleCapture());
    EXPECT_TRUE(f.device.TransmitTira(f.t.path(u"IRSignals/TV-Power.bin")));

    const QByteArray log = f.t.readFile(u"sim-transmit.log");
    EXPECT_LE(log.size(), SimDriver::LogBytes);
    EXPECT_GT(log.size(), SimDriver::LogBytes - 100);
    EXPECT_TRUE(old.contains("\n" + log.left(log.indexOf('\n') + 1))); // whole lines only
    EXPECT_EQ(loggedBytes(f.sent().last()), SimDriver::SampleCapture());
}

TEST(Transceiver, CaptureTimesOutStillArmedAndFailsAtOnceWhenClosed) {
    Fixture f;
    f.device.captureTimeoutMs = 150;
    EXPECT_FALSE(f.device.CaptureTira()); // never opened: fails without waiting
    EXPECT_EQ(f.device.CaptureWaiting, 0);

    ASSERT_TRUE(f.device.ActivateTira(0));
    f.sim()->captureDelayMs = 400;
    EXPECT_FALSE(f.device.CaptureTira());
    EXPECT_EQ(f.device.CaptureWaiting, 1);
    // Still armed: Timer1 picks the signal up when it comes.
    WaitMs(400);
    EXPECT_EQ(f.device.CaptureWaiting, 0);
    EXPECT_GT(f.device.SignalLen, 0);
    EXPECT_TRUE(f.device.CancelCaptureTira());

    f.device.DeActivateTira();
    EXPECT_FALSE(f.device.CancelCaptureTira());
    EXPECT_EQ(f.device.CaptureWaiting, 0);
}

TEST(Transmission, ByIdSendsOnlyWholeSignalsAndCountsTestModeAsSent) {
    Fixture f;
    f.t.writeRemote(1, u"TV"_s, 1, {u"Power"_s, u"Junk"_s, u"Empty"_s});
    f.learn(u"TV-Power", SimDriver::SampleCapture());
    f.t.writeFile(u"IRSignals/TV-Junk.bin", QByteArray(SignalFileSize, '\x7F'));
    f.t.writeFile(u"IRSignals/TV-Empty.bin", QByteArray());

    EXPECT_EQ(TXSignalById(f.device, u"1", u"5"), SendResult::Sent); // no file
    EXPECT_EQ(TXSignalById(f.device, u"1", u"0"), SendResult::Sent);
    EXPECT_EQ(TXSignalById(f.device, u"1", u"1"),
              SendResult::Failed); // a trailer claiming 32 512 bytes
    EXPECT_EQ(TXSignalById(f.device, u"1", u"2"), SendResult::Failed); // no signal in it
    EXPECT_EQ(f.sent().size(), 1); // what is not a whole signal never goes out

    f.t.settings.WriteIni(u"Tira", u"Testmode", u"1");
    EXPECT_EQ(TXSignalById(f.device, u"1", u"0"), SendResult::Sent);
    EXPECT_EQ(TXSignalById(f.device, u"1", u"1"), SendResult::Sent);
    EXPECT_EQ(f.sent().size(), 1);
    EXPECT_TRUE(f.prompt.shown.isEmpty());
}
