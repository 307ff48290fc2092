#include "infrared/Transceiver.h"

#include "core/AtomicFile.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "core/Wait.h"
#include "infrared/HeldSignal.h"
#include "infrared/TiraFacts.h"

#include <QFileInfo>
#include <QLoggingCategory>

#include <utility>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcDevice, "kestrava.device")
}

// A held key's state while it waits and while it goes out.
struct Transceiver::Hold {
    int id = 0;
    QByteArray repeatBlob;
    uint32_t firstPeriodUs = 0, repeatPeriodUs = 0;
    std::function<void(SendResult)> started;
    std::optional<HoldEnd> stop; // asked to end
    HoldEnd end = HoldEnd::Released;
    int frames = 0;
    bool sending = false;
    bool atLimit = false; // the timer runs to the limit, not to a frame
    QElapsedTimer since;  // from the first frame's start
    qint64 startNs = 0;   // the same, on the monotonic clock
};

const QString Transceiver::PortUnsetText =
    u"Tiraで使用するCOMポート番号が指定されていません。　設定を行ってください。"_s;
const QString Transceiver::CannotActivateText =
    u"Tiraを有効にできませんでした。設定を確認してください。"_s;

Transceiver::Transceiver(const ProgramFolder& folder_, SettingsStore& settings_,
                         UserPrompt& prompt_, QObject* parent)
    : QObject(parent), folder(folder_), settings(settings_), prompt(prompt_) {
    Timer1.setInterval(40);
    timDeactivate.setInterval(30000);
    connect(&Timer1, &QTimer::timeout, this, &Transceiver::Timer1Tick);
    connect(&timDeactivate, &QTimer::timeout, this, [this] {
        timDeactivate.stop();
        DeActivateTira();
    });
    connect(&holdTimer_, &MonotonicTimer::timeout, this, [this] {
        if (!current_ || !current_->hold)
            return;
        if (!current_->hold->atLimit)
            return holdFrame();
        current_->hold->end = HoldEnd::Limit;
        finishJob(SendResult::Sent);
    });
    timReturn.setInterval(2000);
    connect(&timReturn, &QTimer::timeout, this, &Transceiver::lookForReturn);
    factory = [this](const QString& target) { return MakeIrDriver(target, folder); };
}

template <typename F> int Transceiver::call(F f) {
    if (!driver_)
        return -1;
    IrDriver* d = driver_.get();
    ++calls_;
    int rc = f(*d);
    --calls_;
    releaseRetired();
    return rc;
}

// A retired driver may still be on the stack below us (its callback is what
// runs now): it goes once everything has returned.
void Transceiver::releaseRetired() {
    if (calls_ == 0 && !retired_.empty())
        QTimer::singleShot(0, this, [this] {
            if (calls_ == 0)
                retired_.clear();
        });
}

// Each use gives the device a fresh 30 s, counted once no send is left; a
// device that failed is closed already.
void Transceiver::restartIdle() {
    if (driver_ && TiraActive && !current_ && queue_.empty())
        timDeactivate.start();
}

void Transceiver::dropDriver() {
    if (calls_ > 0)
        retired_.push_back(std::move(driver_));
    driver_.reset();
}

Transceiver::~Transceiver() {
    Unload();
}

void Transceiver::ClearAll() {
    SignalBuf.fill(0);
    SignalLen = 0;
}

QString Transceiver::Target(qint16 port) const {
    if (!testTarget_.isEmpty())
        return testTarget_;
    QString device = settings.Read(Key::TransceiverPath).trimmed();
    return device.isEmpty() ? u"/dev/ttyUSB"_s + QString::number(port) : device;
}

