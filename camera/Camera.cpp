#include "camera/Camera.h"

#include "core/AtomicFile.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "core/Wait.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QImageWriter>
#include <QLoggingCategory>

#include <algorithm>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcCamera, "kestrava.camera")

const QString NoCameraText = u"画像をキャプチャするためのドライバが見つかりませんでした。"_s;
const QString ControlRefusedText = u"カメラがこの設定値を受け付けませんでした。"_s;
const QString FormatRefusedText = u"カメラがこのビデオフォーマットを受け付けませんでした。"_s;

QString FourccText(quint32 fourcc) {
    QString text;
    for (int i = 0; i < 4; ++i)
        text += QChar(char16_t((fourcc >> (8 * i)) & 0xff));
    return text;
}

quint32 FourccFromText(const QString& text) {
    if (text.size() != 4)
        return 0;
    quint32 fourcc = 0;
    for (int i = 0; i < 4; ++i) {
        if (text[i].unicode() < 0x20 || text[i].unicode() > 0x7e)
            return 0;
        fourcc |= quint32(text[i].unicode()) << (8 * i);
    }
    return fourcc;
}

namespace {

// A stream just started is waited for this long; a fresh frame follows within
// a frame's time.
constexpr int FrameWaitMs = 300;
constexpr int RetryMs = 1000;

// The format kept in the settings; fourcc 0 when none is (or it is garbled).
std::pair<quint32, QSize> SavedFormat(SettingsStore& settings) {
    const quint32 fourcc = FourccFromText(settings.Read(Key::CameraPixelFormat));
    const QStringList size = settings.Read(Key::CameraFrameSize).split(u'x');
    const QSize frame(size.value(0).toInt(), size.value(1).toInt());
    if (size.size() != 2 || frame.isEmpty())
        return {0, {}};
    return {fourcc, frame};
}

} // namespace

Camera::Camera(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
               QString devDir)
    : folder_(folder), settings_(settings), prompt_(prompt), devDir_(std::move(devDir)) {
    retry_.setInterval(RetryMs);
    connect(&retry_, &QTimer::timeout, this, &Camera::reopen);
}

Camera::~Camera() = default;

bool Camera::start(bool fromRequest) {
    if (wanted_)
        return true;
    if (settings_.Read(Key::CameraDevice) != u"test" && devices().isEmpty()) {
        if (fromRequest)
            prompt_.Notify(NoCameraText);
        else
            prompt_.Warning(NoCameraText);
        settings_.Write(Key::TakePic, u"0");
        return false;
    }
    if (!open(false))
        return false;
    wanted_ = true;
    emit started();
    return true;
}

bool Camera::open(bool quiet) {
    const QString want = settings_.Read(Key::CameraDevice);
    const auto [fourcc, size] = SavedFormat(settings_);
    if (want == u"test") {
        source_ = std::make_unique<TestPattern>();
        if (fourcc)
            source_->setFormat(fourcc, size);
        devicePath_ = u"test"_s;
        return true;
    }
    const QList<CaptureDevice> list = devices();
    // The camera used before is found again by its name: its number may change
    // when it is plugged back in.
    const QString name = deviceName_.isEmpty() ? want : deviceName_;
    const CaptureDevice* pick = list.isEmpty() ? nullptr : &list.first();
    for (const CaptureDevice& d : list)
        if (!name.isEmpty() && (d.name == name || d.path == name))
            pick = &d;
    if (!pick)
        return false;
    auto v4l2 = std::make_unique<V4l2Source>();
    // A format kept for another camera may not suit this one: its own choice then.
    const bool kept = fourcc && v4l2->open(pick->path, fourcc, size);
    if (fourcc && !kept && !quiet)
        qCInfo(lcCamera).noquote() << pick->path << "refuses" << FourccText(fourcc) << size;
    if (!kept && !v4l2->open(pick->path)) {
        if (!quiet)
            qCWarning(lcCamera).noquote() << pick->path << "does not stream";
        return false;
    }
    deviceName_ = pick->name;
    devicePath_ = pick->path;
    v4l2->arrived = [this] { emit frameArrived(); };
    // Told from inside the source: it is replaced later, from the timer.
    v4l2->gone = [this] { retry_.start(); };
    source_ = std::move(v4l2);
    return true;
}

void Camera::SetTakePic(bool on) {
    settings_.Write(Key::TakePic, on ? u"1" : u"0");
    if (on)
        start();
    else
        stop();
}

void Camera::reopen() {
    if (!wanted_ || (source_ && source_->alive())) {
        retry_.stop();
        return;
    }
    source_.reset();
    if (!open(true))
        return;
    retry_.stop();
    qCInfo(lcCamera).noquote() << "camera back on" << devicePath_;
}

void Camera::stop() {
    const bool was = wanted_;
    wanted_ = false;
    retry_.stop();
    source_.reset();
    if (was)
        emit stopped();
}

QImage Camera::frame() {
    // The source is read again after the wait: it may be gone by then.
    if (source_ && source_->alive() && !source_->hasFrame())
        WaitForSignal(this, &Camera::frameArrived, FrameWaitMs);
    if (source_) {
        const QImage image = source_->frame();
        if (!image.isNull())
            last_ = image; // a camera gone keeps its last picture
    }
    return last_;
}

bool Camera::saveJpeg(const QString& path) {
    const QImage image = frame();
    if (image.isNull())
        return false;
    QBuffer jpeg;
    jpeg.open(QIODevice::WriteOnly);
    QImageWriter writer(&jpeg, "jpeg");
    writer.setQuality(50);
    if (!writer.write(image))
        return false;
    QDir().mkpath(QFileInfo(path).absolutePath());
    return WriteFileAtomically(path, jpeg.data());
}

bool Camera::takePic() {
    return saveJpeg(folder_.path(u"pic/pict.jpg"));
}

QList<SourceControl> Camera::controls() const {
    return source_ ? source_->controls() : QList<SourceControl>{};
}

bool Camera::setControls(const QList<std::pair<quint32, int>>& values) {
    QList<std::pair<quint32, int>> done; // to undo, newest first
    for (const auto& [id, value] : values) {
        const QList<SourceControl> now = controls();
        const auto control = std::find_if(now.begin(), now.end(),
                                          [id = id](const SourceControl& c) { return c.id == id; });
        // One set before may have handed this control to its automatic mode.
        if (control != now.end() && control->readOnly)
            continue;
        if (control != now.end() && source_->setControl(id, value)) {
            done.prepend({id, control->value});
            continue;
        }
        for (const auto& [doneId, oldValue] : done)
            source_->setControl(doneId, oldValue);
        qCWarning(lcCamera) << "control" << id << "refused" << value;
        prompt_.Warning(ControlRefusedText);
        return false;
    }
    return true;
}

QList<SourceFormat> Camera::formats() const {
    return source_ ? source_->formats() : QList<SourceFormat>{};
}

std::pair<quint32, QSize> Camera::format() const {
    return source_ ? source_->format() : std::pair<quint32, QSize>{0, {}};
}

bool Camera::setFormat(quint32 fourcc, QSize size) {
    if (!source_ || !source_->setFormat(fourcc, size)) {
        qCWarning(lcCamera).noquote() << "format refused:" << FourccText(fourcc) << size;
        prompt_.Warning(FormatRefusedText);
        return false;
    }
    settings_.Write(Key::CameraPixelFormat, FourccText(fourcc));
    settings_.Write(Key::CameraFrameSize, u"%1x%2"_s.arg(size.width()).arg(size.height()));
    return true;
}
