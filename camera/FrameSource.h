#pragma once

#include <QImage>

// Where pictures come from: a V4L2 camera or the test pattern.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    // The newest frame, 320 x 240; null when the source has none (gone away).
    virtual QImage frame() = 0;
    // False once the device has gone: the caller opens it anew later.
    virtual bool alive() const { return true; }
};

// A moving pattern with the time drawn on it, for the demo and the tests.
class TestPattern final : public FrameSource {
public:
    QImage frame() override;
};