void Transceiver::openAsync(qint16 port, std::function<void(bool)> done) {
    timDeactivate.stop();
    Timer1.stop();
    TiraActive = false;
    const QString configured = Target(port);
    QString refused;
    const QString target = locate(configured, &refused);
    if (target.isEmpty()) {
        LastReturnCode = -1;
        problem_ = refused;
        lost(configured);
        return done(false);
    }
    if (target != configured)
        qCInfo(lcDevice).noquote() << "transceiver" << configured << "is now" << target
                                   << u"("_s + identity_.describe() + u')';
    if (driver_ && driver_->target() != target) {
        driver_->tira_stop();
        driver_->tira_cleanup();
        dropDriver();
    }
    if (!driver_)
        driver_ = factory(target);
    if (!driver_)
        return done(false);
    IrDriver* d = driver_.get();
    if (int rc = d->tira_init(); rc != 0)
        return done(opened(rc, d, target, configured));
    ++calls_;
    d->startAsync(port, [this, d, target, configured, done = std::move(done)](int rc) {
        --calls_;
        const bool ok = opened(rc, d, target, configured);
        releaseRetired();
        done(ok);
    });
}

bool Transceiver::opened(int rc, IrDriver* d, const QString& target, const QString& configured) {
    LastReturnCode = qint16(rc);
    if (rc != 0 || d != driver_.get()) {
        problem_ = d->problem();
        lost(target);
        return false;
    }
    problem_.clear();
    // What it is, to know it again if it goes; a device tried in the settings
    // is not the one set.
    if (!testing_) {
        UsbIdentity id = UsbIdentityOf(target, system);
        if (id.known() || identityFor_ != configured) {
            identity_ = std::move(id);
            identityFor_ = configured;
        }
    }
    Timer1.start();
    TiraActive = true;
    timReturn.stop();
    if (lost_) {
        lost_ = false;
        qCInfo(lcDevice).noquote() << "transceiver" << target << "is back";
        emit presenceChanged(true);
    }
    restartIdle();
    return true;
}

// Closed, to be opened from the start at the next send; while the device's
// path is missing we look for it every 2 s and open it as soon as it is back.
void Transceiver::lost(const QString& target) {
    if (driver_ && TiraActive)
        driver_->tira_stop();
    Timer1.stop();
    timDeactivate.stop();
    TiraActive = false;
    if (!lost_) {
        lost_ = true;
        qCWarning(lcDevice).noquote() << "transceiver" << target
                                      << "lost or cannot be opened; trying again at the next press";
        emit presenceChanged(false);
    }
    lostTarget_ = target;
    if (testing_)
        return;
    const QString at = locate(Target(ConfiguredPort()));
    if (at.isEmpty() || (at.startsWith(u'/') && !QFileInfo::exists(at)))
        timReturn.start();
}

QString Transceiver::locate(const QString& configured, QString* why) const {
    if (testing_ || !identity_.known() || identityFor_ != configured)
        return configured;
    const UsbIdentity here = UsbIdentityOf(configured, system);
    if (here.sameDevice(identity_))
        return configured;
    if (QString found = FindUsbSerial(identity_, system); !found.isEmpty())
        return found;
    if (!QFileInfo::exists(configured))
        return configured; // not back yet: the open says so
    // Fail closed: the name is taken by something that is not our device.
    const QString other = here.known() ? here.describe() : u"USB ではない機器"_s;
    if (why) {
        qCWarning(lcDevice).noquote() << configured << "is now" << other << "not the transceiver"
                                      << identity_.describe() << "- not using it";
        *why = configured + u" には以前の送信機（"_s + identity_.describe() +
               u"）ではない機器（"_s + other +
               u"）がつながっています。送信機をつなぎ直すか、設定で機器を選び直してください。"_s;
    }
    return {};
}

void Transceiver::lookForReturn() {
    if (!lost_ || TiraActive) {
        timReturn.stop();
        return;
    }
    const QString at = locate(Target(ConfiguredPort()));
    if (at.isEmpty() || !QFileInfo::exists(at) || current_ || opening_)
        return;
    timReturn.stop();
    opening_ = true;
    openAsync(ConfiguredPort(), [this](bool) {
        opening_ = false;
        sendNext();
    });
}

