#include "camera/Camera.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// The test pattern is a 320x240 JPEG; a refused setting leaves camera and settings as they were.
TEST(Camera, TestPatternWritesAJpegAndARefusedSettingChangesNothing) {
    TempFolder t;
    ScriptedPrompt prompt;
    t.settings.WriteIni(u"Camera", u"Device", u"test");
    t.settings.WriteIni(u"Camera", u"FrameSize", u"640x"); // garbled: the camera's own
    Camera camera(t.folder, t.settings, prompt);
    ASSERT_TRUE(camera.start());
    const std::pair<quint32, QSize> rgb{FourccFromText(u"RGB3"_s), QSize(320, 240)};
    EXPECT_EQ(camera.format(), rgb);
    ASSERT_TRUE(camera.takePic());

    EXPECT_EQ(QImage::fromData(t.readFile(u"pic/pict.jpg"), "JPEG").size(), QSize(320, 240));
    EXPECT_EQ(QDir(t.path(u"pic")).entryList(QDir::Files), QStringList{u"pict.jpg"_s});
    EXPECT_TRUE(prompt.shown.isEmpty());

    // The second value is out of range: the first one set goes back too.
    EXPECT_FALSE(camera.setControls({{1, 10}, {3, 7}}));
    EXPECT_EQ(camera.controls().value(0).value, 128);
    EXPECT_FALSE(camera.setFormat(FourccFromText(u"YUYV"_s), QSize(320, 240)));
    EXPECT_EQ(camera.format(), rgb);
    EXPECT_EQ(t.settings.ReadIni(u"Camera", u"FrameSize"), u"640x");
    EXPECT_TRUE(t.settings.ReadIni(u"Camera", u"PixelFormat").isEmpty());
    EXPECT_EQ(prompt.shown,
              (QStringList{u"warning:"_s + ControlRefusedText, u"warning:"_s + FormatRefusedText}));

    // Stopped, the last picture stays and a new one is still written from it.
    camera.stop();
    EXPECT_FALSE(camera.running());
    EXPECT_TRUE(camera.takePic());
}

TEST(Camera, FramesFromTheDeviceAreScaledIntoTheirOwnPixels) {
    // A 640 x 480 frame with padded rows, left half red and right half blue.
    const int stride = 640 * 3 + 64;
    QByteArray frame(stride * 480, 0);
    for (int y = 0; y < 480; ++y)
        for (int x = 0; x < 640; ++x)
            frame[y * stride + x * 3 + (x < 320 ? 0 : 2)] = char(255);
    QImage image = ScaledFrame(reinterpret_cast<const uchar*>(frame.constData()), frame.size(), 640,
                               480, stride);
    frame.fill(0); // the buffer goes back to the driver
    ASSERT_EQ(image.size(), QSize(320, 240));
    EXPECT_EQ(image.pixelColor(10, 200), QColor(255, 0, 0));
    EXPECT_EQ(image.pixelColor(310, 10), QColor(0, 0, 255));
    EXPECT_TRUE(ScaledFrame(reinterpret_cast<const uchar*>(frame.constData()),
                            stride * 479 + 640 * 3 - 1, 640, 480, stride)
                    .isNull());
}

TEST(Camera, WithoutACameraWarnsAndSwitchesTheOptionOff) {
    TempFolder t;
    ScriptedPrompt prompt;
    t.settings.WriteIni(u"Options", u"TakePic", u"1");
    // Names that look like devices but answer no capture query are not cameras.
    QTemporaryDir dev;
    QFile(dev.filePath(u"video0"_s)).open(QIODevice::WriteOnly);
    QDir(dev.path()).mkdir(u"video1"_s);
    EXPECT_TRUE(ListCaptureDevices(dev.path()).isEmpty());

    Camera camera(t.folder, t.settings, prompt, dev.path());
    EXPECT_FALSE(camera.start());
    EXPECT_FALSE(camera.running());
    EXPECT_EQ(prompt.shown, QStringList{u"warning:"_s + NoCameraText});
    EXPECT_EQ(t.settings.ReadIni(u"Options", u"TakePic"), u"0");
    EXPECT_FALSE(camera.takePic());
    EXPECT_FALSE(QFile::exists(t.path(u"pic/pict.jpg")));
}
