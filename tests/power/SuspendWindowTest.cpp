#include "core/Application.h"
#include "core/MainWindow.h"
#include "power/Power.h"
#include "support/FixedClock.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// The button starts the countdown window; its cancel ends the countdown
// there and then, and the window goes.
TEST(SuspendWindow, CountdownShowsAndCancels) {
    TempFolder t;
    t.settings.WriteIni(u"Options", u"PowerControl", u"1");
    FixedClock clock{QDateTime(QDate(2026, 11, 23), QTime(12, 0))};
    ScriptedPrompt prompt;
    Application app{t.folder, t.settings, clock, prompt};
    app.power->stepMs = 5;
    app.power->busAddress = u"unix:path="_s + t.path(u"no-bus");
    MainWindow window{app};
    window.ShowAtStart();

    QWidget* frm = window.findChild<QWidget*>(u"frmSuspend"_s);
    ASSERT_NE(frm, nullptr);
    EXPECT_FALSE(frm->isVisible());
    int last = 0;
    QObject::connect(app.power, &Power::countdownStep, [&](int value) {
        last = value;
        if (value != 50)
            return;
        EXPECT_TRUE(frm->isVisible());
        EXPECT_EQ(frm->windowTitle(), u"Kestrava"_s);
        EXPECT_EQ(frm->findChild<QLabel*>(u"Label1"_s)->text(), u"休止状態にします．．．"_s);
        EXPECT_EQ(frm->findChild<QProgressBar*>(u"ProgressBar1"_s)->value(), 50);
        auto* cancel = frm->findChild<QPushButton*>(u"Command1"_s);
        EXPECT_EQ(cancel->text(), u"キャンセル"_s);
        QTest::mouseClick(cancel, Qt::LeftButton);
    });
    QTest::mouseClick(window.findChild<QToolButton*>(u"cmdSuspend"_s), Qt::LeftButton);
    EXPECT_EQ(last, 50);
    EXPECT_TRUE(app.state.HibernCancel);
    EXPECT_FALSE(frm->isVisible());
}