bool Transceiver::ActivateTira(qint16 port) {
    // Sends queued before come first.
    while (current_ || opening_)
        WaitForSignal(this, &Transceiver::sendEnded, 1000);
    std::optional<bool> ok;
    opening_ = true;
    openAsync(port, [this, &ok](bool r) {
        opening_ = false;
        ok = r;
        emit sendEnded();
    });
    while (!ok)
        WaitForSignal(this, &Transceiver::sendEnded, 1000);
    if (!*ok)
        qCWarning(lcDevice).noquote() << "cannot open" << Target(port);
    sendNext();
    return *ok;
}

bool Transceiver::TestTarget(const QString& target, qint16 port) {
    // Presses that come in while the candidate is tried wait for the device
    // that is set, rather than go out on the candidate and be cut off.
    testTarget_ = target;
    testing_ = true;
    const bool ok = ActivateTira(port);
    if (ok) {
        DeActivateTira();
        identity_ = {}; // the person has chosen: whatever is set is taken as it is
    }
    testTarget_.clear();
    testing_ = false;
    sendNext();
    return ok;
}

void Transceiver::DeActivateTira() {
    if (driver_)
        LastReturnCode = qint16(driver_->tira_stop());
    Timer1.stop();
    TiraActive = false;
}

void Transceiver::Unload() {
    Timer1.stop();
    timDeactivate.stop();
    holdTimer_.Stop();
    if (current_ && current_->hold && !current_->hold->sending)
        finishJob(SendResult::Failed); // between two frames: nothing of the driver's to end
    std::deque<Job> waiting = std::exchange(queue_, {});
    for (Job& job : waiting)
        job.done(SendResult::Failed);
    if (!waiting.empty())
        emit sendEnded();
    if (CaptureWaiting == 1)
        emit captureEnded(); // a capture waiting now will not get its signal
    if (driver_) {
        LastReturnCode = qint16(driver_->tira_stop());
        LastReturnCode = qint16(driver_->tira_cleanup());
        dropDriver(); // a send under way has ended with this, as failed
    }
    timReturn.stop();
    TiraActive = false;
}

bool Transceiver::CaptureTira() {
    timDeactivate.stop();
    CaptureGot = false;
    bool result = false;
    if (call([](IrDriver& d) { return d.tira_start_capture(); }) != 0) {
        CaptureWaiting = 0;
    } else {
        CaptureWaiting = 1;
        SignalLen = 0;
        // Timer1 does the work inside the wait. A driver failure ends the wait
        // early instead of letting it run out.
        WaitForSignal(this, &Transceiver::captureEnded, captureTimeoutMs);
        result = CaptureGot;
    }
    restartIdle();
    return result;
}

bool Transceiver::CancelCaptureTira() {
    int rc = call([](IrDriver& d) { return d.tira_cancel_capture(); });
    const bool waiting = CaptureWaiting == 1;
    CaptureWaiting = 0;
    // A capture that is being waited for ends now, not at its time limit.
    if (waiting)
        emit captureEnded();
    return rc == 0;
}

void Transceiver::Timer1Tick() {
    if (!driver_)
        return;
    if (CaptureWaiting == 1) {
        QByteArray data;
        int rc = driver_->tira_get_captured_data(&data, SignalFileSize);
        if (rc != 0) {
            qCWarning(lcDevice) << "capture failed:" << rc;
            CaptureWaiting = 0;
            lost(driver_->target());
            emit captureEnded();
        } else if (!data.isEmpty()) {
            int n = int(std::min<qsizetype>(data.size(), SignalFileSize));
            std::copy_n(reinterpret_cast<const uint8_t*>(data.constData()), n, SignalBuf.begin());
            CaptureWaiting = 0;
            SignalLen = n;
            CaptureGot = true;
            emit captureEnded();
        }
    } else if (driver_->tira_get_ir_data(&IrText) != 0) {
        lost(driver_->target()); // gone while idle: the next press opens it afresh
    }
}

