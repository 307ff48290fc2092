#include "infrared/TiraSerialDriver.h"

#include "core/Wait.h"
#include "infrared/IrSignal.h"
#include "infrared/TiraFacts.h"

#include <QElapsedTimer>
#include <QLoggingCategory>

#include <cerrno>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {
Q_LOGGING_CATEGORY(lcTira, "kestrava.tira")

// More than any burst a signal file can hold; beyond it the stream is junk.
constexpr qsizetype MaxPendingInput = 16384;
constexpr size_t MaxBursts = 8;

// Marks the end of a busy section however it is left.
struct BusyGuard {
    explicit BusyGuard(bool& b) : flag(b) { flag = true; }
    ~BusyGuard() { flag = false; }
    bool& flag;
};
} // namespace

TiraSerialDriver::TiraSerialDriver(QString path, QObject* parent)
    : QObject(parent), path_(std::move(path)) {
    window_.setSingleShot(true);
    connect(&window_, &QTimer::timeout, this, &TiraSerialDriver::finishCapture);
}

TiraSerialDriver::~TiraSerialDriver() {
    tira_stop();
}

void TiraSerialDriver::fail(const char* why) {
    qCWarning(lcTira).noquote() << path_ << why;
}

int TiraSerialDriver::tira_start(int) {
    if (busy_)
        return Busy;
    tira_stop();
    fd_ = ::open(path_.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0) {
        fail("cannot be opened");
        return NotOpen;
    }
    termios tio{};
    if (tcgetattr(fd_, &tio) != 0) {
        fail("is not a serial port");
        tira_stop();
        return NotOpen;
    }
    cfmakeraw(&tio);
    tio.c_cflag |= CLOCAL | CREAD | CRTSCTS;
    tio.c_cflag &= ~(CSTOPB | PARENB);
    tio.c_cc[VMIN] = 1; // so that an empty read is EAGAIN and 0 means hung up
    tio.c_cc[VTIME] = 0;
    cfsetispeed(&tio, B9600);
    cfsetospeed(&tio, B9600);
    if (tcsetattr(fd_, TCSANOW, &tio) != 0) {
        fail("refuses the line settings");
        tira_stop();
        return NotOpen;
    }
    broken_ = false;
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &TiraSerialDriver::onReadable);
    mode_ = Mode::SixByte;

    BusyGuard guard(busy_);
    WaitMs(TiraFacts::SettleMs);
    QByteArray id;
    if (!command("IP", "OIP", TiraFacts::ReplyTimeoutMs) ||
        !expect({}, 2, TiraFacts::ReplyTimeoutMs, &id)) {
        fail("does not answer as a Tira");
        tira_stop();
        return NoReply;
    }
    const auto version = uint8_t(id[1]);
    if ((version >> 4) == 0) {
        fail("is an Ira or Tira-1, which this program does not drive");
        tira_stop();
        return Unsupported;
    }
    canTransmit_ = version & 1;
    if (!command("IR", "OK", TiraFacts::ReplyTimeoutMs)) {
        fail("does not enter its normal mode");
        tira_stop();
        return NoReply;
    }
    qCInfo(lcTira).noquote() << path_ << "open, version" << Qt::hex << version;
    return 0;
}

int TiraSerialDriver::tira_stop() {
    notifier_.reset();
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    mode_ = Mode::Closed;
    capturing_ = awaitingOic_ = false;
    in_.clear();
    captured_.clear();
    bursts_.clear();
    window_.stop();
    return 0;
}

