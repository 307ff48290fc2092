#pragma once

#include "camera/FrameSource.h"

#include <QList>
#include <QString>

#include <memory>

#include <QSocketNotifier>

struct CaptureDevice {
    QString path; // /dev/videoN
    QString name; // the driver's card name
};

// The video devices of devDir that can capture, in the order of their numbers.
QList<CaptureDevice> ListCaptureDevices(const QString& devDir = QStringLiteral("/dev"));

// One frame as libv4l2 hands it over (RGB24 rows of stride bytes), scaled to
// 320 x 240 into pixels of its own; null when length is short.
QImage ScaledFrame(const uchar* rgb, size_t length, int width, int height, int stride);

// What the device at path offers, one line each: its pixel formats with their
// frame sizes, and its controls with their present values. Empty when it
// cannot be asked.
QStringList DeviceFormats(const QString& path);
QStringList DeviceControls(const QString& path);

// A camera streaming at a low rate through libv4l2, which hands every common
// format over as RGB. Only the frame asked for is scaled.
class V4l2Source final : public FrameSource {
public:
    ~V4l2Source() override;
    // False when the device cannot be opened or refuses to stream.
    bool open(const QString& path);
    QImage frame() override;
    bool alive() const override { return fd_ >= 0; }

private:
    struct Buffer {
        void* start = nullptr;
        size_t length = 0;
    };
    void close();
    void dequeue(); // the newest filled buffer becomes the held one
    bool requeue(int index);

    int fd_ = -1;
    int width_ = 0, height_ = 0, stride_ = 0;
    QList<Buffer> buffers_;
    int held_ = -1; // buffer with the newest frame, kept out of the queue
    std::unique_ptr<QSocketNotifier> notifier_;
};
