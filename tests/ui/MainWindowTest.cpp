#include "desktop/MainWindow.h"
#include "power/Power.h"
#include "support/Desktop.h"

#include <QAction>
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Desk : Desktop {
    QString ini(const char16_t* key) { return t.settings.ReadIni(u"Pos", key); }
    void minimise() {
        click(u"Command11"_s);
        QTest::qWait(0);
        QCoreApplication::processEvents();
    }
};

} // namespace

// The menu switch changes only the height (2704 / 2070 twips), not the place.
TEST(MainWindow, MenuSwitchDeviceListAndNextReservation) {
    Desk d;
    d.t.settings.WriteIni(u"Remote-1", u"Device", u"テレビ");
    d.t.settings.WriteIni(u"Remote-3", u"Device", u"エアコン");
    d.window->move(120, 80);
    d.window->ShowAtStart();
    EXPECT_EQ(d.window->height(), 2070 / 15);

    d.click(u"Command1_0"_s);
    EXPECT_EQ(d.window->height(), 2704 / 15);
    EXPECT_EQ(d.window->pos(), QPoint(120, 80));
    EXPECT_EQ(d.window->windowTitle(), u"Kestrava"_s);
    EXPECT_TRUE(d.window->findChild<QMenuBar*>()->isVisible());
    EXPECT_TRUE(d.find(u"Command1_1"_s)->isVisible());
    QSignalSpy setup(&d.app.events, &ProgramEvents::setupRequested);
    d.window->MTira->trigger();
    EXPECT_EQ(setup.size(), 1);
    d.window->MVersion->trigger();
    auto* link = d.window->findChild<QDialog*>(u"frmAbout"_s)->findChild<QLabel*>(u"lblLink"_s);
    ASSERT_TRUE(link && link->isVisible());
    EXPECT_TRUE(link->text().contains(d.find<QLabel>(u"lblAddr"_s)->text() + u"/"_s));

    d.click(u"Command1_1"_s);
    EXPECT_FALSE(d.window->findChild<QMenuBar*>()->isVisible());
    EXPECT_EQ(d.window->height(), 2070 / 15);
    EXPECT_EQ(d.window->pos(), QPoint(120, 80));
    EXPECT_TRUE(d.window->windowTitle().isEmpty());

    // The device list follows the registry, also changed elsewhere, opens a remote and hides.
    auto* combo = d.find<QComboBox>(u"cmbDeviceName"_s);
    EXPECT_FALSE(combo->isVisible());

    d.t.settings.WriteIni(u"Remote-4", u"Device", u"ビデオ");
    d.click(u"cmdRemocon"_s);
    EXPECT_TRUE(combo->isVisible());
    ASSERT_EQ(combo->count(), 3);
    EXPECT_EQ(combo->itemText(2), u"ビデオ"_s);
    QSignalSpy requested(d.window.get(), &MainWindow::remoteWindowRequested);
    emit combo->activated(1);
    EXPECT_EQ(requested.value(0), (QVariantList{u"エアコン"_s, 3}));
    EXPECT_TRUE(combo->isVisible());

    // Another process (kestrava --import) adds a remote: the list follows.
    SettingsStore(d.t.folder.settingsPath()).WriteIni(u"Remote-2", u"Device", u"ラジオ");
    ASSERT_TRUE(QTest::qWaitFor([&] { return combo->count() == 4; }, 3000));
    EXPECT_EQ(combo->itemText(1), u"ラジオ"_s);

    d.window->setComboHideMs(1);
    QTRY_VERIFY_WITH_TIMEOUT(!combo->isVisible(), 2000);

    // 次の予約 follows the grid, and a new minute moves a daily row that came due to tomorrow.
    auto* next = d.find<QLabel>(u"lblTime"_s);
    d.app.scheduler.Tick();
    EXPECT_EQ(next->text(), QString());

    d.t.writeFile(u"reserve/1111111 12_01"_s, "A|a\r\n");
    d.t.writeFile(u"reserve/2026_11_24 08_00"_s, "B|b\r\n");
    d.app.scheduler.FillGrid();
    EXPECT_EQ(next->text(), u"2026/11/23 12:01"_s);
    d.clock.at = d.clock.at.addSecs(30);
    d.app.scheduler.Tick();
    EXPECT_EQ(next->text(), u"2026/11/24 08:00"_s);
}

