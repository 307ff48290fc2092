#include "remotes/IrListener.h"

#include "core/BoundedRead.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "remotes/Registry.h"

#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

#include <cerrno>
#include <fcntl.h>
#include <linux/lirc.h>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcListen, "kestrava.listen")

constexpr int RetryMs = 5000;
constexpr uint32_t DefaultTimeoutUs = 125000; // the kernel's usual receive timeout
// Records of our own send may trail its end by a little.
constexpr qint64 EchoMarginMs = 50;
// A frame this short right after a key is that key's repeat code (NEC's).
constexpr size_t RepeatCodeDurations = 3;

QByteArray stampOf(const QString& path) {
    const QFileInfo info(path);
    return QByteArray::number(info.lastModified().toMSecsSinceEpoch()) + ':' +
           QByteArray::number(info.size());
}

// Frames in a message: a space of 20 ms or more ends one (as FoldRepeats takes it).
int framesIn(const std::vector<uint32_t>& d) {
    int frames = d.empty() ? 0 : 1;
    for (size_t i = 1; i + 1 < d.size(); i += 2)
        if (d[i] >= 20000)
            ++frames;
    return frames;
}

bool sameCode(const IrCode& a, const IrCode& b) {
    return a.protocol == b.protocol && a.scancode == b.scancode && a.toggle == b.toggle &&
           a.frames == b.frames;
}
} // namespace

bool SameTimings(const std::vector<uint32_t>& learned, const std::vector<uint32_t>& heard) {
    if (learned.empty() || heard.size() < learned.size())
        return false;
    for (size_t i = 0; i < learned.size(); ++i) {
        const uint32_t a = learned[i], b = heard[i];
        const uint32_t slack = std::max<uint32_t>(a / 4, 100);
        if (b + slack < a || b > a + slack)
            return false;
    }
    return true;
}

IrListener::IrListener(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
                       QObject* parent)
    : QObject(parent), folder_(folder), settings_(settings), device_(device) {
    clock_.start();
    quiet_.setSingleShot(true);
    connect(&quiet_, &QTimer::timeout, this, &IrListener::endMessage);
    retry_.setInterval(RetryMs);
    connect(&retry_, &QTimer::timeout, this, &IrListener::open);
    const auto ended = [this] { busyEndedMs_ = clock_.elapsed(); };
    connect(&device_, &Transceiver::sendEnded, this, ended);
    connect(&device_, &Transceiver::captureEnded, this, ended);
    connect(&device_, &Transceiver::pressEnded, this, ended);
}

IrListener::~IrListener() {
    close();
}

QString IrListener::target() const {
    if (!device_.PortIsSet())
        return {};
    return device_.Target(device_.ConfiguredPort());
}

bool IrListener::canListen() const {
    const QString t = target();
    return t == u"sim" || (!t.isEmpty() && IsLircDevice(t));
}

void IrListener::SetListening(bool on) {
    on_ = on;
    update();
}

void IrListener::update() {
    const QString want = on_ && canListen() ? target() : QString();
    if (want == path_ && (fd_ >= 0 || retry_.isActive()))
        return;
    close();
    retry_.stop();
    failed_ = false;
    path_ = want;
    if (!path_.isEmpty())
        open();
    else if (on_)
        qCInfo(lcListen) << "the transceiver set cannot listen between sends";
}

void IrListener::open() {
    if (path_.isEmpty() || listening())
        return;
    if (path_ == u"sim") {
        simWatch_ = std::make_unique<QFileSystemWatcher>(QStringList{folder_.root()});
        connect(simWatch_.get(), &QFileSystemWatcher::directoryChanged, this, &IrListener::readSim);
        simLater_.setSingleShot(true);
        simLater_.setInterval(int(EchoMarginMs) * 2);
        connect(&simLater_, &QTimer::timeout, this, &IrListener::readSim, Qt::UniqueConnection);
        readSim();
        qCInfo(lcListen) << "listening on the simulator";
        return;
    }
    const auto fail = [this](const char* why) {
        if (!failed_)
            qCWarning(lcListen).noquote()
                << "cannot listen on" << path_ << "-" << why << "; trying again";
        failed_ = true;
        close();
        retry_.start();
    };
    fd_ = io->open(path_.toLocal8Bit().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0)
        return fail("cannot be opened");
    uint32_t features = 0;
    if (io->ioctl(fd_, LIRC_GET_FEATURES, &features) != 0 || !(features & LIRC_CAN_REC_MODE2))
        return fail("it has no receiver");
    uint32_t mode = LIRC_MODE_MODE2;
    io->ioctl(fd_, LIRC_SET_REC_MODE, &mode);
    uint32_t timeout = 0;
    if (io->ioctl(fd_, LIRC_GET_REC_TIMEOUT, &timeout) != 0 || timeout == 0)
        timeout = DefaultTimeoutUs;
    quiet_.setInterval(int(timeout / 1000) + 100);
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &IrListener::onReadable);
    retry_.stop();
    failed_ = false;
    qCInfo(lcListen).noquote() << "listening on" << path_;
}

void IrListener::close() {
    simWatch_.reset();
    simLater_.stop();
    quiet_.stop();
    notifier_.reset();
    if (fd_ >= 0)
        io->close(fd_);
    fd_ = -1;
    message_.finish();
}

