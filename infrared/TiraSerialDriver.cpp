#include "infrared/TiraSerialDriver.h"

#include "core/BoundedRead.h"
#include "core/Wait.h"
#include "infrared/IrSignal.h"
#include "infrared/TiraFacts.h"

#include <QElapsedTimer>
#include <QLoggingCategory>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcTira, "kestrava.tira")

// More than any burst a signal file can hold; beyond it the stream is junk.
constexpr qsizetype MaxPendingInput = 16384;
constexpr size_t MaxBursts = 8;

} // namespace

TiraSerialDriver::TiraSerialDriver(QString path, QObject* parent)
    : QObject(parent), path_(std::move(path)) {
    window_.setSingleShot(true);
    connect(&window_, &QTimer::timeout, this, &TiraSerialDriver::finishCapture);
    stepTimer_.setSingleShot(true);
    stepTimer_.setTimerType(Qt::PreciseTimer); // pauses between sends are air time
    connect(&stepTimer_, &QTimer::timeout, this, &TiraSerialDriver::stepTimedOut);
}

TiraSerialDriver::~TiraSerialDriver() {
    done_ = nullptr; // nobody is left to hear of it
    tira_stop();
}

void TiraSerialDriver::fail(const char* why) {
    qCWarning(lcTira).noquote() << path_ << why;
}

QString TiraSerialDriver::HolderOf(const QString& path) {
    const QString real = QFileInfo(path).canonicalFilePath();
    if (real.isEmpty())
        return {};
    const QStringList pids = QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& pid : pids) {
        if (pid.toLongLong() <= 0)
            continue;
        QDir fds(u"/proc/"_s + pid + u"/fd"_s);
        for (const QFileInfo& fd : fds.entryInfoList(QDir::System | QDir::NoDotAndDotDot)) {
            if (fd.symLinkTarget() != real)
                continue;
            const BoundedRead comm = ReadBounded(u"/proc/"_s + pid + u"/comm"_s, 256);
            QString name = comm.ok() ? QString::fromLocal8Bit(comm.bytes).trimmed() : QString();
            return name + u" (pid "_s + pid + u')';
        }
    }
    return {};
}

int TiraSerialDriver::openPort() {
    const QByteArray name = QFile::encodeName(path_);
    fd_ = ::open(name.constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    const int err = errno;
    auto inUse = [this] {
        const QString holder = HolderOf(path_);
        qCWarning(lcTira).noquote()
            << path_ << "is in use by" << (holder.isEmpty() ? u"another program"_s : holder);
        problem_ = path_ + u" は他のプログラム"_s +
                   (holder.isEmpty() ? QString() : u"（"_s + holder + u"）"_s) +
                   u"が使用中です。"_s;
        tira_stop();
        return InUse;
    };
    if (fd_ < 0) {
        if (err == ENOENT || err == ENODEV || err == ENXIO) {
            qCWarning(lcTira).noquote() << path_ << "does not exist (not plugged in?)";
            problem_ = path_ + u" が見つかりません。送信機が接続されているか確かめてください。"_s;
            return Missing;
        }
        if (err == EACCES || err == EPERM) {
            qCWarning(lcTira).noquote()
                << path_ << "may not be opened by this user: join the group that owns it"
                << "(usually dialout, then log in again) or add a udev rule for the device";
            problem_ = path_ + u" を開く権限がありません。このユーザーを dialout グループに加える"
                               u"（再ログインが必要）か、udev ルールで許可してください。"_s;
            return Forbidden;
        }
        if (err == EBUSY)
            return inUse();
        qCWarning(lcTira).noquote() << path_ << "cannot be opened:" << strerror(err);
        problem_ = path_ + u" を開けません: "_s + QString::fromLocal8Bit(strerror(err));
        return NotOpen;
    }
    // Two programs talking to one Tira garble each other's exchanges: the
    // lock keeps out ours and anything that honours it, TIOCEXCL the rest.
    if (::flock(fd_, LOCK_EX | LOCK_NB) != 0)
        return inUse();
    termios tio{};
    if (tcgetattr(fd_, &tio) != 0) {
        fail("is not a serial port");
        problem_ = path_ + u" はシリアルポートではありません。"_s;
        tira_stop();
        return NotOpen;
    }
    ::ioctl(fd_, TIOCEXCL);
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
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &TiraSerialDriver::onReadable);
    mode_ = Mode::SixByte;
    return 0;
}

