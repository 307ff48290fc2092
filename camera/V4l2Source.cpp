#include "camera/V4l2Source.h"

#include "core/Wait.h"

#include <QDir>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QSocketNotifier>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <libv4l2.h>
#include <linux/videodev2.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcV4l2, "kestrava.camera")

namespace {

int xioctl(int fd, unsigned long request, void* arg) {
    int r;
    do
        r = v4l2_ioctl(fd, request, arg);
    while (r == -1 && errno == EINTR);
    return r;
}

// A frame at most this old is good enough; a camera that sends none this long is
// not waited for.
constexpr int FrameWaitMs = 300;

} // namespace

QList<CaptureDevice> ListCaptureDevices(const QString& devDir) {
    static const QRegularExpression videoName(u"^video(\\d+)$"_s);
    QList<std::pair<int, QString>> numbered;
    for (const QString& entry : QDir(devDir).entryList(QDir::System | QDir::Files)) {
        const auto m = videoName.match(entry);
        if (m.hasMatch())
            numbered.append({m.captured(1).toInt(), devDir + u'/' + entry});
    }
    std::sort(numbered.begin(), numbered.end());
    QList<CaptureDevice> devices;
    for (const auto& [number, path] : numbered) {
        const int fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK);
        if (fd < 0)
            continue;
        v4l2_capability cap{};
        const bool ok = xioctl(fd, VIDIOC_QUERYCAP, &cap) == 0;
        ::close(fd);
        if (!ok)
            continue;
        const quint32 caps =
            (cap.capabilities & V4L2_CAP_DEVICE_CAPS) ? cap.device_caps : cap.capabilities;
        // The metadata node beside each camera captures no pictures.
        if (!(caps & V4L2_CAP_VIDEO_CAPTURE) || !(caps & V4L2_CAP_STREAMING))
            continue;
        devices.append(
            {path, QString::fromUtf8(reinterpret_cast<const char*>(cap.card)).trimmed()});
    }
    return devices;
}

namespace {

// A second handle on a device beside the streaming one: asking does not
// disturb the stream.
int openToAsk(const QString& path) {
    return v4l2_open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK);
}

} // namespace

QStringList DeviceFormats(const QString& path) {
    const int fd = openToAsk(path);
    if (fd < 0)
        return {};
    QStringList lines;
    v4l2_fmtdesc desc{};
    desc.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    for (desc.index = 0; xioctl(fd, VIDIOC_ENUM_FMT, &desc) == 0; ++desc.index) {
        QStringList sizes;
        v4l2_frmsizeenum size{};
        size.pixel_format = desc.pixelformat;
        for (size.index = 0; xioctl(fd, VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
            if (size.type != V4L2_FRMSIZE_TYPE_DISCRETE) {
                sizes << u"%1x%2 - %3x%4"_s.arg(size.stepwise.min_width)
                             .arg(size.stepwise.min_height)
                             .arg(size.stepwise.max_width)
                             .arg(size.stepwise.max_height);
                break;
            }
            sizes << u"%1x%2"_s.arg(size.discrete.width).arg(size.discrete.height);
        }
        lines << QString::fromUtf8(reinterpret_cast<const char*>(desc.description)) + u": "_s +
                     sizes.join(u", "_s);
    }
    v4l2_close(fd);
    return lines;
}

QStringList DeviceControls(const QString& path) {
    const int fd = openToAsk(path);
    if (fd < 0)
        return {};
    QStringList lines;
    v4l2_queryctrl query{};
    query.id = V4L2_CTRL_FLAG_NEXT_CTRL;
    while (xioctl(fd, VIDIOC_QUERYCTRL, &query) == 0) {
        if (!(query.flags & V4L2_CTRL_FLAG_DISABLED) && query.type != V4L2_CTRL_TYPE_CTRL_CLASS) {
            v4l2_control control{};
            control.id = query.id;
            const QString value =
                xioctl(fd, VIDIOC_G_CTRL, &control) == 0 ? QString::number(control.value) : u"?"_s;
            lines << QString::fromUtf8(reinterpret_cast<const char*>(query.name)) + u": "_s +
                         value + u" (%1 - %2)"_s.arg(query.minimum).arg(query.maximum);
        }
        query.id |= V4L2_CTRL_FLAG_NEXT_CTRL;
    }
    v4l2_close(fd);
    return lines;
}

V4l2Source::~V4l2Source() {
    close();
}

bool V4l2Source::open(const QString& path) {
    close();
    fd_ = v4l2_open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK);
    if (fd_ < 0)
        return false;
    v4l2_format fmt{};
    fmt.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    fmt.fmt.pix.width = 320;
    fmt.fmt.pix.height = 240;
    fmt.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB24;
    fmt.fmt.pix.field = V4L2_FIELD_ANY;
    if (xioctl(fd_, VIDIOC_S_FMT, &fmt) != 0 || fmt.fmt.pix.pixelformat != V4L2_PIX_FMT_RGB24) {
        close();
        return false;
    }
    width_ = int(fmt.fmt.pix.width);
    height_ = int(fmt.fmt.pix.height);
    stride_ = int(fmt.fmt.pix.bytesperline ? fmt.fmt.pix.bytesperline : fmt.fmt.pix.width * 3);
    // Five frames a second keep a fresh frame at hand for little work.
    v4l2_streamparm parm{};
    parm.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    parm.parm.capture.timeperframe = {1, 5};
    xioctl(fd_, VIDIOC_S_PARM, &parm); // a camera with a fixed rate is fine too

    v4l2_requestbuffers req{};
    req.count = 3;
    req.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    req.memory = V4L2_MEMORY_MMAP;
    if (xioctl(fd_, VIDIOC_REQBUFS, &req) != 0 || req.count < 2) {
        close();
        return false;
    }
    for (quint32 i = 0; i < req.count; ++i) {
        v4l2_buffer buf{};
        buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buf.memory = V4L2_MEMORY_MMAP;
        buf.index = i;
        if (xioctl(fd_, VIDIOC_QUERYBUF, &buf) != 0) {
            close();
            return false;
        }
        void* start =
            v4l2_mmap(nullptr, buf.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, buf.m.offset);
        if (start == MAP_FAILED) {
            close();
            return false;
        }
        buffers_.append({start, buf.length});
        if (!requeue(int(i))) {
            close();
            return false;
        }
    }
    v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (xioctl(fd_, VIDIOC_STREAMON, &type) != 0) {
        close();
        return false;
    }
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                     [this] { dequeue(); });
    return true;
}

