#include "infrared/TiraDevice.h"

#include "core/AtomicFile.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "core/Wait.h"
#include "infrared/TiraFacts.h"

#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcDevice, "kestrava.device")
}

const QString TiraDevice::PortUnsetText =
    u"Tiraで使用するCOMポート番号が指定されていません。　設定を行ってください。"_s;
const QString TiraDevice::CannotActivateText =
    u"Tiraを有効にできませんでした。設定を確認してください。"_s;

TiraDevice::TiraDevice(const ProgramFolder& folder_, SettingsStore& settings_, UserPrompt& prompt_,
                       QObject* parent)
    : QObject(parent), folder(folder_), settings(settings_), prompt(prompt_) {
    Timer1.setInterval(40);
    timDeactivate.setInterval(30000);
    connect(&Timer1, &QTimer::timeout, this, &TiraDevice::Timer1Tick);
    connect(&timDeactivate, &QTimer::timeout, this, [this] {
        timDeactivate.stop();
        DeActivateTira();
    });
    factory = [this](const QString& target) { return MakeIrDriver(target, folder); };
}

template <typename F> int TiraDevice::call(F f) {
    if (!driver_)
        return -1;
    IrDriver* d = driver_.get();
    ++calls_;
    int rc = f(*d);
    if (--calls_ == 0)
        retired_.clear();
    return rc;
}

// Each use gives the device a fresh 30 s; once released nothing is left to close.
void TiraDevice::restartIdle() {
    if (driver_)
        timDeactivate.start();
}

void TiraDevice::dropDriver() {
    if (calls_ > 0)
        retired_.push_back(std::move(driver_));
    driver_.reset();
}

TiraDevice::~TiraDevice() {
    Unload();
}

void TiraDevice::ClearAll() {
    SignalBuf.fill(0);
    SignalLen = 0;
}

QString TiraDevice::Target(qint16 port) const {
    QString device = settings.ReadIni(u"Tira", u"Device").trimmed();
    return device.isEmpty() ? u"/dev/ttyUSB"_s + QString::number(port) : device;
}

bool TiraDevice::ActivateTira(qint16 port) {
    timDeactivate.stop();
    Timer1.stop();
    QString target = Target(port);
    if (driver_ && driver_->target() != target) {
        driver_->tira_stop();
        driver_->tira_cleanup();
        dropDriver();
    }
    if (!driver_)
        driver_ = factory(target);
    bool ok = false;
    if (driver_) {
        LastReturnCode = qint16(driver_->tira_init());
        LastReturnCode =
            qint16(LastReturnCode + call([&](IrDriver& d) { return d.tira_start(port); }));
        ok = LastReturnCode == 0;
    }
    if (ok) {
        Timer1.start();
        TiraActive = true;
    } else {
        qCWarning(lcDevice).noquote() << "cannot open" << target;
    }
    restartIdle();
    return ok;
}

void TiraDevice::DeActivateTira() {
    if (driver_)
        LastReturnCode = qint16(driver_->tira_stop());
    Timer1.stop();
    TiraActive = false;
}

void TiraDevice::Unload() {
    Timer1.stop();
    timDeactivate.stop();
    if (CaptureWaiting == 1)
        emit captureEnded(); // a capture waiting now will not get its signal
    if (driver_) {
        LastReturnCode = qint16(driver_->tira_stop());
        LastReturnCode = qint16(driver_->tira_cleanup());
        dropDriver();
    }
    TiraActive = false;
}

bool TiraDevice::CaptureTira() {
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
        WaitForSignal(this, &TiraDevice::captureEnded, captureTimeoutMs);
        result = CaptureGot;
    }
    restartIdle();
    return result;
}

bool TiraDevice::CancelCaptureTira() {
    int rc = call([](IrDriver& d) { return d.tira_cancel_capture(); });
    const bool waiting = CaptureWaiting == 1;
    CaptureWaiting = 0;
    // A capture that is being waited for ends now, not at its time limit.
    if (waiting)
        emit captureEnded();
    return rc == 0;
}

void TiraDevice::EraseSignal() {
    SignalLen = 0;
}

QString TiraDevice::GetSignal() const {
    QString text;
    for (int i = 0; i < SignalLen; ++i)
        text += u' ' + QString::number(SignalBuf[i], 16).toUpper();
    return text;
}

void TiraDevice::Timer1Tick() {
    if (!driver_)
        return;
    if (CaptureWaiting == 1) {
        QByteArray data;
        int rc = driver_->tira_get_captured_data(&data, SignalFileSize);
        if (rc != 0) {
            qCWarning(lcDevice) << "capture failed:" << rc;
            CaptureWaiting = 0;
            emit captureEnded();
        } else if (!data.isEmpty()) {
            int n = int(std::min<qsizetype>(data.size(), SignalFileSize));
            std::copy_n(reinterpret_cast<const uint8_t*>(data.constData()), n, SignalBuf.begin());
            CaptureWaiting = 0;
            SignalLen = n;
            CaptureGot = true;
            emit captureEnded();
        }
    } else {
        driver_->tira_get_ir_data(&IrText);
    }
}

void TiraDevice::tell(Origin origin, const QString& text, bool warning) {
    if (origin == Origin::Background)
        prompt.Notify(text);
    else if (warning)
        prompt.Warning(text);
    else
        prompt.Information(text);
}

bool TiraDevice::TransmitTira(const QString& path, Origin origin) {
    timDeactivate.stop();
    QByteArray bytes;
    switch (ReadSignalFile(path, &bytes)) {
    case SignalRead::Ok:
        break;
    case SignalRead::Missing:
        qCWarning(lcDevice).noquote() << "no signal file" << path;
        restartIdle();
        return false;
    case SignalRead::Unreadable:
    case SignalRead::BadLength:
        qCWarning(lcDevice).noquote() << "unusable signal file" << path;
        restartIdle();
        return false;
    }

    if (!TiraActive) {
        if (!PortIsSet()) {
            tell(origin, PortUnsetText, true);
            if (origin == Origin::Desktop && SpecifyPort)
                SpecifyPort();
            else
                qCWarning(lcDevice) << "no transceiver port set";
        } else if (!ActivateTira(ConfiguredPort())) {
            tell(origin, CannotActivateText, false);
            return false;
        }
    }

    int rc =
        call([&](IrDriver& d) { return d.tira_transmit(TiraFacts::TransmitRepeat, -1, bytes); });
    if (rc != 0)
        qCWarning(lcDevice).noquote() << "transmission failed:" << rc << path;
    restartIdle();
    return rc == 0;
}

bool TiraDevice::PortIsSet() {
    return !settings.ReadIni(u"Tira", u"Device").trimmed().isEmpty() ||
           !settings.ReadIni(u"Tira", u"ComPort").isEmpty();
}

qint16 TiraDevice::ConfiguredPort() {
    return qint16(Val(settings.ReadIni(u"Tira", u"ComPort")));
}

bool TiraDevice::TestStudiedSignal() {
    StampSignalLength(SignalBuf, SignalLen);
    QString path = TestSignalPath(folder);
    QString error;
    if (!WriteFileAtomically(
            path, QByteArrayView(reinterpret_cast<const char*>(SignalBuf.data()), SignalFileSize),
            0644, &error)) {
        qCWarning(lcDevice).noquote() << error;
        return false;
    }
    return TransmitTira(path);
}