std::vector<TiraSerialDriver::Step> TiraSerialDriver::startSteps() {
    std::vector<Step> steps;
    steps.push_back({.timeoutMs = TiraFacts::SettleMs});
    steps.push_back({.send = "IP",
                     .reply = "OIP",
                     .extra = 2,
                     .timeoutMs = TiraFacts::ReplyTimeoutMs,
                     .why = "does not answer as a Tira",
                     .then = [this](const QByteArray& id) {
                         const auto version = uint8_t(id[1]);
                         if ((version >> 4) == 0) {
                             fail("is an Ira or Tira-1, which this program does not drive");
                             return int(Unsupported);
                         }
                         canTransmit_ = version & 1;
                         qCInfo(lcTira).noquote()
                             << path_ << "answers, version" << Qt::hex << version;
                         return 0;
                     }});
    steps.push_back({.send = "IR",
                     .reply = "OK",
                     .timeoutMs = TiraFacts::ReplyTimeoutMs,
                     .why = "does not enter its normal mode"});
    return steps;
}

void TiraSerialDriver::startAsync(int, Done done) {
    if (busy_)
        return done(Busy);
    tira_stop();
    problem_.clear();
    if (int rc = openPort(); rc != 0)
        return done(rc);
    run(startSteps(), [this, done = std::move(done)](int rc) {
        if (rc != 0) {
            if (problem_.isEmpty())
                problem_ = path_ + u" が Tira として応答しません。"_s;
            tira_stop();
        }
        done(rc);
    });
}

int TiraSerialDriver::tira_start(int port) {
    if (busy_)
        return Busy;
    return waitFor([&](Done done) { startAsync(port, std::move(done)); });
}

void TiraSerialDriver::run(std::vector<Step> steps, Done done) {
    busy_ = true;
    steps_ = std::move(steps);
    step_ = 0;
    done_ = std::move(done);
    nextStep();
}

int TiraSerialDriver::waitFor(const std::function<void(Done)>& begin) {
    bool ended = false;
    int result = 0;
    begin([&](int rc) {
        ended = true;
        result = rc;
    });
    while (!ended)
        WaitForSignal(this, &TiraSerialDriver::exchangeEnded, 1000);
    return result;
}

int TiraSerialDriver::runAndWait(std::vector<Step> steps) {
    return waitFor([&](Done done) { run(std::move(steps), std::move(done)); });
}

void TiraSerialDriver::nextStep() {
    if (step_ >= steps_.size())
        return finish(0);
    const Step& s = steps_[step_];
    if (!s.send.isEmpty()) {
        in_.clear();
        if (!writeAll(s.send))
            return finish(Io);
    }
    // Every wait on the device ends, whatever the device does.
    // The longest wait is for the reply to a whole signal of the longest kind.
    stepTimer_.start(
        std::clamp(s.timeoutMs, 0, int(MaxSignalUs / 1000) + TiraFacts::TransmitReplySlackMs));
    checkReply();
}

void TiraSerialDriver::checkReply() {
    if (!busy_ || step_ >= steps_.size() || !stepTimer_.isActive())
        return;
    const Step& s = steps_[step_];
    if (s.reply.isEmpty() && s.extra == 0)
        return; // a pause
    const qsizetype at = s.reply.isEmpty() ? 0 : in_.indexOf(s.reply);
    if (at < 0 || in_.size() < at + s.reply.size() + s.extra) {
        if (fd_ < 0) {
            fail(s.why);
            finish(Io);
        }
        return;
    }
    const QByteArray extra = in_.mid(at + s.reply.size(), s.extra);
    in_.remove(0, at + s.reply.size() + s.extra);
    stepTimer_.stop();
    const int rc = s.then ? s.then(extra) : 0;
    if (rc != 0)
        return finish(rc);
    ++step_;
    nextStep();
}