bool V4l2Source::requeue(int index) {
    v4l2_buffer buf{};
    buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buf.memory = V4L2_MEMORY_MMAP;
    buf.index = quint32(index);
    return xioctl(fd_, VIDIOC_QBUF, &buf) == 0;
}

void V4l2Source::dequeue() {
    for (;;) {
        v4l2_buffer buf{};
        buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buf.memory = V4L2_MEMORY_MMAP;
        if (xioctl(fd_, VIDIOC_DQBUF, &buf) != 0) {
            if (errno != EAGAIN) {
                qCWarning(lcV4l2) << "camera gone:" << strerror(errno);
                close(); // the caller opens it again when it is back
            }
            return;
        }
        if (held_ >= 0 && !requeue(held_)) {
            close();
            return;
        }
        held_ = int(buf.index);
    }
}

QImage V4l2Source::frame() {
    if (fd_ < 0)
        return {};
    dequeue();
    if (held_ < 0 && notifier_)
        WaitForSignal(notifier_.get(), &QSocketNotifier::activated, FrameWaitMs);
    if (fd_ < 0 || held_ < 0)
        return {};
    const Buffer& b = buffers_[held_];
    return ScaledFrame(static_cast<const uchar*>(b.start), b.length, width_, height_, stride_);
}

QImage ScaledFrame(const uchar* rgb, size_t length, int width, int height, int stride) {
    // A driver that hands over less than it announced gives no picture.
    if (width <= 0 || height <= 0 || stride < width * 3 ||
        size_t(stride) * size_t(height - 1) + size_t(width) * 3 > length)
        return {};
    const QImage raw(rgb, width, height, stride, QImage::Format_RGB888);
    // The scaled copy owns its pixels, so the buffer can go back to the driver.
    return raw.scaled(320, 240, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .convertToFormat(QImage::Format_RGB888)
        .copy();
}

void V4l2Source::close() {
    // Closing may run inside the notifier's own signal: it goes later.
    if (notifier_) {
        notifier_->setEnabled(false);
        notifier_.release()->deleteLater();
    }
    if (fd_ < 0)
        return;
    v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    xioctl(fd_, VIDIOC_STREAMOFF, &type);
    for (const Buffer& b : buffers_)
        v4l2_munmap(b.start, b.length);
    buffers_.clear();
    held_ = -1;
    v4l2_close(fd_);
    fd_ = -1;
}