void Transceiver::tell(Origin origin, const QString& text, bool warning) {
    if (origin == Origin::Background)
        prompt.Notify(text);
    else if (warning)
        prompt.Warning(text);
    else
        prompt.Information(text);
}

// The blob of a signal file to send; nothing (logged) when there is none.
static std::optional<QByteArray> signalToSend(const QString& path) {
    QByteArray blob;
    QString why;
    switch (ReadCheckedSignal(path, &blob, &why)) {
    case SignalRead::Ok:
        return blob;
    case SignalRead::Missing:
        qCWarning(lcDevice).noquote() << "no signal file" << path;
        break;
    case SignalRead::Unreadable:
        qCWarning(lcDevice).noquote() << "cannot read signal file" << path;
        break;
    case SignalRead::BadLength:
    case SignalRead::Damaged:
        qCWarning(lcDevice).noquote() << "damaged signal file" << path << "-" << why;
        break;
    }
    return std::nullopt;
}

void Transceiver::Enqueue(const QString& path, std::function<void(SendResult)> done,
                          SendLabel label) {
    const auto refuse = [&](SendResult result) {
        done(result);
        emit pressEnded(label, result);
    };
    std::optional<QByteArray> read = signalToSend(path);
    if (!read)
        return refuse(SendResult::Failed);
    QByteArray blob = std::move(*read);
    if (int(queue_.size()) >= MaxQueued) {
        qCWarning(lcDevice).noquote() << MaxQueued << "presses wait already; dropped" << path;
        return refuse(SendResult::Busy);
    }
    timDeactivate.stop();
    if (!label.remote.isEmpty())
        blob = toggled(path, label, std::move(blob));
    queue_.push_back({path, std::move(blob), std::move(done), std::move(label), nullptr});
    sendNext();
}

int Transceiver::StartHold(const QString& path, SendLabel label,
                           std::function<void(HoldOutcome)> ended,
                           std::function<void(SendResult)> started) {
    auto hold = std::make_shared<Hold>();
    hold->started = std::move(started);
    auto done = [hold, ended = std::move(ended)](SendResult r) {
        if (hold->started) // the first frame never went out
            std::exchange(hold->started, nullptr)(r);
        ended({r, hold->frames, hold->since.isValid() ? int(hold->since.elapsed()) : 0,
               r == SendResult::Sent ? hold->end : HoldEnd::Failed});
    };
    const auto refuse = [&](SendResult result) {
        done(result);
        emit pressEnded(label, result);
        return 0;
    };
    std::optional<QByteArray> blob = signalToSend(path);
    if (!blob)
        return refuse(SendResult::Failed);
    if (int(queue_.size()) >= MaxQueued) {
        qCWarning(lcDevice).noquote() << MaxQueued << "presses wait already; dropped" << path;
        return refuse(SendResult::Busy);
    }
    // One press: the toggle flips for its first frame and stays for the rest.
    if (!label.remote.isEmpty())
        blob = toggled(path, label, std::move(*blob));
    const auto stored = IrBlob::decode(*blob);
    const IrTiming timing = stored ? TimingFromBlob(*stored) : IrTiming{};
    const auto held = HeldSignalOf(timing, DecodeSignal(timing));
    const auto first = held ? BlobFromTiming(held->first) : std::nullopt;
    const auto repeat = held ? BlobFromTiming(held->repeat) : std::nullopt;
    if (!first || !repeat) {
        qCWarning(lcDevice).noquote() << "cannot hold" << path;
        return refuse(SendResult::Failed);
    }
    hold->id = ++lastHold_;
    hold->repeatBlob = repeat->encode();
    hold->firstPeriodUs = held->firstPeriodUs;
    hold->repeatPeriodUs = held->repeatPeriodUs;
    timDeactivate.stop();
    queue_.push_back({path, first->encode(), std::move(done), std::move(label), hold});
    sendNext();
    return hold->id;
}

