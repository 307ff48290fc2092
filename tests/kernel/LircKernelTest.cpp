// The LIRC driver on rc-loopback, which hands what it sends to its own receiver. Run by cases/*.sh.
#include "core/Settings.h"
#include "core/Wait.h"
#include "infrared/IrProtocol.h"
#include "infrared/IrSignal.h"
#include "infrared/SignalStore.h"
#include "infrared/TiraFacts.h"
#include "infrared/Transceiver.h"
#include "kernel/Lane.h"
#include "remotes/IrListener.h"
#include "support/HttpClient.h"
#include "support/MqttBroker.h"
#include "support/ProgramProcess.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QSocketNotifier>
#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <linux/lirc.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A second reader of the device: its messages split at long silences, with any carrier measured.
class Receiver : public QObject {
public:
    struct Message {
        std::vector<uint32_t> durations;
        int carrier = 0;
    };
    std::vector<Message> messages;
    // rc-loopback ends each write with a silence of its receive timeout.
    static constexpr uint32_t EndUs = 100000;

    Receiver() { open(); }
    ~Receiver() override { close(); }
    bool open() {
        close();
        fd_ = ::open(qPrintable(LircDevice), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd_ < 0)
            return false;
        uint32_t mode = LIRC_MODE_MODE2;
        ::ioctl(fd_, LIRC_SET_REC_MODE, &mode);
        notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
        connect(notifier_.get(), &QSocketNotifier::activated, this, &Receiver::read);
        return true;
    }
    void close() {
        notifier_.reset();
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }
    // Until n messages have come or ms have passed.
    bool waitFor(size_t n, int ms) {
        return WaitUntil([&] { return messages.size() >= n; }, ms);
    }

private:
    void read() {
        uint32_t records[256];
        ssize_t n = ::read(fd_, records, sizeof records);
        if (n < 0 && errno == EAGAIN)
            return;
        if (n <= 0) { // the device is gone
            notifier_->setEnabled(false);
            return;
        }
        for (ssize_t i = 0; i < n / 4; ++i) {
            const uint32_t v = LIRC_VALUE(records[i]);
            switch (LIRC_MODE2(records[i])) {
            case LIRC_MODE2_PULSE:
                current_.durations.push_back(v);
                break;
            case LIRC_MODE2_SPACE:
                if (v >= EndUs)
                    end();
                else if (!current_.durations.empty())
                    current_.durations.push_back(v);
                break;
            case LIRC_MODE2_FREQUENCY: // the closing silence, with carrier reports on
                if (v >= EndUs)
                    end();
                else if (current_.carrier == 0)
                    current_.carrier = int(v);
                break;
            case LIRC_MODE2_TIMEOUT:
                end();
                break;
            }
        }
    }
    void end() {
        if (!current_.durations.empty())
            messages.push_back(std::exchange(current_, {}));
    }
    int fd_ = -1;
    std::unique_ptr<QSocketNotifier> notifier_;
    Message current_;
};

// The largest difference, or -1 if the counts differ or one is off by over 8 µs (a unit) + 3 %.
int Mismatch(const std::vector<uint32_t>& got, const std::vector<uint32_t>& want) {
    if (got.size() != want.size())
        return -1;
    int worst = 0;
    for (size_t i = 0; i < got.size(); ++i) {
        const int d = std::abs(int(got[i]) - int(want[i]));
        if (d > 8 + int(want[i]) * 3 / 100)
            return -1;
        worst = std::max(worst, d);
    }
    return worst;
}

// Kernel log lines that came after the start.
class KernelLog {
public:
    KernelLog() {
        fd_ = ::open("/dev/kmsg", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd_ >= 0)
            ::lseek(fd_, 0, SEEK_END);
    }
    ~KernelLog() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    QString read() {
        QString all;
        char line[1024];
        ssize_t n;
        while (fd_ >= 0 && (n = ::read(fd_, line, sizeof line)) > 0)
            all += QString::fromUtf8(line, n).section(u';', 1);
        return all;
    }

private:
    int fd_ = -1;
};

void RunTool(const QString& program, const QStringList& args) {
    QProcess p;
    p.start(program, args);
    ASSERT_TRUE(p.waitForFinished(20000)) << program.toStdString();
    EXPECT_EQ(p.exitCode(), 0) << qPrintable(program + u' ' + args.join(u' ')) << ": "
                               << p.readAllStandardError().toStdString();
}

// Waits for a process started earlier, which may have ended already.
bool Finished(QProcess& p) {
    return p.state() == QProcess::NotRunning || p.waitForFinished(20000);
}

