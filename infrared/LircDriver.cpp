#include "infrared/LircDriver.h"

#include "core/Wait.h"
#include "infrared/IrSignal.h"

#include <QLoggingCategory>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/lirc.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace {
Q_LOGGING_CATEGORY(lcLirc, "kestrava.lirc")

constexpr uint32_t LearnTimeoutUs = 150000;
constexpr size_t MaxSendValues = 1024; // the kernel's limits for one write
constexpr uint64_t MaxSendUs = 500000;
constexpr uint32_t MinCutUs = 5000; // a pause long enough to time on the host
// Most remote controls drive their LEDs for a third of each carrier period.
constexpr uint32_t SendDutyCyclePercent = 33;
} // namespace

int LircIo::open(const char* path, int flags) {
    return ::open(path, flags);
}
int LircIo::close(int fd) {
    return ::close(fd);
}
int LircIo::ioctl(int fd, unsigned long request, uint32_t* arg) {
    return ::ioctl(fd, request, arg);
}
ssize_t LircIo::read(int fd, void* buf, size_t size) {
    return ::read(fd, buf, size);
}
ssize_t LircIo::write(int fd, const void* buf, size_t size) {
    return ::write(fd, buf, size);
}

LircDriver::LircDriver(QString path, std::shared_ptr<LircIo> io, QObject* parent)
    : QObject(parent), path_(std::move(path)), io_(std::move(io)) {
    pause_.setSingleShot(true);
    connect(&pause_, &QTimer::timeout, this, &LircDriver::sendPiece);
    quiet_.setSingleShot(true);
    connect(&quiet_, &QTimer::timeout, this, &LircDriver::finishMessage);
}

LircDriver::~LircDriver() {
    sending_ = nullptr; // nobody is left to hear of it
    tira_stop();
}

int LircDriver::tira_start(int) {
    tira_stop();
    fd_ = io_->open(path_.toLocal8Bit().constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0) {
        qCWarning(lcLirc).noquote() << path_ << "cannot be opened";
        return NotOpen;
    }
    features_ = 0;
    if (io_->ioctl(fd_, LIRC_GET_FEATURES, &features_) != 0 ||
        !(features_ & (LIRC_CAN_SEND_PULSE | LIRC_CAN_REC_MODE2))) {
        qCWarning(lcLirc).noquote() << path_ << "is not an infrared device we can use";
        tira_stop();
        return NotOpen;
    }
    uint32_t mode = LIRC_MODE_MODE2;
    if (features_ & LIRC_CAN_REC_MODE2)
        io_->ioctl(fd_, LIRC_SET_REC_MODE, &mode);
    mode = LIRC_MODE_PULSE;
    if (features_ & LIRC_CAN_SEND_PULSE)
        io_->ioctl(fd_, LIRC_SET_SEND_MODE, &mode);
    broken_ = false;
    learning_ = false;
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &LircDriver::onReadable);
    return 0;
}

int LircDriver::tira_stop() {
    if (fd_ >= 0 && !broken_)
        setLearning(false);
    capturing_ = false;
    quiet_.stop();
    notifier_.reset();
    if (fd_ >= 0)
        io_->close(fd_);
    fd_ = -1;
    message_.finish();
    captured_.clear();
    pause_.stop();
    pieces_.clear();
    if (Done done = std::exchange(sending_, nullptr)) // closed in the middle of a send
        done(NotOpen);
    return 0;
}

bool LircDriver::learnsCloseUp() const {
    return features_ & LIRC_CAN_USE_WIDEBAND_RECEIVER;
}

void LircDriver::setLearning(bool on) {
    // The learning receiver (short range, any carrier) and carrier reports
    // are settings of the whole device: the usual receiver is put back
    // afterwards, or listening and other readers hear nothing until a reload.
    if (on == learning_)
        return;
    learning_ = on;
    uint32_t v = on ? 1 : 0;
    if (features_ & LIRC_CAN_USE_WIDEBAND_RECEIVER)
        io_->ioctl(fd_, LIRC_SET_WIDEBAND_RECEIVER, &v);
    if (features_ & LIRC_CAN_MEASURE_CARRIER)
        io_->ioctl(fd_, LIRC_SET_MEASURE_CARRIER_MODE, &v);
    if (!(features_ & LIRC_CAN_SET_REC_TIMEOUT))
        return;
    uint32_t timeout = on ? LearnTimeoutUs : savedTimeoutUs_;
    if (on && io_->ioctl(fd_, LIRC_GET_REC_TIMEOUT, &savedTimeoutUs_) != 0)
        savedTimeoutUs_ = 0;
    if (timeout > 0)
        io_->ioctl(fd_, LIRC_SET_REC_TIMEOUT, &timeout);
}