bool Transceiver::StopHold(int id, HoldEnd why) {
    if (current_ && current_->hold && current_->hold->id == id) {
        Hold& h = *current_->hold;
        if (h.stop)
            return false;
        h.stop = why;
        if (!h.sending && h.frames > 0) { // between frames; else after the one going out
            h.end = why;
            finishJob(SendResult::Sent);
        }
        return true;
    }
    for (Job& job : queue_)
        if (job.hold && job.hold->id == id && !job.hold->stop) {
            job.hold->stop = why;
            return true;
        }
    return false;
}

// Each frame of a hold is a send of its own, so that its start is ours to
// time: the period runs from the first frame's start.
void Transceiver::holdFrame() {
    Hold& h = *current_->hold;
    if (!driver_ || !TiraActive)
        return finishJob(SendResult::Failed);
    if (h.frames == 0) {
        h.since.start();
        h.startNs = MonotonicTimer::NowNs();
    }
    h.sending = true;
    IrDriver* d = driver_.get();
    ++calls_;
    d->transmitAsync(0, -1, h.frames == 0 ? current_->blob : h.repeatBlob, [this, d](int rc) {
        --calls_;
        LastReturnCode = qint16(rc);
        if (rc != 0) {
            qCWarning(lcDevice).noquote() << "held transmission failed:" << rc;
            if (d == driver_.get())
                lost(d->target());
        }
        releaseRetired();
        holdSent(rc);
    });
}

void Transceiver::holdSent(int rc) {
    if (!current_ || !current_->hold)
        return; // ended meanwhile
    if (rc != 0)
        return finishJob(SendResult::Failed);
    const std::shared_ptr<Hold> hold = current_->hold;
    Hold& h = *hold;
    h.sending = false;
    if (++h.frames == 1 && h.started)
        std::exchange(h.started, nullptr)(SendResult::Sent);
    if (!current_ || current_->hold != hold)
        return;
    if (h.stop) {
        h.end = *h.stop;
        return finishJob(SendResult::Sent);
    }
    // On the first frame's timeline, so that a late frame makes the next no later.
    const qint64 nextUs = qint64(h.firstPeriodUs) + qint64(h.frames - 1) * h.repeatPeriodUs;
    h.atLimit = nextUs >= qint64(holdLimitMs) * 1000;
    const qint64 atUs = h.atLimit ? qint64(holdLimitMs) * 1000 : nextUs;
    holdTimer_.StartAt(h.startNs + atUs * 1000);
}

void Transceiver::EnqueueTiming(const IrTiming& timing, const QString& what,
                                std::function<void(SendResult)> done, SendLabel label) {
    const auto refuse = [&](SendResult result) {
        done(result);
        emit pressEnded(label, result);
    };
    const std::optional<IrBlob> blob = BlobFromTiming(timing);
    const QString problem = blob ? SignalProblem(*blob) : u"too many durations"_s;
    if (!problem.isEmpty()) {
        qCWarning(lcDevice).noquote() << "cannot send" << what << "-" << problem;
        return refuse(SendResult::Failed);
    }
    if (int(queue_.size()) >= MaxQueued) {
        qCWarning(lcDevice).noquote() << MaxQueued << "presses wait already; dropped" << what;
        return refuse(SendResult::Busy);
    }
    timDeactivate.stop();
    queue_.push_back({what, blob->encode(), std::move(done), std::move(label), nullptr});
    sendNext();
}

// The first send of a remote goes out with the toggle stored; each later
// press has it flipped. The frame is written afresh from its decode, on the
// stored carrier.
QByteArray Transceiver::toggled(const QString& path, const SendLabel& label, QByteArray blob) {
    IrCode code = codes_.codeOf(path);
    if (!HasToggle(code.protocol))
        return blob;
    if (const auto last = toggles_.constFind(label.remote); last != toggles_.cend())
        code.toggle = label.again ? *last : !*last;
    toggles_.insert(label.remote, code.toggle);
    const auto stored = IrBlob::decode(blob);
    auto timing = EncodeSignal(code);
    if (!stored || !timing)
        return blob;
    auto fresh = BlobFromTiming(*timing);
    if (!fresh)
        return blob;
    fresh->pulsePeriodNs = stored->pulsePeriodNs;
    return fresh->encode();
}