struct Program {
    Program() {
        t.folder.CreateDataFolders();
        t.settings.WriteIni(u"Tira", u"Device", LircDevice);
    }
    // Key 0 of remote 1: NEC 0x4012 with its repeat code at 38 kHz, gapUs before each repeat.
    QString learnNec(uint32_t gapUs = 100000) {
        t.writeRemote(1, u"TV"_s, 4, {u"Power"_s}); // its file is replaced below
        IrTiming nec;
        auto add = [&](uint32_t pulse, uint32_t space) {
            nec.durations.push_back(pulse);
            nec.durations.push_back(space);
        };
        add(9000, 4500);
        const uint32_t bits = 0x40 | (0xbf << 8) | (0x12 << 16) | (0xed << 24);
        for (int i = 0; i < 32; ++i)
            add(560, bits >> i & 1 ? 1690 : 560);
        add(560, gapUs);
        nec.repeatBegin = int(nec.durations.size());
        add(9000, 2250);
        nec.durations.push_back(560);
        if (gapUs > 100000) // the pause before each repeat, not the default one
            nec.durations.push_back(gapUs);
        nec.carrierHz = 38000;
        auto blob = BlobFromTiming(nec);
        EXPECT_TRUE(blob);
        const QString path = t.path(u"IRSignals/TV-Power.bin");
        EXPECT_TRUE(WriteSignalFile(path, blob->encode()));
        sent = TimingFromBlob(*blob);
        return path;
    }
    SendResult press(const QString& path) {
        return device.TransmitAndWait(path, Transceiver::Origin::Background);
    }
    TempFolder t;
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
    IrTiming sent;
};

// A press goes out once: the signal, then its repeating part three more times.
void ExpectSentOnce(Program& p, Receiver& rx, const std::function<bool()>& press,
                    QStringList* figures) {
    std::vector<std::vector<uint32_t>> want(1);
    for (uint32_t d : p.sent.frame()) {
        if (want.back().size() % 2 == 1 && d >= Receiver::EndUs)
            want.emplace_back();
        else
            want.back().push_back(d);
    }
    for (int i = 0; i < TiraFacts::TransmitRepeat; ++i)
        want.push_back(p.sent.repeatFrame());
    QElapsedTimer t;
    t.start();
    EXPECT_TRUE(press());
    const qint64 sendMs = t.elapsed();
    EXPECT_TRUE(rx.waitFor(want.size(), 3000));
    WaitMs(300); // anything more would come now
    QString all;
    for (const auto& m : rx.messages)
        all += IrCtlText(m.durations) + u'\n';
    ASSERT_EQ(rx.messages.size(), want.size()) << qPrintable(all);
    int worst = 0;
    size_t count = 0;
    for (size_t i = 0; i < want.size(); ++i) {
        const int m = Mismatch(rx.messages[i].durations, want[i]);
        EXPECT_GE(m, 0) << "got  " << qPrintable(IrCtlText(rx.messages[i].durations)) << "\nsent "
                        << qPrintable(IrCtlText(want[i]));
        worst = std::max(worst, m);
        count += want[i].size();
    }
    *figures << u"%1 messages, %2 durations within %3 us, press %4 ms"_s.arg(want.size())
                    .arg(count)
                    .arg(worst)
                    .arg(sendMs);
    rx.messages.clear();
}

} // namespace