// Pos/Main_T and Main_L are twips, Main_L only with a non-negative Main_T; closing stores them.
TEST(MainWindow, PositionInTwips) {
    {
        Desk d;
        d.t.settings.WriteIni(u"Pos", u"Main_T", u"1500");
        d.t.settings.WriteIni(u"Pos", u"Main_L", u"3015");
        d.window->ShowAtStart();
        EXPECT_EQ(d.window->pos(), QPoint(201, 100));

        d.window->move(40, 7);
        d.window->close();
        EXPECT_TRUE(d.app.isClosing());
        EXPECT_EQ(d.ini(u"Main_T"), u"105"_s);
        EXPECT_EQ(d.ini(u"Main_L"), u"600"_s);
    }
    for (const auto& [top, x] : {std::pair{u"-15"_s, 100}, std::pair{QString(), 30}}) {
        Desk d;
        d.window->move(30, 20);
        if (!top.isNull())
            d.t.settings.WriteIni(u"Pos", u"Main_T", top);
        d.t.settings.WriteIni(u"Pos", u"Main_L", u"1500");
        d.window->ShowAtStart();
        EXPECT_EQ(d.window->pos(), QPoint(x, 20));
    }
}

// Hide "1" starts in the tray; a left click on the icon shows it for good, a right click for now.
TEST(MainWindow, TrayAndHideWithAndWithoutATray) {
    Desk d;
    d.window->trayAvailable = true;
    d.t.settings.WriteIni(u"Pos", u"Hide", u"1");
    d.window->ShowAtStart();
    EXPECT_FALSE(d.window->isVisible());
    EXPECT_TRUE(d.window->trayIcon()->isVisible());

    emit d.window->trayIcon()->activated(QSystemTrayIcon::Context);
    QCoreApplication::processEvents();
    EXPECT_TRUE(d.window->isVisible());
    EXPECT_FALSE(d.window->trayIcon()->isVisible());
    EXPECT_EQ(d.ini(u"Hide"), u"1"_s);

    d.minimise();
    EXPECT_FALSE(d.window->isVisible());
    EXPECT_TRUE(d.window->trayIcon()->isVisible());

    emit d.window->trayIcon()->activated(QSystemTrayIcon::Trigger);
    QCoreApplication::processEvents();
    EXPECT_TRUE(d.window->isVisible());
    EXPECT_FALSE(d.window->isMinimized());
    EXPECT_EQ(d.ini(u"Hide"), u"0"_s);

    d.window->close();
    EXPECT_FALSE(d.window->trayIcon()->isVisible());

    // Without a tray, Hide "1" starts shown and minimising keeps the window and Hide.
    Desk bare;
    bare.window->trayAvailable = false;
    bare.t.settings.WriteIni(u"Pos", u"Hide", u"1");
    bare.window->ShowAtStart();
    EXPECT_TRUE(bare.window->isVisible());
    bare.t.settings.WriteIni(u"Pos", u"Hide", u"0");
    bare.minimise();
    EXPECT_TRUE(bare.window->isVisible());
    EXPECT_FALSE(bare.window->trayIcon()->isVisible());
    EXPECT_EQ(bare.ini(u"Hide"), u"0"_s);
}

// The hibernate button follows PowerControl; a reservation in 5 minutes refuses; else the
// countdown window shows and its cancel ends it.
TEST(MainWindow, SuspendButtonAndCountdownWindow) {
    Desk off;
    off.window->ShowAtStart();
    EXPECT_FALSE(off.find(u"cmdSuspend"_s)->isVisible());
    off.t.settings.WriteIni(u"Options", u"PowerControl", u"1");
    off.window->UpdateSuspendButton();
    EXPECT_TRUE(off.find(u"cmdSuspend"_s)->isVisible());
    Desk on;
    on.t.settings.WriteIni(u"Options", u"PowerControl", u"1");
    on.window->ShowAtStart();
    EXPECT_TRUE(on.find(u"cmdSuspend"_s)->isVisible());

    const QDateTime soon = off.clock.at.addSecs(5 * 60);
    off.t.writeFile(u"reserve/"_s + soon.toString(u"yyyy_MM_dd HH_mm"), "A|a\r\n");
    off.app.scheduler.FillGrid();
    off.click(u"cmdSuspend"_s);
    EXPECT_EQ(off.prompt.shown, QStringList{u"info:"_s + Power::SoonText});

    on.app.power.stepMs = 5;
    on.app.power.busAddress = u"unix:path="_s + on.t.path(u"no-bus");
    auto* frm = on.find(u"frmSuspend"_s);
    int last = 0;
    QObject::connect(&on.app.power, &Power::countdownStep, [&](int value) {
        if ((last = value) != 50)
            return;
        EXPECT_TRUE(frm->isVisible());
        EXPECT_EQ(on.find<QProgressBar>(u"ProgressBar1"_s)->value(), 50);
        QTest::mouseClick(on.find<QPushButton>(u"Command1"_s), Qt::LeftButton);
    });
    on.click(u"cmdSuspend"_s);
    EXPECT_EQ(last, 50);
    EXPECT_FALSE(frm->isVisible());
}
