#pragma once

#include <QImage>
#include <QList>
#include <QSize>
#include <QString>

#include <functional>
#include <utility>

// One adjustable setting of a camera, as the device describes it.
struct SourceControl {
    enum class Kind { Integer, Boolean, Menu };
    quint32 id = 0;
    QString name;
    Kind kind = Kind::Integer;
    int minimum = 0, maximum = 0, step = 1, defaultValue = 0, value = 0;
    bool readOnly = false;                // shown but not changeable (now)
    QList<std::pair<int, QString>> items; // menu entries: value and name
};

// A pixel format the device sends, with the frame sizes it offers in it.
struct SourceFormat {
    quint32 fourcc = 0;
    QString name;
    QList<QSize> sizes;
};

// The four characters of a pixel format code, and back; 0 for a malformed text.
QString FourccText(quint32 fourcc);
quint32 FourccFromText(const QString& text);

// Where pictures come from: a V4L2 camera or the test pattern.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    // The newest frame, 320 x 240; null when the source has none (gone away).
    virtual QImage frame() = 0;
    // False once the device has gone: the caller opens it anew later.
    virtual bool alive() const { return true; }
    // False while a stream just started has sent no frame yet.
    virtual bool hasFrame() const { return true; }
    // Called from inside the source when a frame arrives and when the device
    // goes away; the source must not be destroyed there.
    std::function<void()> arrived, gone;

    virtual QList<SourceControl> controls() const { return {}; }
    // False when the device refuses the value; it keeps its old one then.
    virtual bool setControl(quint32 id, int value) {
        (void)id;
        (void)value;
        return false;
    }
    virtual QList<SourceFormat> formats() const { return {}; }
    // The format streaming now, as the device took it.
    virtual std::pair<quint32, QSize> format() const { return {0, {320, 240}}; }
    // Restarts the stream in the given format. False when the device refuses
    // it: the stream goes on in the old one.
    virtual bool setFormat(quint32 fourcc, QSize size) {
        (void)fourcc;
        (void)size;
        return false;
    }
};

// A moving pattern with the time drawn on it, for the demo and the tests. It
// offers a few controls and sizes of its own, and takes only what it offers.
class TestPattern final : public FrameSource {
public:
    TestPattern();
    QImage frame() override;
    QList<SourceControl> controls() const override { return controls_; }
    bool setControl(quint32 id, int value) override;
    QList<SourceFormat> formats() const override;
    std::pair<quint32, QSize> format() const override { return format_; }
    bool setFormat(quint32 fourcc, QSize size) override;

private:
    QList<SourceControl> controls_;
    std::pair<quint32, QSize> format_;
};