void TiraSerialDriver::stepTimedOut() {
    if (!busy_ || step_ >= steps_.size())
        return;
    const Step& s = steps_[step_];
    if (!s.reply.isEmpty() || s.extra > 0) {
        fail(s.why);
        return finish(s.optional ? 0 : int(NoReply));
    }
    const int rc = s.then ? s.then({}) : 0;
    if (rc != 0)
        return finish(rc);
    ++step_;
    nextStep();
}

void TiraSerialDriver::finish(int rc) {
    stepTimer_.stop();
    steps_.clear();
    step_ = 0;
    busy_ = false;
    Done done = std::move(done_);
    done_ = nullptr;
    if (done)
        done(rc);
    emit exchangeEnded();
}

void TiraSerialDriver::closePort() {
    // This may run inside the notifier's own signal.
    if (notifier_) {
        notifier_->setEnabled(false);
        notifier_.release()->deleteLater();
    }
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    mode_ = Mode::Closed;
    capturing_ = awaitingOic_ = false;
}

void TiraSerialDriver::letGo() {
    // A port whose device has gone is closed at once: while anyone holds it
    // the kernel gives the device another name when it comes back.
    fail("has gone away; closing it");
    closePort();
}

int TiraSerialDriver::tira_stop() {
    closePort();
    in_.clear();
    captured_.clear();
    bursts_.clear();
    window_.stop();
    if (busy_) // closed in the middle of an exchange: it ends now, as failed
        finish(NotOpen);
    return 0;
}

void TiraSerialDriver::onReadable() {
    if (fd_ < 0)
        return;
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
        letGo();
        break;
    }
    if (capturing_)
        parseStream();
    else if (!busy_ && in_.size() > MaxPendingInput)
        in_.clear(); // key codes nobody asked for
    checkReply();
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
            qCWarning(lcTira).noquote() << path_ << "cannot be written to:" << strerror(errno);
            letGo();
            break;
        }
    }
    if (done < bytes.size() && fd_ >= 0)
        fail("cannot be written to");
    return done == bytes.size();
}

int TiraSerialDriver::tira_start_capture() {
    if (mode_ == Mode::Closed)
        return NotOpen;
    if (busy_)
        return Busy;
    captured_.clear();
    bursts_.clear();
    window_.stop();
    return runAndWait({{.send = QByteArray(TiraFacts::CaptureCommand, 4),
                        .reply = "OIC",
                        .timeoutMs = TiraFacts::ReplyTimeoutMs,
                        .why = "does not enter timing mode",
                        .then = [this](const QByteArray&) {
                            mode_ = Mode::Timing;
                            capturing_ = true;
                            parseStream(); // whatever came right behind the reply
                            return 0;
                        }}});
}

TiraSerialDriver::Step TiraSerialDriver::leaveTimingMode() {
    capturing_ = awaitingOic_ = false;
    bursts_.clear();
    window_.stop();
    return {.send = "IR",
            .reply = "OK",
            .timeoutMs = TiraFacts::ReplyTimeoutMs,
            .why = "does not leave timing mode",
            .then = [this](const QByteArray&) {
                mode_ = Mode::SixByte;
                return 0;
            }};
}

int TiraSerialDriver::tira_cancel_capture() {
    if (mode_ == Mode::Closed)
        return NotOpen;
    if (busy_)
        return Busy;
    captured_.clear();
    return mode_ == Mode::Timing ? runAndWait({leaveTimingMode()}) : 0;
}

int TiraSerialDriver::tira_get_captured_data(QByteArray* data, int maxSize) {
    data->clear();
    if (mode_ == Mode::Closed)
        return NotOpen;
    if (!captured_.isEmpty()) {
        *data = captured_.left(maxSize);
        captured_.clear();
    }
    return 0;
}

int TiraSerialDriver::tira_get_ir_data(QString* text) {
    text->clear();
    if (mode_ == Mode::Closed)
        return NotOpen;
    // Six-byte mode: a code per recognised key press, shown as hex.
    if (mode_ == Mode::SixByte && !busy_ && in_.size() >= 6) {
        *text = QString::fromLatin1(in_.left(6).toHex().toUpper());
        in_.remove(0, 6);
    }
    return 0;
}

