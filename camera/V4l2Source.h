#pragma once

#include "camera/FrameSource.h"

#include <QList>
#include <QString>

#include <QSocketNotifier>

#include <linux/videodev2.h>
#include <memory>

struct CaptureDevice {
    QString path; // /dev/videoN
    QString name; // the driver's card name
};

// The video devices of devDir that can capture, in the order of their numbers.
QList<CaptureDevice> ListCaptureDevices(const QString& devDir = QStringLiteral("/dev"));

// One RGB24 frame (rows of stride bytes) scaled to 320 x 240 into pixels of
// its own; null when length is short.
QImage ScaledFrame(const uchar* rgb, size_t length, int width, int height, int stride);

struct v4lconvert_data;

// A camera streaming at a low rate. Frames are taken off the device as they
// come (the descriptor is watched, never polled); only the frame asked for is
// converted to RGB by libv4lconvert and scaled.
class V4l2Source final : public FrameSource {
public:
    ~V4l2Source() override;
    // False when the device cannot be opened or refuses to stream. Without a
    // fourcc, libv4lconvert picks the format that suits 320 x 240 best.
    bool open(const QString& path, quint32 fourcc = 0, QSize size = {});
    QImage frame() override;
    bool alive() const override { return fd_ >= 0; }
    bool hasFrame() const override { return held_ >= 0; }
    // Frames taken off the device since it was opened.
    qint64 received() const { return received_; }

    QList<SourceControl> controls() const override;
    bool setControl(quint32 id, int value) override;
    QList<SourceFormat> formats() const override;
    std::pair<quint32, QSize> format() const override { return {fourcc_, {width_, height_}}; }
    bool setFormat(quint32 fourcc, QSize size) override;

private:
    struct Buffer {
        void* start = nullptr;
        size_t length = 0;
    };
    void close();
    void lost();    // closes and tells: the device has gone
    void dequeue(); // the newest filled buffer becomes the held one
    bool requeue(int index);
    // True when libv4lconvert turns this format into RGB.
    bool convertible(const v4l2_format& format) const;

    int fd_ = -1;
    QString path_;
    quint32 wanted_ = 0; // the fourcc asked for, 0 for libv4l2's choice
    QSize wantedSize_;
    quint32 fourcc_ = 0;
    int width_ = 0, height_ = 0, stride_ = 0;
    v4l2_format format_{};
    size_t used_ = 0; // bytes of the held frame
    v4lconvert_data* convert_ = nullptr;
    QList<Buffer> buffers_;
    int held_ = -1; // buffer with the newest frame, kept out of the queue
    qint64 received_ = 0;
    int idleWakes_ = 0;                   // wake-ups in a row that brought no frame
    QImage image_;                        // the held frame, converted once asked for
    mutable QList<SourceFormat> formats_; // of path_, found once
    std::unique_ptr<QSocketNotifier> notifier_;
};