void Transceiver::sendNext() {
    if (current_ || opening_ || testing_ || queue_.empty())
        return;
    current_ = std::move(queue_.front());
    queue_.pop_front();
    auto transmit = [this] {
        if (current_->hold)
            return holdFrame();
        IrDriver* d = driver_.get();
        ++calls_;
        d->transmitAsync(TiraFacts::TransmitRepeat, -1, current_->blob, [this, d](int rc) {
            --calls_;
            LastReturnCode = qint16(rc);
            if (rc != 0) {
                qCWarning(lcDevice).noquote()
                    << "transmission failed:" << rc << (current_ ? current_->path : QString());
                if (d == driver_.get())
                    lost(d->target());
            }
            releaseRetired();
            finishJob(rc == 0 ? SendResult::Sent : SendResult::Failed);
        });
    };
    if (TiraActive && driver_)
        return transmit();
    if (!PortIsSet())
        return finishJob(SendResult::NotOpened);
    openAsync(ConfiguredPort(), [this, transmit](bool ok) {
        if (ok)
            transmit();
        else
            finishJob(SendResult::NotOpened);
    });
}

void Transceiver::finishJob(SendResult result) {
    if (!current_)
        return;
    Job job = std::move(*current_);
    current_.reset();
    holdTimer_.Stop();
    restartIdle();
    job.done(result);
    emit pressEnded(job.label, result);
    emit sendEnded();
    // The next one starts from the event loop, not inside this one's callback.
    QTimer::singleShot(0, this, &Transceiver::sendNext);
}

SendResult Transceiver::TransmitAndWait(const QString& path, Origin origin, SendLabel label) {
    if (label.source.isEmpty())
        label.source = origin == Origin::Desktop ? u"window"_s : u"page"_s;
    if (!TiraActive && !PortIsSet()) {
        tell(origin, PortUnsetText, true);
        if (origin == Origin::Desktop && SpecifyPort)
            SpecifyPort();
        else
            qCWarning(lcDevice) << "no transceiver port set";
        emit pressEnded(label, SendResult::NotOpened);
        return SendResult::NotOpened;
    }
    std::optional<SendResult> result;
    Enqueue(
        path, [&result](SendResult r) { result = r; }, std::move(label));
    // Presses that come meanwhile wait nested inside this; each loop ends
    // when its own send has, and the outer ones return as these unwind.
    while (!result)
        WaitForSignal(this, &Transceiver::sendEnded, 1000);
    if (*result == SendResult::NotOpened)
        prompt.Notice(u"device"_s, CannotActivateMessage());
    return *result;
}

QString Transceiver::CannotActivateMessage() const {
    return problem_.isEmpty() ? CannotActivateText : CannotActivateText + u"\n"_s + problem_;
}

bool Transceiver::PortIsSet() {
    return !settings.Read(Key::TransceiverPath).trimmed().isEmpty() ||
           !settings.Read(Key::ComPort).isEmpty();
}

qint16 Transceiver::ConfiguredPort() {
    return qint16(Val(settings.Read(Key::ComPort)));
}

bool Transceiver::TestStudiedSignal() {
    StampSignalLength(SignalBuf, SignalLen);
    QString path = TestSignalPath(folder);
    QString error;
    if (!WriteFileAtomically(
            path, QByteArrayView(reinterpret_cast<const char*>(SignalBuf.data()), SignalFileSize),
            0644, &error)) {
        qCWarning(lcDevice).noquote() << error;
        return false;
    }
    return TransmitTira(path, Origin::Desktop, {u"learning"_s, {}, {}});
}