int LircDriver::tira_start_capture() {
    if (fd_ < 0 || broken_)
        return NotOpen;
    if (!(features_ & LIRC_CAN_REC_MODE2))
        return CannotReceive;
    setLearning(true);
    // A message ends at the kernel's timeout record; some devices never send
    // one (rc-loopback, with carrier reports on), so quiet for longer than
    // the receive timeout ends it too.
    uint32_t timeout = 0;
    if (io_->ioctl(fd_, LIRC_GET_REC_TIMEOUT, &timeout) != 0 || timeout == 0)
        timeout = LearnTimeoutUs;
    quiet_.setInterval(int(timeout / 1000) + 100);
    message_.finish();
    captured_.clear();
    capturing_ = true;
    return 0;
}

int LircDriver::tira_cancel_capture() {
    if (fd_ < 0 || broken_)
        return NotOpen;
    setLearning(false);
    capturing_ = false;
    captured_.clear();
    return 0;
}

void LircDriver::onReadable() {
    uint32_t records[128];
    for (;;) {
        ssize_t n = io_->read(fd_, records, sizeof records);
        if (n > 0) {
            for (ssize_t i = 0; i < n / 4; ++i)
                take(records[i]);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        qCWarning(lcLirc).noquote() << path_ << "has gone away";
        broken_ = true;
        notifier_->setEnabled(false);
        return;
    }
}

bool Mode2Message::take(uint32_t record) {
    const uint32_t value = LIRC_VALUE(record);
    switch (LIRC_MODE2(record)) {
    case LIRC_MODE2_PULSE:
        if (durations_.size() % 2 == 1)
            durations_.back() += value; // two pulses in a row: one long pulse
        else
            durations_.push_back(value);
        break;
    case LIRC_MODE2_SPACE:
        if (value >= LIRC_VALUE_MASK) {
            durations_.clear(); // data lost (older kernels)
        } else if (!durations_.empty()) {
            if (durations_.size() % 2 == 0)
                durations_.back() += value;
            else
                durations_.push_back(value);
        } // leading spaces are the idle time before the press
        break;
    case LIRC_MODE2_FREQUENCY:
        if (carrier_ == 0) // one report a message; rc-loopback sends more
            carrier_ = int(value);
        break;
    case LIRC_MODE2_OVERFLOW:
        durations_.clear();
        break;
    case LIRC_MODE2_TIMEOUT:
        return true;
    default:
        break;
    }
    return false;
}

IrTiming Mode2Message::finish() {
    if (durations_.size() % 2 == 0 && !durations_.empty())
        durations_.pop_back();
    IrTiming timing{std::exchange(durations_, {}), std::exchange(carrier_, 0), -1};
    return timing;
}

void LircDriver::take(uint32_t record) {
    if (!capturing_ || !captured_.isEmpty())
        return; // nobody is listening
    if (message_.take(record))
        return finishMessage();
    if (!message_.empty() && captured_.isEmpty())
        quiet_.start();
}

void LircDriver::finishMessage() {
    quiet_.stop();
    if (message_.empty())
        return;
    IrTiming timing = message_.finish();
    if (auto blob = BlobFromTiming(FoldRepeats(timing))) {
        captured_ = blob->encode();
        setLearning(false);
    } else {
        qCWarning(lcLirc) << "a capture with too many distinct durations was dropped";
    }
}

int LircDriver::tira_get_captured_data(QByteArray* data, int maxSize) {
    data->clear();
    if (fd_ < 0 || broken_)
        return NotOpen;
    if (!captured_.isEmpty()) {
        *data = captured_.left(maxSize);
        captured_.clear();
        capturing_ = false;
    }
    return 0;
}

int LircDriver::tira_get_ir_data(QString* text) {
    text->clear();
    return fd_ < 0 || broken_ ? int(NotOpen) : 0;
}

bool LircDriver::cut(const std::vector<uint32_t>& durations, std::vector<Piece>* pieces) {
    if (durations.empty() || durations.size() % 2 == 0)
        return false;
    // One write holds at most 1024 values and 500 ms; a longer signal is cut at
    // its pauses, which are then waited out between the writes.
    const auto& d = durations;
    size_t begin = 0;
    while (begin < d.size()) {
        size_t fits = begin, cut = 0;
        uint64_t total = 0;
        for (size_t i = begin; i < d.size(); ++i) {
            // A pause ends the write before it, however long it is.
            if ((i - begin) % 2 == 1 && d[i] >= MinCutUs)
                cut = i;
            total += d[i];
            if (i - begin + 1 > MaxSendValues || total > MaxSendUs)
                break;
            fits = i + 1;
        }
        size_t stop = fits == d.size() ? fits : cut;
        if (stop <= begin)
            return false; // no pause to cut at
        pieces->push_back({{d.begin() + long(begin), d.begin() + long(stop)},
                           stop == d.size() ? 0 : int(d[stop] / 1000)});
        begin = stop + 1;
    }
    return true;
}

bool LircDriver::write(const Piece& piece) {
    if (fd_ < 0)
        return false;
    const size_t bytes = piece.values.size() * sizeof(uint32_t);
    ssize_t n;
    do {
        n = io_->write(fd_, piece.values.data(), bytes); // returns once sent
    } while (n < 0 && errno == EINTR);
    if (n != ssize_t(bytes)) {
        qCWarning(lcLirc).noquote() << path_ << "refused a transmission:" << errno;
        return false;
    }
    return true;
}

int LircDriver::prepare(int repeat, int frequency, QByteArrayView data,
                        std::vector<Piece>* pieces) {
    if (fd_ < 0 || broken_)
        return NotOpen;
    if (!(features_ & LIRC_CAN_SEND_PULSE))
        return CannotSend;
    if (sending_)
        return Io;
    auto blob = IrBlob::decode(data);
    if (!blob)
        return BadSignal;
    IrTiming timing = TimingFromBlob(*blob);
    uint32_t carrier = uint32_t(frequency > 0          ? frequency
                                : timing.carrierHz > 0 ? timing.carrierHz
                                                       : DefaultCarrierHz);
    if ((features_ & LIRC_CAN_SET_SEND_CARRIER) &&
        io_->ioctl(fd_, LIRC_SET_SEND_CARRIER, &carrier) != 0)
        qCWarning(lcLirc).noquote() << path_ << "cannot send at" << carrier << "Hz";
    uint32_t duty = SendDutyCyclePercent;
    if (features_ & LIRC_CAN_SET_SEND_DUTY_CYCLE)
        io_->ioctl(fd_, LIRC_SET_SEND_DUTY_CYCLE, &duty);
    const auto cannotCut = [this] {
        qCWarning(lcLirc).noquote()
            << path_ << "cannot send the signal: it goes on for more than" << MaxSendUs / 1000
            << "ms or" << MaxSendValues << "durations without a pause to cut it at";
        return int(Io);
    };
    if (!cut(timing.frame(), pieces))
        return cannotCut();
    for (int i = 0; timing.repeats() && i < repeat; ++i) {
        pieces->back().pauseMs = int(std::min<uint32_t>(timing.gapUs() / 1000, 1000));
        if (!cut(timing.repeatFrame(), pieces))
            return cannotCut();
    }
    return 0;
}

int LircDriver::tira_transmit(int repeat, int frequency, QByteArrayView data) {
    std::vector<Piece> pieces;
    if (int rc = prepare(repeat, frequency, data, &pieces); rc != 0)
        return rc;
    for (const Piece& piece : pieces) {
        if (!write(piece))
            return Io;
        if (piece.pauseMs > 0)
            WaitMs(piece.pauseMs);
    }
    return 0;
}

void LircDriver::transmitAsync(int repeat, int frequency, QByteArray data, Done done) {
    std::vector<Piece> pieces;
    if (int rc = prepare(repeat, frequency, data, &pieces); rc != 0)
        return done(rc);
    pieces_ = std::move(pieces);
    piece_ = 0;
    sending_ = std::move(done);
    sendPiece();
}

void LircDriver::sendPiece() {
    if (!sending_)
        return;
    if (piece_ >= pieces_.size() || !write(pieces_[piece_])) {
        const int rc = piece_ >= pieces_.size() ? 0 : int(Io);
        pieces_.clear();
        return std::exchange(sending_, nullptr)(rc);
    }
    pause_.start(pieces_[piece_++].pauseMs);
}
