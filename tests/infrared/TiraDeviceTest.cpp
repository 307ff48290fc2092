#include "infrared/TiraDevice.h"
#include "core/Application.h"
#include "core/Clock.h"
#include "core/Settings.h"
#include "core/Wait.h"
#include "infrared/IrSignal.h"
#include "infrared/SimDriver.h"
#include "infrared/Transmission.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QElapsedTimer>
#include <QFileInfo>
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
        QByteArray img(SignalFileSize, '\0');
        img.replace(0, blob.size(), blob);
        img[1998] = char(blob.size() / 255);
        img[1999] = char(blob.size() % 255);
        t.writeFile(u"IRSignals/"_s + name.toString() + u".bin"_s, img);
    }
    TempFolder t;
    ScriptedPrompt prompt;
    TiraDevice device{t.folder, t.settings, prompt};
};

// "<time> <count> <hex>": the count and bytes of one logged transmission.
QByteArray loggedBytes(const QByteArray& line) {
    QList<QByteArray> parts = line.split(' ');
    EXPECT_GE(parts.size(), 3);
    QByteArray hex = line.mid(parts[0].size() + parts[1].size() + 2);
    QByteArray bytes = QByteArray::fromHex(hex);
    EXPECT_EQ(parts[1].toInt(), bytes.size());
    return bytes;
}

} // namespace

TEST(TiraDevice, OpensOnFirstSendAndClosesWhenIdle) {
    Fixture f;
    f.device.timDeactivate.setInterval(100);
    QByteArray blob = SimDriver::SampleCapture();
    f.learn(u"TV-Power", blob);
    EXPECT_FALSE(f.device.Timer1.isActive());

    EXPECT_TRUE(f.device.TransmitTira(f.t.path(u"IRSignals/TV-Power.bin")));
    EXPECT_TRUE(f.device.TiraActive);
    EXPECT_TRUE(f.device.Timer1.isActive());
    EXPECT_EQ(f.device.Timer1.interval(), 40);
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

TEST(TiraDevice, CaptureGivesABlobThatTestStudiedSignalSends) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    f.sim()->captureDelayMs = 100;
    f.device.ClearAll();
    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(f.device.CaptureTira());
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_EQ(f.device.CaptureWaiting, 0);
    QByteArray blob = SimDriver::SampleCapture();
    ASSERT_EQ(f.device.SignalLen, blob.size());
    EXPECT_TRUE(f.device.GetSignal().startsWith(u" 0 0 0 0 8 0 0 0 65 4 0 0 "_s));
    EXPECT_TRUE(f.device.timDeactivate.isActive());

    ASSERT_TRUE(f.device.TestStudiedSignal());
    QByteArray file = f.t.readFile(u"testsignal.tmp");
    ASSERT_EQ(file.size(), SignalFileSize);
    EXPECT_EQ(uint8_t(file[1998]) * 255 + uint8_t(file[1999]), blob.size());
    EXPECT_EQ(loggedBytes(f.sent().value(0)), blob);
    EXPECT_TRUE(f.device.CancelCaptureTira());
}

