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
#include <libv4lconvert.h>
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

QList<SourceControl> V4l2Source::controls() const {
    QList<SourceControl> list;
    if (fd_ < 0)
        return list;
    v4l2_queryctrl query{};
    query.id = V4L2_CTRL_FLAG_NEXT_CTRL;
    for (; xioctl(fd_, VIDIOC_QUERYCTRL, &query) == 0; query.id |= V4L2_CTRL_FLAG_NEXT_CTRL) {
        SourceControl c;
        switch (query.type) {
        case V4L2_CTRL_TYPE_INTEGER:
            c.kind = SourceControl::Kind::Integer;
            break;
        case V4L2_CTRL_TYPE_BOOLEAN:
            c.kind = SourceControl::Kind::Boolean;
            break;
        case V4L2_CTRL_TYPE_MENU:
        case V4L2_CTRL_TYPE_INTEGER_MENU:
            c.kind = SourceControl::Kind::Menu;
            break;
        default:
            continue; // buttons, strings and the like have nothing to set
        }
        if (query.flags & V4L2_CTRL_FLAG_DISABLED)
            continue;
        v4l2_control value{};
        value.id = query.id;
        if (xioctl(fd_, VIDIOC_G_CTRL, &value) != 0)
            continue;
        c.id = query.id;
        c.name = QString::fromUtf8(reinterpret_cast<const char*>(query.name));
        c.minimum = query.minimum;
        c.maximum = query.maximum;
        c.step = std::max(1, query.step);
        c.defaultValue = query.default_value;
        c.value = value.value;
        c.readOnly = query.flags &
                     (V4L2_CTRL_FLAG_READ_ONLY | V4L2_CTRL_FLAG_GRABBED | V4L2_CTRL_FLAG_INACTIVE);
        for (int i = query.minimum; c.kind == SourceControl::Kind::Menu && i <= query.maximum;
             ++i) {
            v4l2_querymenu item{};
            item.id = query.id;
            item.index = quint32(i);
            if (xioctl(fd_, VIDIOC_QUERYMENU, &item) != 0)
                continue; // gaps in a menu are normal
            c.items.append({i, query.type == V4L2_CTRL_TYPE_MENU
                                   ? QString::fromUtf8(reinterpret_cast<const char*>(item.name))
                                   : QString::number(item.value)});
        }
        list.append(c);
    }
    return list;
}

bool V4l2Source::setControl(quint32 id, int value) {
    v4l2_control control{};
    control.id = id;
    control.value = value;
    return fd_ >= 0 && xioctl(fd_, VIDIOC_S_CTRL, &control) == 0;
}

QList<SourceFormat> V4l2Source::formats() const {
    QList<SourceFormat> list;
    if (fd_ < 0)
        return list;
    v4l2_fmtdesc desc{};
    desc.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    for (desc.index = 0; xioctl(fd_, VIDIOC_ENUM_FMT, &desc) == 0; ++desc.index) {
        SourceFormat f{desc.pixelformat,
                       QString::fromUtf8(reinterpret_cast<const char*>(desc.description)),
                       {}};
        v4l2_frmsizeenum size{};
        size.pixel_format = desc.pixelformat;
        for (size.index = 0; xioctl(fd_, VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
            if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
                f.sizes.append(QSize(int(size.discrete.width), int(size.discrete.height)));
                continue;
            }
            // A range of sizes: the usual ones that fall in it.
            const auto& r = size.stepwise;
            static const QSize usual[] = {{160, 120}, {320, 240},  {352, 288},  {640, 480},
                                          {800, 600}, {1024, 768}, {1280, 720}, {1920, 1080}};
            for (const QSize& s : usual)
                if (quint32(s.width()) >= r.min_width && quint32(s.width()) <= r.max_width &&
                    quint32(s.height()) >= r.min_height && quint32(s.height()) <= r.max_height &&
                    (s.width() - r.min_width) % std::max(1u, r.step_width) == 0 &&
                    (s.height() - r.min_height) % std::max(1u, r.step_height) == 0)
                    f.sizes.append(s);
            break;
        }
        list.append(f);
    }
    return list;
}

bool V4l2Source::setFormat(quint32 fourcc, QSize size) {
    const QString path = path_;
    const quint32 oldFourcc = wanted_;
    const QSize oldSize = wantedSize_;
    if (open(path, fourcc, size))
        return true;
    open(path, oldFourcc, oldSize); // the stream goes on as it was
    return false;
}

V4l2Source::~V4l2Source() {
    close();
}

bool V4l2Source::open(const QString& path, quint32 fourcc, QSize size) {
    close();
    path_ = path;
    wanted_ = fourcc;
    wantedSize_ = size;
    fd_ = v4l2_open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK);
    if (fd_ < 0)
        return false;
    v4l2_format fmt{};
    fmt.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    fmt.fmt.pix.width = fourcc ? quint32(size.width()) : 320;
    fmt.fmt.pix.height = fourcc ? quint32(size.height()) : 240;
    fmt.fmt.pix.pixelformat = fourcc ? fourcc : V4L2_PIX_FMT_RGB24;
    fmt.fmt.pix.field = V4L2_FIELD_ANY;
    const v4l2_pix_format asked = fmt.fmt.pix;
    // A chosen format the driver adjusts is refused: it is not what was picked.
    if (xioctl(fd_, VIDIOC_S_FMT, &fmt) != 0 || fmt.fmt.pix.pixelformat != asked.pixelformat ||
        (fourcc && (fmt.fmt.pix.width != asked.width || fmt.fmt.pix.height != asked.height))) {
        close();
        return false;
    }
    fourcc_ = fmt.fmt.pix.pixelformat;
    if (fourcc_ != V4L2_PIX_FMT_RGB24) {
        convert_ = v4lconvert_create(fd_);
        if (!convert_) {
            close();
            return false;
        }
    }
    format_ = fmt;
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
        used_ = buf.bytesused;
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
    if (!convert_)
        return ScaledFrame(static_cast<const uchar*>(b.start), b.length, width_, height_, stride_);
    v4l2_format rgb = format_;
    rgb.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB24;
    rgb.fmt.pix.bytesperline = quint32(width_) * 3;
    rgb.fmt.pix.sizeimage = rgb.fmt.pix.bytesperline * quint32(height_);
    QByteArray pixels(qsizetype(rgb.fmt.pix.sizeimage), Qt::Uninitialized);
    const int n = v4lconvert_convert(convert_, &format_, &rgb, static_cast<uchar*>(b.start),
                                     int(std::min(used_, b.length)),
                                     reinterpret_cast<uchar*>(pixels.data()), int(pixels.size()));
    if (n < 0)
        return {}; // a damaged frame: the last good picture stays
    return ScaledFrame(reinterpret_cast<const uchar*>(pixels.constData()), size_t(n), width_,
                       height_, width_ * 3);
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
    if (convert_)
        v4lconvert_destroy(convert_);
    convert_ = nullptr;
    v4l2_close(fd_);
    fd_ = -1;
}
