#include "core/Settings.h"
#include "core/Wait.h"
#include "infrared/FakeTira.h"
#include "infrared/IrSignal.h"
#include "infrared/LircDriver.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "remotes/IrListener.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <linux/lirc.h>
#include <numeric>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// An NEC remote (0x40, 0x12) held briefly as a receiver heard it: a frame, two repeat codes.
const char* const Recording =
    "+9051 -4439 +595 -531 +573 -494 +622 -524 +576 -513 +607 -493 +628 -522 +583 -1622 "
    "+575 -517 +596 -1624 +585 -1625 +605 -1647 +573 -1672 +606 -1627 +630 -1634 +610 -530 "
    "+607 -1680 +573 -526 +607 -1645 +573 -504 +572 -525 +624 -1628 +588 -516 +579 -524 "
    "+577 -526 +589 -1655 +622 -533 +581 -1626 +607 -1656 +610 -502 +593 -1626 +605 -1665 "
    "+574 -1656 +573 -39929 +9026 -2211 +613 -96000 +9068 -2207 +619";

// The kernel side: a pipe carries mode2 records, ioctls and writes are noted.
class FakeKernel final : public LircIo {
public:
    uint32_t features = LIRC_CAN_REC_MODE2 | LIRC_CAN_SEND_PULSE | LIRC_CAN_SET_SEND_CARRIER |
                        LIRC_CAN_MEASURE_CARRIER | LIRC_CAN_USE_WIDEBAND_RECEIVER |
                        LIRC_CAN_SET_REC_TIMEOUT | LIRC_CAN_SET_SEND_DUTY_CYCLE;
    std::vector<std::pair<unsigned long, uint32_t>> ioctls;
    std::vector<std::vector<uint32_t>> writes;
    int feedFd = -1;
    uint32_t timeout = 125000;

    ~FakeKernel() override {
        if (feedFd >= 0)
            ::close(feedFd);
    }
    int open(const char*, int) override {
        int fds[2];
        if (pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0)
            return -1;
        feedFd = fds[1];
        return fds[0];
    }
    int close(int fd) override { return ::close(fd); }
    int ioctl(int, unsigned long request, uint32_t* arg) override {
        if (request == LIRC_GET_FEATURES || request == LIRC_GET_REC_TIMEOUT) {
            *arg = request == LIRC_GET_FEATURES ? features : timeout;
            return 0;
        }
        if (request == LIRC_SET_REC_TIMEOUT)
            timeout = *arg;
        ioctls.push_back({request, *arg});
        return 0;
    }
    ssize_t read(int fd, void* buf, size_t size) override { return ::read(fd, buf, size); }
    ssize_t write(int, const void* buf, size_t size) override {
        auto p = static_cast<const uint32_t*>(buf);
        writes.emplace_back(p, p + size / 4);
        return ssize_t(size);
    }
    void feed(const std::vector<uint32_t>& records) {
        if (::write(feedFd, records.data(), records.size() * 4) < 0)
            ADD_FAILURE() << "feed";
    }
    bool set(unsigned long request, uint32_t value) const {
        return std::find(ioctls.begin(), ioctls.end(), std::pair{request, value}) != ioctls.end();
    }
};

std::vector<uint32_t> recordingUs() {
    std::vector<uint32_t> us;
    for (const QByteArray& item : QByteArray(Recording).split(' '))
        us.push_back(uint32_t(std::abs(item.toInt())));
    return us;
}

std::vector<uint32_t> mode2(uint32_t carrier) {
    std::vector<uint32_t> r{LIRC_SPACE(2500000)}; // idle time before the press
    const std::vector<uint32_t> us = recordingUs();
    for (size_t i = 0; i < us.size(); ++i)
        r.push_back(i % 2 == 0 ? LIRC_PULSE(us[i]) : LIRC_SPACE(us[i]));
    if (carrier) // as rc-loopback: its closing silence measured too; else no timeout record
        r.insert(r.end(), {LIRC_FREQUENCY(carrier), LIRC_FREQUENCY(150000), LIRC_TIMEOUT(150000)});
    return r;
}

struct Fixture {
    Fixture() {
        t.settings.WriteIni(u"Tira", u"Device", u"/dev/lirc0");
        device.factory = [this](const QString& target) {
            return std::make_unique<LircDriver>(target, kernel);
        };
        device.captureTimeoutMs = 1000;
    }
    std::shared_ptr<FakeKernel> kernel = std::make_shared<FakeKernel>();
    TempFolder t;
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
    QByteArray signal() const {
        return QByteArray(reinterpret_cast<const char*>(device.SignalBuf.data()), device.SignalLen);
    }
};