TEST(TiraDevice, CaptureTimesOutStillArmedAndFailsAtOnceWhenClosed) {
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

TEST(TiraDevice, GetSignalAndClear) {
    Fixture f;
    EXPECT_EQ(f.device.GetSignal(), u""_s);
    f.device.SignalBuf[0] = 2;
    f.device.SignalBuf[1] = 160;
    f.device.SignalBuf[2] = 255;
    f.device.SignalLen = 3;
    EXPECT_EQ(f.device.GetSignal(), u" 2 A0 FF"_s);
    f.device.EraseSignal();
    EXPECT_EQ(f.device.SignalBuf[1], 160);
    EXPECT_EQ(f.device.GetSignal(), u""_s);
    f.device.SignalLen = 3;
    f.device.ClearAll();
    EXPECT_EQ(f.device.SignalBuf[1], 0);
    EXPECT_EQ(f.device.SignalLen, 0);
}

TEST(Transmission, PortUnsetAsksOnTheDesktopAndOnlyNotifiesForTheWeb) {
    Fixture f;
    f.t.settings.WriteIni(u"Tira", u"Device", u"");
    f.t.settings.WriteIni(u"Remote-1", u"Device", u"TV");
    f.t.settings.WriteIni(u"Remote-1", u"Button-0", u"Power");
    f.learn(u"TV-Power", SimDriver::SampleCapture());
    int asked = 0;
    f.device.SpecifyPort = [&] { ++asked; };

    TXSignal(f.device, u"TV", u"Power");
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(f.prompt.shown, QStringList({u"warning:"_s + TiraDevice::PortUnsetText,
                                           u"warning:"_s + SendFailedText}));

    f.prompt.shown.clear();
    EXPECT_FALSE(TXSignalById(f.device, u"1", u"0"));
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(f.prompt.shown, QStringList(u"notify:"_s + TiraDevice::PortUnsetText));
    EXPECT_FALSE(f.device.TiraActive);
}

TEST(Transmission, DeviceThatWillNotOpen) {
    Fixture f;
    f.t.settings.WriteIni(u"Tira", u"Device", f.t.path(u"no-such-tty"));
    f.learn(u"TV-Power", SimDriver::SampleCapture());
    TXSignal(f.device, u"TV", u"Power");
    EXPECT_EQ(f.prompt.shown, QStringList({u"info:"_s + TiraDevice::CannotActivateText,
                                           u"warning:"_s + SendFailedText}));
    EXPECT_TRUE(f.device.timDeactivate.isActive());
    TXSignal(f.device, u"TV", u""); // no function: nothing at all
    EXPECT_EQ(f.prompt.shown.size(), 2);
}

TEST(Transmission, ByIdCountsTestModeAndMissingFilesAsSent) {
    Fixture f;
    f.t.settings.WriteIni(u"Remote-1", u"Device", u"TV");
    f.t.settings.WriteIni(u"Remote-1", u"Button-0", u"Power");
    f.t.settings.WriteIni(u"Remote-1", u"Button-1", u"Junk");
    f.t.settings.WriteIni(u"Remote-1", u"Button-2", u"Empty");
    f.learn(u"TV-Power", SimDriver::SampleCapture());
    f.t.writeFile(u"IRSignals/TV-Junk.bin", QByteArray(SignalFileSize, '\x7F'));
    f.t.writeFile(u"IRSignals/TV-Empty.bin", QByteArray());

    EXPECT_TRUE(TXSignalById(f.device, u"1", u"5")); // no file
    EXPECT_FALSE(QFileInfo::exists(f.t.path(u"IRSignals/TV-.bin")));
    EXPECT_TRUE(TXSignalById(f.device, u"1", u"0"));
    EXPECT_FALSE(TXSignalById(f.device, u"1", u"1")); // a trailer claiming 32 512 bytes
    EXPECT_FALSE(TXSignalById(f.device, u"1", u"2")); // one zero byte: not a signal
    auto lines = f.sent();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(loggedBytes(lines[1]), QByteArray(1, '\0'));

    f.t.settings.WriteIni(u"Tira", u"Testmode", u"1");
    EXPECT_TRUE(TXSignalById(f.device, u"1", u"0"));
    EXPECT_TRUE(TXSignalById(f.device, u"1", u"1"));
    EXPECT_EQ(f.sent().size(), 2);
    EXPECT_TRUE(f.prompt.shown.isEmpty());
}

TEST(TiraDevice, ClosingTheProgramReleasesTheDeviceFirst) {
    Fixture f;
    SystemClock clock;
    Application app(f.t.folder, f.t.settings, clock, f.prompt);
    QObject::connect(&app, &Application::releaseDevice, &f.device, &TiraDevice::Unload);
    bool openAtWindows = true;
    QObject::connect(&app, &Application::unloadRemoteWindows,
                     [&] { openAtWindows = f.device.TiraActive; });
    ASSERT_TRUE(f.device.ActivateTira(0));
    // Closing while a capture waits ends the wait at once.
    f.device.captureTimeoutMs = 5000;
    QTimer::singleShot(50, &app, &Application::Close);
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_FALSE(f.device.CaptureTira());
    EXPECT_LT(elapsed.elapsed(), 2000);
    EXPECT_FALSE(openAtWindows);
    EXPECT_EQ(f.device.driver(), nullptr);
    EXPECT_FALSE(f.device.timDeactivate.isActive());
}