// One "IX" count holds at most 524 ms: a frame with a longer pause goes out as
// several commands, the pause waited out between them. A longer pulse cannot
// go out at all.
bool TiraSerialDriver::commandsFor(const std::vector<uint32_t>& durations, int carrierHz,
                                   std::vector<Step>* steps) {
    constexpr uint32_t LongestUs = 0xFFFF * TiraFacts::UnitUs;
    size_t begin = 0;
    while (begin < durations.size()) {
        size_t end = begin;
        uint64_t us = 0;
        while (end < durations.size() && !(end % 2 == 1 && durations[end] > LongestUs)) {
            if (end % 2 == 0 && durations[end] > LongestUs) {
                qCWarning(lcTira).noquote()
                    << path_ << "cannot send a pulse of" << durations[end] / 1000
                    << "ms: one Tira count holds at most" << LongestUs / 1000 << "ms";
                return false;
            }
            us += durations[end++];
        }
        const QByteArray cmd = TiraTransmitCommand(
            {durations.begin() + long(begin), durations.begin() + long(end)}, carrierHz);
        if (cmd.isEmpty())
            return false;
        steps->push_back({.send = cmd,
                          .reply = "OIX",
                          .timeoutMs = TiraFacts::TransmitReplySlackMs + int(us / 1000),
                          .why = "did not confirm a transmission"});
        if (end < durations.size())
            steps->push_back({.timeoutMs = int(durations[end] / 1000)});
        begin = end + 1;
    }
    return !steps->empty();
}

int TiraSerialDriver::transmitSteps(int repeat, int frequency, QByteArrayView data,
                                    std::vector<Step>* steps) {
    if (mode_ == Mode::Closed)
        return NotOpen;
    if (busy_)
        return Busy;
    if (!canTransmit_)
        return NoTransmitter;
    auto blob = IrBlob::decode(data);
    if (!blob || !SignalProblem(*blob).isEmpty())
        return BadSignal;
    IrTiming timing = TimingFromBlob(*blob);
    const int carrier = frequency > 0 ? frequency : timing.carrierHz;
    std::vector<Step> first, again;
    if (!commandsFor(timing.frame(), carrier, &first) ||
        (timing.repeats() && !commandsFor(timing.repeatFrame(), carrier, &again)))
        return BadSignal;
    if (!timing.repeats())
        repeat = 0;

    // A capture under way is picked up again after the send; one that has
    // already got its signal keeps it.
    const bool wasCapturing = capturing_ && captured_.isEmpty();
    if (mode_ == Mode::Timing)
        steps->push_back(leaveTimingMode());
    const int gapMs = int(std::min<uint32_t>(timing.gapUs() / 1000, 1000));
    for (int i = 0; i <= std::clamp(repeat, 0, 10); ++i) {
        if (i > 0)
            steps->push_back({.timeoutMs = gapMs});
        const std::vector<Step>& frame = i == 0 ? first : again;
        steps->insert(steps->end(), frame.begin(), frame.end());
    }
    if (wasCapturing) // back to listening for the capture that was armed before
        steps->push_back({.send = QByteArray(TiraFacts::CaptureCommand, 4),
                          .reply = "OIC",
                          .timeoutMs = TiraFacts::ReplyTimeoutMs,
                          .why = "does not enter timing mode again",
                          .optional = true,
                          .then = [this](const QByteArray&) {
                              mode_ = Mode::Timing;
                              capturing_ = true;
                              return 0;
                          }});
    return 0;
}

void TiraSerialDriver::transmitAsync(int repeat, int frequency, QByteArray data, Done done) {
    std::vector<Step> steps;
    if (int rc = transmitSteps(repeat, frequency, data, &steps); rc != 0)
        return done(rc);
    run(std::move(steps), std::move(done));
}

int TiraSerialDriver::tira_transmit(int repeat, int frequency, QByteArrayView data) {
    std::vector<Step> steps;
    if (int rc = transmitSteps(repeat, frequency, data, &steps); rc != 0)
        return rc;
    return runAndWait(std::move(steps));
}