// A receiver's 560 µs marks and spaces scatter and share one table entry: up to 80 µs off.
void expectNear(const std::vector<uint32_t>& got, const std::vector<uint32_t>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i)
        EXPECT_NEAR(int(got[i]), int(want[i]), 80) << "at " << i;
}

} // namespace

TEST(Lirc, LearnsARecordedNecRemoteAndSendsItBack) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    EXPECT_TRUE(f.kernel->set(LIRC_SET_REC_MODE, LIRC_MODE_MODE2));
    EXPECT_TRUE(f.kernel->set(LIRC_SET_SEND_MODE, LIRC_MODE_PULSE));
    const std::vector<uint32_t> us = recordingUs(), records = mode2(38200);
    QTimer::singleShot(30, [&] { f.kernel->feed({records.begin(), records.begin() + 20}); });
    QTimer::singleShot(60, [&] { f.kernel->feed({records.begin() + 20, records.end()}); });
    ASSERT_TRUE(f.device.CaptureTira());
    // Wideband and carrier measurement on for the capture, then off, the timeout put back.
    for (unsigned long request : {LIRC_SET_WIDEBAND_RECEIVER, LIRC_SET_MEASURE_CARRIER_MODE})
        EXPECT_TRUE(f.kernel->set(request, 1) && f.kernel->set(request, 0)) << request;
    EXPECT_TRUE(f.kernel->set(LIRC_SET_REC_TIMEOUT, 150000));
    EXPECT_EQ(f.kernel->timeout, 125000u);

    // Stored as the frame and one repeat code, in the common blob.
    auto blob = IrBlob::decode(f.signal());
    ASSERT_TRUE(blob);
    IrTiming t = TimingFromBlob(*blob);
    EXPECT_EQ(t.carrierHz, 38200);
    EXPECT_EQ(t.repeatBegin, 68);
    std::vector<uint32_t> folded(us.begin(), us.begin() + 71);
    folded.push_back(96000);
    expectNear(t.durations, folded);

    f.kernel->writes.clear();
    ASSERT_TRUE(f.device.TestStudiedSignal());
    EXPECT_TRUE(f.kernel->set(LIRC_SET_SEND_CARRIER, 38200));
    EXPECT_TRUE(f.kernel->set(LIRC_SET_SEND_DUTY_CYCLE, 33));
    ASSERT_EQ(f.kernel->writes.size(), 4u);
    expectNear(f.kernel->writes[0], {us.begin(), us.begin() + 71});
    for (int i = 1; i < 4; ++i)
        expectNear(f.kernel->writes[i], {9040, 2210, 600});
}

TEST(Lirc, ASignalLearnedByLircIsSentByATira) {
    Fixture f;
    ASSERT_TRUE(f.device.ActivateTira(0));
    const std::vector<uint32_t> records = mode2(0); // no carrier report
    QTimer::singleShot(20, [&] { f.kernel->feed(records); });
    ASSERT_TRUE(f.device.CaptureTira());
    f.device.DeActivateTira();

    FakeTira tira;
    f.t.settings.WriteIni(u"Tira", u"Device", tira.path());
    f.device.factory = [&f](const QString& target) { return MakeIrDriver(target, f.t.folder); };
    ASSERT_TRUE(f.device.ActivateTira(0));
    ASSERT_EQ(f.device.driver()->tira_transmit(1, -1, f.signal()), 0);
    ASSERT_EQ(tira.transmissions.size(), 2);
    const QByteArray& ix = tira.transmissions[0];
    EXPECT_EQ(uint8_t(ix[2]), 52); // unknown carrier: 38 kHz
    EXPECT_EQ(ix.size(), 28 + 36); // 71 durations
    EXPECT_EQ(tira.transmissions[1].size(), 28 + 2);
}