// The whole program, headless on the device, fires a learned key from a page: once, with its
// carrier and duty cycle (rc-loopback, loaded with its debug messages on, logs them).
TEST(LircKernel, PagePressReachesTheWireOnceWithItsCarrier) {
    Program p;
    Receiver rx;
    KernelLog log;
    p.learnNec();
    p.t.settings.WriteIni(u"WebServer", u"Port", u"0");
    ProgramProcess program({u"--headless"_s, u"--home"_s, p.t.folder.root()});
    const quint16 port = program.webPort();
    ASSERT_NE(port, 0) << program.log().toStdString();
    QStringList figures;
    ExpectSentOnce(
        p, rx,
        [&] {
            const QByteArray page = Fetch(
                port,
                "GET /cremote.asp?DevID=1&Button=0&Device=TV HTTP/1.1\r\nHost: localhost\r\n\r\n");
            return page.startsWith("HTTP/1.1 200");
        },
        &figures);
    EXPECT_FALSE(program.log().contains(u"lost"_s)) << program.log().toStdString();
    uint32_t features = 0;
    const int fd = ::open(qPrintable(LircDevice), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ::ioctl(fd, LIRC_GET_FEATURES, &features);
    ::close(fd);
    const QString kernel = log.read();
    if (features & LIRC_CAN_SET_SEND_CARRIER) {
        EXPECT_TRUE(kernel.contains(u"setting tx carrier: 38000"_s)) << qPrintable(kernel);
    }
    if (features & LIRC_CAN_SET_SEND_DUTY_CYCLE) {
        EXPECT_TRUE(kernel.contains(u"duty cycle"_s)) << qPrintable(kernel);
    }
    figures
        << kernel.split(u'\n').filter(u"setting"_s).join(u", "_s).replace(u"rc rc0: "_s, QString());
    Figures(u"from cremote.asp: "_s + figures.join(u"; "_s));
}

// What the kernel encodes reaches the learning path whole (every duration, the carrier) and
// decodes to the same code.
TEST(LircKernel, KernelEncodedSignalsAreCapturedWholeAndDecodeAlike) {
    Program p;
    p.device.captureTimeoutMs = 5000;
    ASSERT_TRUE(p.device.ActivateTira(0));
    Receiver rx;
    int worst = 0, matched = 0;
    qint64 slowest = 0;
    QStringList misses;
    for (const QString& spec : KernelCodes) {
        SCOPED_TRACE(spec.toStdString());
        rx.messages.clear();
        QProcess irctl;
        QTimer::singleShot(300, &irctl, [&] {
            // rc-loopback hands its learning receiver only what goes out on transmitter 2.
            irctl.start(u"ir-ctl"_s, {u"-d"_s, LircDevice, u"-e"_s, u"1,2"_s, u"-S"_s, spec});
        });
        QElapsedTimer t;
        t.start();
        ASSERT_TRUE(p.device.CaptureTira())
            << "nothing captured; ir-ctl: " << irctl.readAllStandardError().toStdString();
        slowest = std::max(slowest, t.elapsed());
        ASSERT_TRUE(Finished(irctl));
        ASSERT_TRUE(rx.waitFor(1, 2000));
        auto blob = IrBlob::decode(QByteArrayView(p.device.SignalBuf.data(), p.device.SignalLen));
        ASSERT_TRUE(blob);
        const IrTiming got = TimingFromBlob(*blob);
        const std::vector<uint32_t> captured = got.frame();
        const auto& wire = rx.messages[0];
        const int m = Mismatch(captured, wire.durations);
        EXPECT_GE(m, 0) << "captured " << qPrintable(IrCtlText(captured)) << "\nsent     "
                        << qPrintable(IrCtlText(wire.durations));
        worst = std::max(worst, m);
        const IrCode code = DecodeSignal(got);
        EXPECT_EQ(CodeSpec(code), CodeSpec(*ParseCodeSpec(spec)));
        EXPECT_EQ(got.carrierHz, ProtocolCarrierHz(code.protocol));
        EXPECT_NEAR(got.carrierHz, wire.carrier, wire.carrier / 50);
        if (CodeSpec(code) == CodeSpec(*ParseCodeSpec(spec)))
            ++matched;
        else
            misses << spec + u"->"_s + CodeSpec(code);
    }
    Figures(u"%1/%2 decoded alike, durations within %3 us, captures within %4 ms%5"_s.arg(matched)
                .arg(KernelCodes.size())
                .arg(worst)
                .arg(slowest)
                .arg(misses.isEmpty() ? QString() : u" ("_s + misses.join(u' ') + u')'));
}

// rmmod ends a capture and a send at once, without spinning; modprobe brings the device back.
TEST(LircKernel, UnpluggedDeviceFailsAndComesBack) {
    Program p;
    p.device.captureTimeoutMs = 8000;
    const QString path = p.learnNec();
    QStringList figures;

    ASSERT_TRUE(p.device.ActivateTira(0));
    QProcess rmmod;
    QTimer::singleShot(300, &rmmod, [&] { rmmod.start(u"rmmod"_s, {u"rc-loopback"_s}); });
    QElapsedTimer t;
    t.start();
    double cpu = CpuSeconds(getpid());
    EXPECT_FALSE(p.device.CaptureTira());
    const qint64 captureMs = t.elapsed();
    cpu = CpuSeconds(getpid()) - cpu;
    ASSERT_TRUE(Finished(rmmod));
    EXPECT_EQ(rmmod.exitCode(), 0) << rmmod.readAllStandardError().toStdString();
    EXPECT_LT(captureMs, 3000) << "the capture ran to its time limit";
    EXPECT_LT(cpu, 0.5 * double(captureMs) / 1000 + 0.1) << "busy while the device was gone";
    figures << u"capture ended %1 ms after start (rmmod at 300), %2 ms CPU"_s.arg(captureMs).arg(
        int(cpu * 1000));

    // Back: the next press goes out.
    RunTool(u"modprobe"_s, {u"rc-loopback"_s});
    WaitUntil([] { return QFileInfo::exists(LircDevice); }, 5000);
    Receiver rx;
    ASSERT_TRUE(rx.open());
    ExpectSentOnce(
        p, rx, [&] { return p.press(path) == SendResult::Sent; }, &figures);

    // Gone during a send of the frame and its three repeats (1.3 s).
    p.learnNec(400000);
    rx.close();
    QTimer::singleShot(200, &rmmod, [&] { rmmod.start(u"rmmod"_s, {u"rc-loopback"_s}); });
    t.restart();
    cpu = CpuSeconds(getpid());
    const SendResult during = p.press(path);
    const qint64 sendMs = t.elapsed();
    cpu = CpuSeconds(getpid()) - cpu;
    ASSERT_TRUE(Finished(rmmod));
    EXPECT_EQ(rmmod.exitCode(), 0);
    EXPECT_NE(during, SendResult::Sent);
    EXPECT_LT(sendMs, 3000);
    figures << u"send during rmmod: %1 after %2 ms"_s
                   .arg(during == SendResult::Failed      ? u"failed"_s
                        : during == SendResult::NotOpened ? u"not opened"_s
                                                          : u"sent"_s)
                   .arg(sendMs);
    EXPECT_EQ(p.press(path), SendResult::NotOpened) << "sent to a device that is not there";

    RunTool(u"modprobe"_s, {u"rc-loopback"_s, u"dyndbg=+p"_s});
    WaitUntil([] { return QFileInfo::exists(LircDevice); }, 5000);
    ASSERT_TRUE(rx.open());
    ExpectSentOnce(
        p, rx, [&] { return p.press(path) == SendResult::Sent; }, &figures);
    Figures(figures.join(u"; "_s));
}

// ir-ctl's frame is heard once and names the key learned with it; our own press is not heard.
TEST(LircKernel, ListenerHearsAFrameOnceAndNamesTheKey) {
    Program p;
    const QString path = p.learnNec();
    IrListener listener(p.t.folder, p.t.settings, p.device);
    std::vector<IrCode> frames;
    QStringList keys;
    QObject::connect(&listener, &IrListener::frameHeard,
                     [&](const IrTiming&, const IrCode& c) { frames.push_back(c); });
    QObject::connect(&listener, &IrListener::keyHeard,
                     [&](int slot, int button, const QString& remote, const QString& key) {
                         keys << u"%1/%2 %3 %4"_s.arg(slot).arg(button).arg(remote, key);
                     });
    listener.SetListening(true);
    ASSERT_TRUE(listener.listening());

    QElapsedTimer clock;
    clock.start();
    RunTool(u"ir-ctl"_s, {u"-d"_s, LircDevice, u"-S"_s, u"nec:0x4012"_s});
    ASSERT_TRUE(WaitForSignal(&listener, &IrListener::keyHeard, 5000));
    const qint64 heardMs = clock.elapsed();
    WaitMs(800);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(CodeSpec(frames[0]), u"nec:0x4012"_s);
    EXPECT_EQ(keys, QStringList{u"1/0 TV Power"_s});

    ASSERT_EQ(p.press(path), SendResult::Sent);
    WaitMs(800);
    EXPECT_EQ(frames.size(), 1u);
    Figures(u"heard %1 ms after ir-ctl started"_s.arg(heardMs));
}

// The same through the program: the hub's last-heard sensor decodes it, the key's trigger fires.
TEST(LircKernel, HeardKeyFiresItsTriggerOnTheBroker) {
    Program p;
    p.learnNec();
    MqttBroker broker(p.t.root());
    ASSERT_TRUE(broker.start());
    p.t.settings.WriteIni(u"WebServer", u"Port", u"0");
    p.t.settings.WriteIni(u"MQTT", u"Server", u"127.0.0.1:"_s + QString::number(broker.port));
    p.t.settings.WriteIni(u"MQTT", u"NodeId", u"den");
    p.t.settings.WriteIni(u"MQTT", u"Topic", u"kestrava/den");
    p.t.settings.WriteIni(u"MQTT", u"Listen", u"1");
    const QString attributes = u"kestrava/den/hub/last_heard/attributes"_s;
    MqttWatcher sub(broker, {u"kestrava/den/status"_s, u"kestrava/den/ir/received"_s,
                             u"kestrava/den/trigger/#"_s, attributes});
    ProgramProcess program({u"--headless"_s, u"--home"_s, p.t.folder.root()});
    ASSERT_TRUE(sub.waitFor(u"kestrava/den/status"_s, "online", 20000))
        << program.log().toStdString();
    ASSERT_TRUE(program.waitForLog(u"listening on"_s)) << program.log().toStdString();
    RunTool(u"ir-ctl"_s, {u"-d"_s, LircDevice, u"-S"_s, u"nec:0x4012"_s});
    EXPECT_TRUE(sub.waitFor(u"kestrava/den/trigger/1/0"_s, "press", 10000));
    EXPECT_TRUE(WaitUntil(
        [&] {
            for (const MqttWatcher::Message& m : sub.on(attributes))
                if (m.payload.contains(R"("scancode":"0x4012")"))
                    return true;
            return false;
        },
        2000));
    WaitMs(800);
    EXPECT_EQ(sub.on(u"kestrava/den/trigger/1/0"_s).size(), 1u);
}
