// The Tira driver over ftdi_sio to tira-emulator on the host, which logs to $LANE_OUT/tira.log.
#include "core/Wait.h"
#include "infrared/DeviceList.h"
#include "infrared/IrSignal.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "kernel/Lane.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QString Port = u"/dev/ttyUSB0"_s;
// What tira-emulator plays after "IC".
const QByteArray Burst = QByteArray::fromHex("04650233004600460046 00D3 00460000 34B2");
const QString Plug =
    u"device_add usb-serial,id=tira0,bus=xhci.0,chardev=tira,serial=KESTRAVA0001"_s;

const QString LaneOut = qEnvironmentVariable("LANE_OUT");

QByteArray emulatorLog() {
    QFile f(LaneOut + u"/tira.log"_s);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Runs a QEMU monitor command on the host (lane.sh answers host/*.req).
QString HostDo(const QString& command) {
    static int seq = 0;
    const QString base = LaneOut + u"/host/gtest-"_s +
                         QString::number(QCoreApplication::applicationPid()) + u'-' +
                         QString::number(++seq);
    QFile req(base + u".tmp"_s);
    if (!req.open(QIODevice::WriteOnly) || req.write(command.toUtf8() + '\n') < 0)
        return u"cannot ask"_s;
    req.close();
    QFile::rename(base + u".tmp"_s, base + u".req"_s);
    if (!WaitUntil([&] { return QFile::exists(base + u".ans"_s); }, 30000))
        return u"no answer"_s;
    QFile ans(base + u".ans"_s);
    QString text =
        ans.open(QIODevice::ReadOnly) ? QString::fromUtf8(ans.readAll()).trimmed() : QString();
    QFile::remove(base + u".ans"_s);
    return text;
}

QByteArray burstBlob() {
    TiraBurst burst;
    ParseTiraBurst(Burst, &burst);
    return BlobFromTiming(TimingFromTiraBurst(burst))->encode();
}

struct Lane {
    Lane() {
        t.folder.CreateDataFolders();
        t.settings.WriteIni(u"Tira", u"Device", Port);
        signal = t.path(u"IRSignals/TV-Power.bin"_s);
        WriteSignalFile(signal, burstBlob());
        device.captureTimeoutMs = 5000;
        device.timReturn.setInterval(200);
    }
    bool press() { return device.TransmitTira(signal, Transceiver::Origin::Background); }
    TempFolder t;
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
    QString signal;
};

} // namespace

TEST(TiraKernel, IdentifiesSendsCapturesAndComesBackAfterAnUnplug) {
    if (LaneOut.isEmpty() || !QFile::exists(Port))
        GTEST_SKIP() << "no " << Port.toStdString() << " (outside the lane?)";
    Lane lane;
    const UsbIdentity id = UsbIdentityOf(Port);
    EXPECT_EQ(id.describe(), u"USB 0403:6001 serial KESTRAVA0001"_s);

    QElapsedTimer clock;
    clock.start();
    const qsizetype before = emulatorLog().size();
    ASSERT_TRUE(lane.press()) << lane.prompt.shown.join(u' ').toStdString();
    const qint64 sendMs = clock.elapsed();
    const IrTiming timing = TimingFromBlob(*IrBlob::decode(burstBlob()));
    const QByteArray ix = TiraTransmitCommand(timing.frame(), timing.carrierHz);
    EXPECT_EQ(emulatorLog().mid(before), "IP\nIR\nIX " + ix.mid(2).toHex() + '\n');

    clock.restart();
    ASSERT_TRUE(lane.device.CaptureTira());
    const qint64 captureMs = clock.elapsed();
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(lane.device.SignalBuf.data()),
                         lane.device.SignalLen),
              burstBlob());
    EXPECT_TRUE(lane.device.CancelCaptureTira());
    QStringList figures{id.describe() + u", open+send "_s + QString::number(sendMs) +
                        u" ms, capture "_s + QString::number(captureMs) + u" ms"_s};

    // Unplugged while held, then plugged back: with the old node free, then held (a new name).
    for (const bool heldElsewhere : {false, true}) {
        const int other =
            heldElsewhere ? ::open(Port.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK)
                          : -1;
        ASSERT_TRUE(lane.press());
        ASSERT_TRUE(lane.device.TiraActive);
        clock.restart();
        EXPECT_EQ(HostDo(u"device_del tira0"_s), QString());
        EXPECT_TRUE(WaitUntil([&] { return !lane.device.TiraActive; }, 10000))
            << "still holds the port";
        const qint64 letGoMs = clock.elapsed();
        EXPECT_TRUE(WaitUntil([&] { return !QFile::exists(Port); }, 10000));
        EXPECT_EQ(HostDo(Plug), QString());
        clock.restart();
        QString name;
        EXPECT_TRUE(WaitUntil([&] { return !(name = FindUsbSerial(id)).isEmpty(); }, 20000));
        const bool sent = lane.press();
        const qint64 backMs = clock.elapsed();
        EXPECT_TRUE(sent) << lane.prompt.shown.join(u' ').toStdString();
        if (other >= 0)
            ::close(other);
        EXPECT_EQ(lane.t.settings.ReadIni(u"Tira"_s, u"Device"_s), Port);
        figures << (heldElsewhere ? u"held: "_s : u"released: "_s) + u"back as "_s + name +
                       u", let go "_s + QString::number(letGoMs) + u" ms, press "_s +
                       QString::number(backMs) + u" ms after replug"_s;
    }
    Figures(figures.join(u"; "_s));
}