void TiraSerialDriver::onReadable() {
    char buf[512];
    for (;;) {
        ssize_t n = ::read(fd_, buf, sizeof buf);
        if (n > 0) {
            in_.append(buf, n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        // End of file or an error: the device has gone (unplugged).
        fail("has gone away");
        broken_ = true;
        notifier_->setEnabled(false);
        break;
    }
    if (capturing_)
        parseStream();
    else if (!busy_ && in_.size() > MaxPendingInput)
        in_.clear(); // key codes nobody asked for
    emit received();
}

void TiraSerialDriver::parseStream() {
    for (;;) {
        if (awaitingOic_) {
            if (in_.size() < 3)
                return;
            qsizetype at = in_.indexOf("OIC");
            if (at < 0) {
                in_.remove(0, in_.size() - 2);
                return;
            }
            in_.remove(0, at + 3);
            awaitingOic_ = false;
        }
        TiraBurst burst;
        int used = ParseTiraBurst(in_, &burst);
        if (used == 0 && in_.size() <= MaxPendingInput)
            return;
        if (used <= 0) {
            // Out of step: start timing mode afresh.
            fail("lost step in its capture stream");
            in_.clear();
            awaitingOic_ = true;
            writeAll(QByteArrayView(TiraFacts::CaptureCommand, 4));
            return;
        }
        in_.remove(0, used);
        if (!captured_.isEmpty() || bursts_.size() >= MaxBursts)
            continue;
        if (bursts_.empty()) {
            burstClock_.start();
            window_.start(TiraFacts::CaptureWindowMs);
        }
        bursts_.push_back({std::move(burst), burstClock_.elapsed()});
    }
}

void TiraSerialDriver::finishCapture() {
    if (bursts_.empty() || !capturing_)
        return;
    // The gaps between bursts are not in the stream: they are timed here, from
    // when each burst came in less how long the next one lasted.
    IrTiming timing = TimingFromTiraBurst(bursts_[0].burst);
    for (size_t i = 1; i < bursts_.size(); ++i) {
        IrTiming next = TimingFromTiraBurst(bursts_[i].burst);
        uint64_t length = 0;
        for (uint32_t us : next.durations)
            length += us;
        int64_t gap = (bursts_[i].atMs - bursts_[i - 1].atMs) * 1000 - int64_t(length);
        timing.durations.push_back(uint32_t(std::clamp<int64_t>(gap, 5000, 500000)));
        timing.durations.insert(timing.durations.end(), next.durations.begin(),
                                next.durations.end());
    }
    bursts_.clear();
    if (auto blob = BlobFromTiming(FoldRepeats(timing)))
        captured_ = blob->encode();
    else
        fail("sent a signal with too many distinct durations");
}

bool TiraSerialDriver::writeAll(QByteArrayView bytes) {
    qsizetype done = 0;
    while (done < bytes.size() && fd_ >= 0) {
        ssize_t n = ::write(fd_, bytes.data() + done, size_t(bytes.size() - done));
        if (n > 0) {
            done += n;
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            QSocketNotifier writable(fd_, QSocketNotifier::Write);
            if (!WaitForSignal(&writable, &QSocketNotifier::activated, 1000))
                break;
        } else {
            broken_ = true;
            break;
        }
    }
    if (done < bytes.size())
        fail("cannot be written to");
    return done == bytes.size();
}

bool TiraSerialDriver::expect(QByteArrayView reply, int extra, int timeoutMs, QByteArray* tail) {
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        qsizetype at = reply.isEmpty() ? 0 : in_.indexOf(reply);
        if (at >= 0 && in_.size() >= at + reply.size() + extra) {
            if (tail)
                *tail = in_.mid(at + reply.size(), extra);
            in_.remove(0, at + reply.size() + extra);
            return true;
        }
        qint64 left = timeoutMs - clock.elapsed();
        if (broken_ || fd_ < 0 || left <= 0)
            return false;
        WaitForSignal(this, &TiraSerialDriver::received, int(left));
    }
}

bool TiraSerialDriver::command(QByteArrayView bytes, QByteArrayView reply, int timeoutMs) {
    in_.clear();
    return writeAll(bytes) && expect(reply, 0, timeoutMs);
}

int TiraSerialDriver::tira_start_capture() {
    if (mode_ == Mode::Closed || broken_)
        return NotOpen;
    if (busy_)
        return Busy;
    BusyGuard guard(busy_);
    captured_.clear();
    bursts_.clear();
    window_.stop();
    if (!command(QByteArrayView(TiraFacts::CaptureCommand, 4), "OIC", TiraFacts::ReplyTimeoutMs)) {
        fail("does not enter timing mode");
        return NoReply;
    }
    mode_ = Mode::Timing;
    capturing_ = true;
    parseStream(); // whatever came right behind the reply
    return 0;
}

int TiraSerialDriver::leaveTimingMode() {
    capturing_ = awaitingOic_ = false;
    bursts_.clear();
    window_.stop();
    if (!command("IR", "OK", TiraFacts::ReplyTimeoutMs)) {
        fail("does not leave timing mode");
        return NoReply;
    }
    mode_ = Mode::SixByte;
    return 0;
}

int TiraSerialDriver::tira_cancel_capture() {
    if (mode_ == Mode::Closed || broken_)
        return NotOpen;
    if (busy_)
        return Busy;
    BusyGuard guard(busy_);
    captured_.clear();
    return mode_ == Mode::Timing ? leaveTimingMode() : 0;
}

int TiraSerialDriver::tira_get_captured_data(QByteArray* data, int maxSize) {
    data->clear();
    if (mode_ == Mode::Closed || broken_)
        return NotOpen;
    if (!captured_.isEmpty()) {
        *data = captured_.left(maxSize);
        captured_.clear();
    }
    return 0;
}

int TiraSerialDriver::tira_get_ir_data(QString* text) {
    text->clear();
    if (mode_ == Mode::Closed || broken_)
        return NotOpen;
    // Six-byte mode: a code per recognised key press, shown as hex.
    if (mode_ == Mode::SixByte && !busy_ && in_.size() >= 6) {
        *text = QString::fromLatin1(in_.left(6).toHex().toUpper());
        in_.remove(0, 6);
    }
    return 0;
}

int TiraSerialDriver::tira_transmit(int repeat, int frequency, QByteArrayView data) {
    if (mode_ == Mode::Closed || broken_)
        return NotOpen;
    if (busy_)
        return Busy;
    if (!canTransmit_)
        return NoTransmitter;
    auto blob = IrBlob::decode(data);
    if (!blob)
        return BadSignal;
    IrTiming timing = TimingFromBlob(*blob);
    const int carrier = frequency > 0 ? frequency : timing.carrierHz;
    QByteArray first = TiraTransmitCommand(timing.frame(), carrier);
    QByteArray again = TiraTransmitCommand(timing.repeatFrame(), carrier);
    if (first.isEmpty() || (timing.repeats() && again.isEmpty()))
        return BadSignal;
    if (!timing.repeats())
        repeat = 0;

    BusyGuard guard(busy_);
    // A capture under way is picked up again after the send; one that has
    // already got its signal keeps it.
    const bool wasCapturing = capturing_ && captured_.isEmpty();
    if (mode_ == Mode::Timing && leaveTimingMode() != 0)
        return NoReply;
    auto lengthMs = [](const std::vector<uint32_t>& us) {
        uint64_t sum = 0;
        for (uint32_t d : us)
            sum += d;
        return int(sum / 1000);
    };
    int rc = 0;
    for (int i = 0; i <= std::max(0, repeat) && rc == 0; ++i) {
        if (i > 0)
            WaitMs(int(timing.gapUs() / 1000));
        const QByteArray& cmd = i == 0 ? first : again;
        int ms = lengthMs(i == 0 ? timing.frame() : timing.repeatFrame());
        if (!command(cmd, "OIX", TiraFacts::TransmitReplySlackMs + ms)) {
            fail("did not confirm a transmission");
            rc = NoReply;
        }
    }
    if (wasCapturing && rc == 0 && !broken_) {
        // Back to listening for the capture that was armed before.
        if (command(QByteArrayView(TiraFacts::CaptureCommand, 4), "OIC",
                    TiraFacts::ReplyTimeoutMs)) {
            mode_ = Mode::Timing;
            capturing_ = true;
        }
    }
    return rc;
}