void IrListener::onReadable() {
    uint32_t records[128];
    for (;;) {
        const ssize_t n = io->read(fd_, records, sizeof records);
        if (n > 0) {
            for (ssize_t i = 0; i < n / 4; ++i) {
                const bool wasEmpty = message_.empty();
                const bool ended = message_.take(records[i]);
                if (wasEmpty && !message_.empty())
                    messageStart_ = clock_.elapsed();
                if (ended)
                    endMessage();
                else if (!message_.empty())
                    quiet_.start();
            }
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        qCWarning(lcListen).noquote() << path_ << "has gone away; listening again when it is back";
        failed_ = true;
        close();
        retry_.start();
        return;
    }
}

void IrListener::readSim() {
    QFile file(folder_.path(u"sim-receive"_s));
    if (!file.exists())
        return;
    if (muted(clock_.elapsed())) {
        simLater_.start();
        return;
    }
    const BoundedRead read = ReadBounded(file.fileName(), 64 * 1024, {.prefix = true});
    if (!read.ok())
        return;
    const QByteArray& text = read.bytes;
    if (!text.endsWith('\n') && text.size() < 64 * 1024) {
        // Still being written: its last line is not whole yet. The folder's
        // watcher says nothing of a file that only grows, so look again.
        simLater_.start();
        return;
    }
    file.remove();
    for (const QByteArray& line : text.split('\n')) {
        QString why;
        const auto code = ParseCodeSpec(QString::fromUtf8(line.trimmed()), &why);
        const auto timing = code ? EncodeSignal(*code) : std::nullopt;
        if (timing)
            Hear(*timing, clock_.elapsed());
        else if (!line.trimmed().isEmpty())
            qCWarning(lcListen).noquote() << "sim-receive:" << why;
    }
}

void IrListener::endMessage() {
    quiet_.stop();
    if (message_.empty())
        return;
    Hear(message_.finish(), messageStart_);
}

bool IrListener::muted(qint64 startedMs) const {
    return device_.Busy() || (busyEndedMs_ >= 0 && busyEndedMs_ + EchoMarginMs >= startedMs);
}

void IrListener::Hear(const IrTiming& heard, qint64 startedMs) {
    if (heard.durations.empty() || muted(startedMs))
        return;
    const qint64 now = clock_.elapsed();
    const IrCode code = DecodeSignal(heard);
    IrTiming folded = FoldRepeats(heard);
    // Measured from the end of the last frame to the start of this one: a key
    // held long may come as several messages.
    const bool soon = haveLast_ && startedMs - lastMs_ <= RepeatGapMs;
    if (soon && (code.decoded() ? sameCode(code, lastCode_)
                                : (folded.frame().size() <= RepeatCodeDurations ||
                                   SameTimings(lastFrame_, heard.durations)))) {
        lastMs_ = now; // still held
        for (int f = framesIn(heard.durations); f > 0; --f) {
            ++repeats_;
            for (const Learned& k : lastKeys_)
                emit keyFrame(lastCode_, repeats_, k.remote, k.key);
        }
        return;
    }
    if (folded.carrierHz == 0) // receivers that do not measure it: the protocol's
        folded.carrierHz = ProtocolCarrierHz(code.protocol);
    haveLast_ = true;
    lastCode_ = code;
    lastFrame_ = folded.frame();
    lastMs_ = now;
    lastKeys_.clear();
    repeats_ = 0;
    emit frameHeard(folded, code);
    for (const Learned& k : learned()) {
        const bool match =
            k.code.decoded() ? code.decoded() && k.code.protocol == code.protocol &&
                                   k.code.scancode == code.scancode && k.code.frames == code.frames
                             : !code.decoded() && SameTimings(k.frame, heard.durations);
        if (match) {
            lastKeys_.push_back(k);
            emit keyHeard(k.slot, k.button, k.remote, k.key);
        }
    }
    // A message may hold the key's repeats already.
    const int frames = framesIn(heard.durations);
    for (const Learned& k : lastKeys_)
        for (int f = 0; f < frames; ++f)
            emit keyFrame(code, f, k.remote, k.key);
    repeats_ = std::max(frames - 1, 0);
}

// Read again whenever setting.ini or the signal folder has changed since.
const std::vector<IrListener::Learned>& IrListener::learned() {
    const QString signalDir = folder_.path(u"IRSignals"_s);
    const QByteArray stamp = stampOf(settings_.path()) + '|' + stampOf(signalDir);
    if (stamp == learnedStamp_)
        return learned_;
    learnedStamp_ = stamp;
    learned_.clear();
    for (int slot = 1; slot <= MaxRemoteId; ++slot) {
        const QString remote = settings_.Read(Key::RemoteName(slot));
        if (remote.isEmpty())
            continue;
        const std::vector<QString> buttons = ReadRemoteButtons(settings_, slot);
        for (int button = 0; button < int(buttons.size()); ++button) {
            const QString& key = buttons[size_t(button)];
            if (key.isEmpty())
                continue;
            const QString path = SignalFilePath(folder_, remote, key);
            if (!QFileInfo::exists(path))
                continue;
            Learned k{slot, button, remote, key, codes_->codeOf(path), {}};
            if (!k.code.decoded()) {
                QByteArray blob;
                QString why;
                if (ReadCheckedSignal(path, &blob, &why) != SignalRead::Ok)
                    continue;
                const auto decoded = IrBlob::decode(blob);
                if (!decoded)
                    continue;
                k.frame = TimingFromBlob(*decoded).frame();
            }
            learned_.push_back(std::move(k));
        }
    }
    return learned_;
}
