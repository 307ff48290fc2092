#include "camera/V4l2Source.h"

#include <QDir>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QSocketNotifier>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <libv4lconvert.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcV4l2, "kestrava.camera")

namespace {

int xioctl(int fd, unsigned long request, void* arg) {
    int r;
    do
        r = ::ioctl(fd, request, arg);
    while (r == -1 && errno == EINTR);
    return r;
}

// Wake-ups in a row that bring no frame before the device counts as broken: a
// descriptor that stays readable would otherwise spin the event loop.
constexpr int MaxIdleWakes = 20;

v4l2_format RgbOf(const v4l2_format& source) {
    v4l2_format rgb = source;
    rgb.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB24;
    rgb.fmt.pix.bytesperline = source.fmt.pix.width * 3;
    rgb.fmt.pix.sizeimage = rgb.fmt.pix.bytesperline * source.fmt.pix.height;
    return rgb;
}

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
    if (fd_ < 0 || !formats_.isEmpty())
        return formats_;
    QList<SourceFormat>& list = formats_;
    v4l2_fmtdesc desc{};
    desc.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    for (desc.index = 0; xioctl(fd_, VIDIOC_ENUM_FMT, &desc) == 0; ++desc.index) {
        // Only what can be turned into a picture is offered.
        v4l2_format tried{};
        tried.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        tried.fmt.pix.width = 320;
        tried.fmt.pix.height = 240;
        tried.fmt.pix.pixelformat = desc.pixelformat;
        tried.fmt.pix.field = V4L2_FIELD_ANY;
        if (xioctl(fd_, VIDIOC_TRY_FMT, &tried) != 0 ||
            tried.fmt.pix.pixelformat != desc.pixelformat || !convertible(tried))
            continue;
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

bool V4l2Source::convertible(const v4l2_format& format) const {
    const quint32 fourcc = format.fmt.pix.pixelformat;
    if (fourcc == V4L2_PIX_FMT_RGB24 || fourcc == V4L2_PIX_FMT_MJPEG ||
        fourcc == V4L2_PIX_FMT_JPEG) // blank data does not decode: taken on trust
        return true;
    // A blank frame tells whether the library knows the format.
    const v4l2_format rgb = RgbOf(format);
    QByteArray blank(qsizetype(std::max(format.fmt.pix.sizeimage,
                                        format.fmt.pix.bytesperline * format.fmt.pix.height)),
                     0);
    QByteArray out(qsizetype(rgb.fmt.pix.sizeimage), Qt::Uninitialized);
    return convert_ && !blank.isEmpty() &&
           v4lconvert_convert(convert_, &format, &rgb, reinterpret_cast<uchar*>(blank.data()),
                              int(blank.size()), reinterpret_cast<uchar*>(out.data()),
                              int(out.size())) >= 0;
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
    if (path != path_)
        formats_.clear(); // a format change opens the same device again
    path_ = path;
    wanted_ = fourcc;
    wantedSize_ = size;
    received_ = 0;
    fd_ = ::open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0)
        return false;
    convert_ = v4lconvert_create(fd_);
    if (!convert_) {
        close();
        return false;
    }
    v4l2_format fmt{};
    fmt.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (fourcc) {
        fmt.fmt.pix.width = quint32(size.width());
        fmt.fmt.pix.height = quint32(size.height());
        fmt.fmt.pix.pixelformat = fourcc;
        fmt.fmt.pix.field = V4L2_FIELD_ANY;
    } else {
        // The device's own format that gives a 320 x 240 picture best.
        v4l2_format rgb{};
        rgb.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        rgb.fmt.pix.width = 320;
        rgb.fmt.pix.height = 240;
        rgb.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB24;
        rgb.fmt.pix.field = V4L2_FIELD_ANY;
        if (v4lconvert_try_format(convert_, &rgb, &fmt) != 0) {
            close();
            return false;
        }
        fmt.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    }
    const v4l2_pix_format asked = fmt.fmt.pix;
    // A chosen format the driver adjusts is refused: it is not what was picked.
    if (xioctl(fd_, VIDIOC_S_FMT, &fmt) != 0 || fmt.fmt.pix.pixelformat != asked.pixelformat ||
        (fourcc && (fmt.fmt.pix.width != asked.width || fmt.fmt.pix.height != asked.height)) ||
        !convertible(fmt)) {
        close();
        return false;
    }
    format_ = fmt;
    fourcc_ = fmt.fmt.pix.pixelformat;
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
            mmap(nullptr, buf.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, buf.m.offset);
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
    bool got = false;
    for (;;) {
        v4l2_buffer buf{};
        buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buf.memory = V4L2_MEMORY_MMAP;
        if (xioctl(fd_, VIDIOC_DQBUF, &buf) != 0) {
            if (errno == EAGAIN)
                break; // no (further) frame yet
            qCWarning(lcV4l2).noquote() << path_ << "gone:" << strerror(errno);
            lost();
            return;
        }
        // A damaged frame goes straight back; the last good one stays.
        const bool damaged = buf.flags & V4L2_BUF_FLAG_ERROR;
        if ((damaged || held_ >= 0) && !requeue(damaged ? int(buf.index) : held_)) {
            qCWarning(lcV4l2).noquote() << path_ << "gone:" << strerror(errno);
            lost();
            return;
        }
        if (damaged)
            continue;
        held_ = int(buf.index);
        used_ = buf.bytesused;
        image_ = {};
        ++received_;
        got = true;
    }
    if (got)
        idleWakes_ = 0;
    else if (++idleWakes_ > MaxIdleWakes) {
        qCWarning(lcV4l2).noquote() << path_ << "wakes without frames; opened anew";
        lost();
        return;
    }
    if (got && arrived)
        arrived();
}

void V4l2Source::lost() {
    close();
    if (gone)
        gone();
}

QImage V4l2Source::frame() {
    if (fd_ < 0 || held_ < 0)
        return {};
    if (!image_.isNull())
        return image_; // converted once per frame
    const Buffer& b = buffers_[held_];
    const size_t used = used_ ? std::min(used_, b.length) : b.length;
    if (fourcc_ == V4L2_PIX_FMT_RGB24) {
        image_ = ScaledFrame(static_cast<const uchar*>(b.start), used, width_, height_, stride_);
        return image_;
    }
    const v4l2_format rgb = RgbOf(format_);
    QByteArray pixels(qsizetype(rgb.fmt.pix.sizeimage), Qt::Uninitialized);
    const int n =
        v4lconvert_convert(convert_, &format_, &rgb, static_cast<uchar*>(b.start), int(used),
                           reinterpret_cast<uchar*>(pixels.data()), int(pixels.size()));
    if (n < 0)
        return {}; // a damaged frame: the last good picture stays
    image_ = ScaledFrame(reinterpret_cast<const uchar*>(pixels.constData()), size_t(n), width_,
                         height_, width_ * 3);
    return image_;
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
    image_ = {};
    idleWakes_ = 0;
    if (fd_ < 0)
        return;
    v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    xioctl(fd_, VIDIOC_STREAMOFF, &type);
    for (const Buffer& b : buffers_)
        munmap(b.start, b.length);
    buffers_.clear();
    held_ = -1;
    if (convert_)
        v4lconvert_destroy(convert_);
    convert_ = nullptr;
    ::close(fd_);
    fd_ = -1;
}
