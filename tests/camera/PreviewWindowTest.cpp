#include "camera/PreviewWindow.h"
#include "camera/Camera.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QAction>
#include <QImage>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(PreviewWindow, ShowsTheLivePictureAndRefusesToCloseWhileInUse) {
    TempFolder t;
    ScriptedPrompt prompt;
    t.settings.WriteIni(u"Options", u"TakePic", u"1");
    t.settings.WriteIni(u"Camera", u"Device", u"test");
    Camera camera(t.folder, t.settings, prompt, t.root()); // no /dev devices here
    ASSERT_TRUE(camera.start());
    bool ending = false;
    PreviewWindow w(camera, t.folder, t.settings, [&] { return ending; });
    EXPECT_EQ(w.windowTitle(), u"Kestrava - 画像のキャプチャ"_s);
    EXPECT_TRUE(w.windowFlags() & Qt::WindowStaysOnTopHint);
    EXPECT_EQ(w.deviceList()->count(), 1);
    EXPECT_FALSE(w.startButton()->isEnabled());
    EXPECT_TRUE(w.stopButton()->isEnabled());

    w.show();
    QTRY_VERIFY_WITH_TIMEOUT(!w.picture()->pixmap().isNull(), 2000);
    EXPECT_EQ(w.picture()->pixmap().size(), QSize(320, 240));

    w.capButton()->click();
    EXPECT_EQ(QImage(t.path(u"TEST.bmp")).size(), QSize(320, 240));
    w.saveButton()->click();
    EXPECT_EQ(QImage(t.path(u"test.jpg")).size(), QSize(320, 240));
    w.alwaysShowAction()->trigger();
    EXPECT_EQ(t.settings.ReadIni(u"Preview", u"AlwaysShow"), u"1");

    // The pages need the camera: closing is refused, and AlwaysShow keeps it up.
    EXPECT_FALSE(w.close());
    EXPECT_TRUE(w.isVisible());
    EXPECT_TRUE(camera.running());
    ending = true;
    EXPECT_TRUE(w.close());
    EXPECT_FALSE(camera.running());
}
