#include "camera/Camera.h"

#include "core/AtomicFile.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QImageWriter>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcCamera, "kestrava.camera")

const QString NoCameraText = u"画像をキャプチャするためのドライバが見つかりませんでした。"_s;

Camera::Camera(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
               QString devDir)
    : folder_(folder), settings_(settings), prompt_(prompt), devDir_(std::move(devDir)) {}

Camera::~Camera() = default;

bool Camera::start(bool fromRequest) {
    wanted_ = true;
    if (running())
        return true;
    if (settings_.ReadIni(u"Camera", u"Device") != u"test" && devices().isEmpty()) {
        wanted_ = false;
        if (fromRequest)
            prompt_.Notify(NoCameraText);
        else
            prompt_.Warning(NoCameraText);
        settings_.WriteIni(u"Options", u"TakePic", u"0");
        return false;
    }
    const bool ok = open(false);
    if (ok)
        emit started();
    return ok;
}

bool Camera::open(bool quiet) {
    const QString want = settings_.ReadIni(u"Camera", u"Device");
    if (want == u"test") {
        source_ = std::make_unique<TestPattern>();
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
    if (!v4l2->open(pick->path)) {
        if (!quiet)
            qCWarning(lcCamera).noquote() << pick->path << "does not stream";
        return false;
    }
    deviceName_ = pick->name;
    devicePath_ = pick->path;
    source_ = std::move(v4l2);
    return true;
}

void Camera::stop() {
    wanted_ = false;
    if (!source_)
        return;
    source_.reset();
    emit stopped();
}

QImage Camera::frame() {
    if (wanted_ && (!source_ || !source_->alive())) {
        source_.reset();
        open(true); // back without a restart once it is plugged in again
    }
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
