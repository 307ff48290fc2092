#include "camera/FrameSource.h"

#include <QDateTime>
#include <QPainter>

namespace {

// Seven segments per digit drawn with rectangles: text would need the fonts
// of a GUI application, which a headless run does not have.
void drawDigit(QPainter& p, int x, int y, int digit) {
    static const int segments[10] = {0x3f, 0x06, 0x5b, 0x4f, 0x66, 0x6d, 0x7d, 0x07, 0x7f, 0x6f};
    const int w = 14, h = 24, t = 3;
    const QRect rects[7] = {{x, y, w, t},
                            {x + w - t, y, t, h / 2},
                            {x + w - t, y + h / 2, t, h / 2},
                            {x, y + h - t, w, t},
                            {x, y + h / 2, t, h / 2},
                            {x, y, t, h / 2},
                            {x, y + h / 2 - t / 2, w, t}};
    for (int s = 0; s < 7; ++s)
        if (segments[digit] & (1 << s))
            p.fillRect(rects[s], Qt::white);
}

constexpr quint32 Rgb3 = 0x33424752; // "RGB3"
constexpr quint32 Yuyv = 0x56595559; // "YUYV"

} // namespace

TestPattern::TestPattern() : format_{Rgb3, QSize(320, 240)} {
    SourceControl brightness;
    brightness.id = 1;
    brightness.name = QStringLiteral("Brightness");
    brightness.maximum = 255;
    brightness.defaultValue = brightness.value = 128;
    SourceControl mirror;
    mirror.id = 2;
    mirror.name = QStringLiteral("Mirror");
    mirror.kind = SourceControl::Kind::Boolean;
    mirror.maximum = 1;
    SourceControl frequency;
    frequency.id = 3;
    frequency.name = QStringLiteral("Power Line Frequency");
    frequency.kind = SourceControl::Kind::Menu;
    frequency.maximum = 2;
    frequency.defaultValue = frequency.value = 1;
    frequency.items = {{0, QStringLiteral("Disabled")},
                       {1, QStringLiteral("50 Hz")},
                       {2, QStringLiteral("60 Hz")}};
    controls_ = {brightness, mirror, frequency};
}

bool TestPattern::setControl(quint32 id, int value) {
    for (SourceControl& c : controls_)
        if (c.id == id) {
            if (value < c.minimum || value > c.maximum)
                return false;
            c.value = value;
            return true;
        }
    return false;
}

QList<SourceFormat> TestPattern::formats() const {
    return {{Rgb3, QStringLiteral("RGB3"), {{320, 240}, {640, 480}}},
            {Yuyv, QStringLiteral("YUYV 4:2:2"), {{640, 480}, {1280, 720}}}};
}

bool TestPattern::setFormat(quint32 fourcc, QSize size) {
    for (const SourceFormat& f : formats())
        if (f.fourcc == fourcc && f.sizes.contains(size)) {
            format_ = {fourcc, size};
            return true;
        }
    return false;
}

QImage TestPattern::frame() {
    const QDateTime now = QDateTime::currentDateTime();
    QImage image(320, 240, QImage::Format_RGB888);
    QPainter p(&image);
    static const QColor bars[] = {Qt::white,   Qt::yellow, Qt::cyan, Qt::green,
                                  Qt::magenta, Qt::red,    Qt::blue, Qt::black};
    for (int i = 0; i < 8; ++i)
        p.fillRect(i * 40, 0, 40, 240, bars[i]);
    // A block that crosses the picture once in four seconds shows it moves.
    const int x = int(now.toMSecsSinceEpoch() % 4000) * 300 / 4000;
    p.fillRect(x, 90, 20, 20, Qt::darkGray);
    p.fillRect(60, 190, 200, 40, Qt::black);
    const QString time = now.toString(u"HHmmss");
    for (int i = 0; i < time.size(); ++i)
        drawDigit(p, 70 + i * 30 + (i / 2) * 6, 198, time[i].digitValue());
    return image;
}