TEST(Lirc, ListensBetweenSendsAndNamesTheLearnedKey) {
    Fixture f;
    f.t.writeRemote(1, u"TV"_s, 1, {u"Power"_s, u"Odd"_s});
    const IrTiming odd{{3000, 3000, 1000, 2000, 1000, 2000, 1000}, 38000, -1};
    ASSERT_TRUE(WriteSignalFile(SignalFilePath(f.t.folder, u"TV", u"Power"),
                                SimDriver::NecSignal(0x40, 0x12)));
    ASSERT_TRUE(
        WriteSignalFile(SignalFilePath(f.t.folder, u"TV", u"Odd"), BlobFromTiming(odd)->encode()));

    auto kernel = std::make_shared<FakeKernel>();
    IrListener listener(f.t.folder, f.t.settings, f.device);
    listener.io = kernel;
    std::vector<IrCode> frames;
    std::vector<QStringList> keys;
    QObject::connect(&listener, &IrListener::frameHeard,
                     [&](const IrTiming&, const IrCode& c) { frames.push_back(c); });
    QObject::connect(
        &listener, &IrListener::keyHeard,
        [&](int slot, int button, const QString& remote, const QString& key) {
            keys.push_back({QString::number(slot), QString::number(button), remote, key});
        });
    std::vector<int> repeats;
    QObject::connect(&listener, &IrListener::keyFrame,
                     [&](const IrCode& c, int repeat, const QString&, const QString& key) {
                         if (key == u"Power" && c.scancode == 0x4012)
                             repeats.push_back(repeat);
                     });
    listener.SetListening(true);
    ASSERT_TRUE(listener.canListen());
    ASSERT_TRUE(listener.listening());
    EXPECT_TRUE(kernel->set(LIRC_SET_REC_MODE, LIRC_MODE_MODE2));

    // A held key: frame and repeats, repeat codes alone, the frame again: one report.
    kernel->feed(mode2(38200));
    ASSERT_TRUE(WaitForSignal(&listener, &IrListener::frameHeard, 2000));
    kernel->feed({LIRC_PULSE(9000), LIRC_SPACE(2250), LIRC_PULSE(560), LIRC_SPACE(96000),
                  LIRC_PULSE(9000), LIRC_SPACE(2250), LIRC_PULSE(560), LIRC_TIMEOUT(125000)});
    kernel->feed(mode2(38200));
    WaitMs(400);
    ASSERT_EQ(frames.size(), 1);
    EXPECT_EQ(CodeSpec(frames[0]), u"nec:0x4012"_s);
    EXPECT_EQ(keys, (std::vector<QStringList>{{u"1"_s, u"0"_s, u"TV"_s, u"Power"_s}}));
    // Every frame of it counted on across the messages, for lircd's clients.
    EXPECT_EQ(repeats, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));

    // The raw key, its timings a little off.
    std::vector<uint32_t> raw;
    for (size_t i = 0; i < odd.durations.size(); ++i)
        raw.push_back(i % 2 ? LIRC_SPACE(odd.durations[i] + 150)
                            : LIRC_PULSE(odd.durations[i] - 100));
    raw.push_back(LIRC_TIMEOUT(125000));
    kernel->feed(raw);
    ASSERT_TRUE(WaitForSignal(&listener, &IrListener::keyHeard, 1000));
    EXPECT_EQ(keys.back(), (QStringList{u"1"_s, u"1"_s, u"TV"_s, u"Odd"_s}));

    // Frames that began before our own send ended are not heard.
    const qint64 started = listener.elapsedMs();
    emit f.device.sendEnded();
    listener.Hear(odd, started);
    EXPECT_EQ(frames.size(), 2);

    // A Tira cannot listen without leaving the mode it sends in.
    f.t.settings.WriteIni(u"Tira", u"Device", u"/dev/ttyUSB0");
    listener.SetListening(true);
    EXPECT_FALSE(listener.canListen());
    EXPECT_FALSE(listener.listening());
}

// A 7 s signal goes out in writes the kernel takes, cut at its pauses, even a very long one.
TEST(Lirc, LongSignalsGoOutInWritesCutAtPauses) {
    Fixture f;
    IrTiming held{{}, 38000, -1};
    for (int frame = 0; frame < 120; ++frame)
        held.durations.insert(held.durations.end(),
                              {2200, 730, 740, 1460, 740, frame == 60 ? 700000u : 51000u});
    ASSERT_TRUE(WriteSignalFile(f.t.path(u"long.bin"), BlobFromTiming(held)->encode()));
    ASSERT_EQ(f.device.TransmitAndWait(f.t.path(u"long.bin"), Transceiver::Origin::Background),
              SendResult::Sent);
    size_t values = 0;
    for (const auto& w : f.kernel->writes) {
        EXPECT_EQ(w.size() % 2, 1u);
        EXPECT_LE(std::accumulate(w.begin(), w.end(), 0u), 500000u);
        values += w.size();
    }
    EXPECT_EQ(values + f.kernel->writes.size() - 1, held.frame().size());
}
