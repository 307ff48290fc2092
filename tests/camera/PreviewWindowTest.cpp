#include "camera/PreviewWindow.h"
#include "camera/Camera.h"
#include "camera/CameraDialogs.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QImage>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(PreviewWindow, ShowsTheLivePictureChangesTheCameraAndRefusesToCloseWhileInUse) {
    TempFolder t;
    ScriptedPrompt prompt;
    t.settings.WriteIni(u"Options", u"TakePic", u"1");
    t.settings.WriteIni(u"Camera", u"Device", u"test");
    Camera camera(t.folder, t.settings, prompt, t.root()); // no /dev devices here
    ASSERT_TRUE(camera.start());
    bool ending = false;
    PreviewWindow w(camera, t.folder, t.settings, [&] { return ending; });
    EXPECT_EQ(w.deviceList()->count(), 1);
    EXPECT_FALSE(w.startButton()->isEnabled());
    EXPECT_TRUE(w.stopButton()->isEnabled());

    w.show();
    QTRY_VERIFY_WITH_TIMEOUT(!w.picture()->pixmap().isNull(), 2000);

    w.capButton()->click();
    EXPECT_EQ(QImage(t.path(u"TEST.bmp")).size(), QSize(320, 240));
    w.saveButton()->click();
    EXPECT_EQ(QImage(t.path(u"test.jpg")).size(), QSize(320, 240));
    w.alwaysShowAction()->trigger();
    EXPECT_EQ(t.settings.ReadIni(u"Preview", u"AlwaysShow"), u"1");

    // Controls apply at once; the default button puts them all back.
    w.sourceAction()->trigger();
    auto* controls = w.findChild<ControlsDialog*>();
    ASSERT_TRUE(controls);
    auto* brightness = controls->findChild<QSpinBox*>(u"Brightness"_s);
    brightness->setValue(200);
    controls->findChild<QCheckBox*>(u"Mirror"_s)->click();
    emit controls->findChild<QComboBox*>(u"Power Line Frequency"_s)->activated(2);
    auto values = [&] {
        QList<int> v;
        for (const SourceControl& c : camera.controls())
            v << c.value;
        return v;
    };
    EXPECT_EQ(values(), (QList<int>{200, 1, 2}));
    controls->defaultButton()->click();
    EXPECT_EQ(values(), (QList<int>{128, 0, 1}));
    EXPECT_EQ(brightness->value(), 128);
    controls->close();

    // A new format restarts the stream, is kept, and is used on the next open.
    w.formatAction()->trigger();
    auto* format = w.findChild<FormatDialog*>();
    ASSERT_TRUE(format);
    format->formatBox()->setCurrentIndex(1);
    format->sizeBox()->setCurrentIndex(1);
    format->accept();
    const std::pair<quint32, QSize> yuyv{FourccFromText(u"YUYV"_s), QSize(1280, 720)};
    EXPECT_EQ(camera.format(), yuyv);
    EXPECT_EQ(t.settings.ReadIni(u"Camera", u"PixelFormat"), u"YUYV");
    EXPECT_EQ(t.settings.ReadIni(u"Camera", u"FrameSize"), u"1280x720");
    w.sourceAction()->trigger();
    const QList<ControlsDialog*> open = w.findChildren<ControlsDialog*>();
    ASSERT_TRUE(open.last()->isVisible());
    camera.stop(); // as a page does with the option off: the dialog goes too
    EXPECT_FALSE(open.last()->isVisible());
    EXPECT_FALSE(w.sourceAction()->isEnabled());
    ASSERT_TRUE(camera.start());
    EXPECT_EQ(camera.format(), yuyv);
    EXPECT_TRUE(prompt.shown.isEmpty());

    // The pages need the camera: closing is refused, and AlwaysShow keeps it up.
    EXPECT_FALSE(w.close());
    EXPECT_TRUE(w.isVisible());
    EXPECT_TRUE(camera.running());
    ending = true;
    EXPECT_TRUE(w.close());
    EXPECT_FALSE(camera.running());
}
