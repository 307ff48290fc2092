#include "remotes/RemoteWindow.h"
#include "desktop/MessageBoxPrompt.h"
#include "learning/RemoteEditor.h"
#include "remotes/DesignLayout.h"
#include "support/LearningDesk.h"

#include <QFontDatabase>
#include <QFontInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QScreen>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The simulated desk with one learned signal, TV-電源, as the desktop has it.
struct Desk : LearningDesk {
    Desk() {
        WriteSignalFile(SignalFilePath(t.folder, u"TV", u"電源"), SimDriver::SampleCapture());
    }
    QString pos(QStringView key) { return t.settings.ReadIni(u"Pos", key); }
};

void doubleClick(QWidget* widget) {
    QPointer<QWidget> w(widget);
    QTest::mouseClick(w, Qt::LeftButton);
    QTest::mousePress(w, Qt::LeftButton);
    QTest::mouseDClick(w, Qt::LeftButton);
    if (w) // the window may have gone during the press
        QTest::mouseRelease(w, Qt::LeftButton);
}

} // namespace

TEST(RemoteWindow, LiveClicksSendTheCaptionLearningClicksOnlyReport) {
    Desk d;
    bool live = false;
    RemoteWindow w(4, live, d.t.settings, d.device);
    w.setDeviceName(u"TV"_s);
    w.setFunction(0, u"電源"_s);
    w.setFunction(1, QString());
    w.setFunction(3, u"未学習"_s); // no signal file
    int reported = -1;
    int learned = -1;
    QObject::connect(&w, &RemoteWindow::buttonClicked, [&](int id) { reported = id; });
    QObject::connect(&w, &RemoteWindow::keyClicked, [&](int id) { learned = id; });
    w.show();

    live = true;
    QTest::mouseClick(w.imgB(0), Qt::LeftButton);
    EXPECT_EQ(d.sent(), 1);
    EXPECT_EQ(reported, 0);
    // No function, or a release away from the button: nothing goes out.
    QTest::mouseClick(w.imgB(1), Qt::LeftButton);
    QTest::mousePress(w.imgB(0), Qt::LeftButton);
    QTest::mouseRelease(w.imgB(0), Qt::LeftButton, {}, QPoint(60, 5));
    EXPECT_EQ(d.sent(), 1);
    EXPECT_EQ(learned, -1);
    EXPECT_TRUE(d.prompt.shown.isEmpty());
    // A failed send tells the person and keeps the window.
    QTest::mouseClick(w.imgB(3), Qt::LeftButton);
    EXPECT_EQ(d.prompt.shown, QStringList{u"notify:送信できませんでした。"_s});
    EXPECT_TRUE(w.isVisible());

    // Learning: the button is reported, caption or not, and nothing is sent.
    live = false;
    QTest::mouseClick(w.imgB(19), Qt::LeftButton);
    EXPECT_EQ(learned, 19);
    EXPECT_EQ(reported, 19);
    EXPECT_EQ(d.sent(), 1);
}

// Captions shrink from 8 to 5 points in a Japanese family; no caption's ink leaves its label.
TEST(RemoteWindow, EveryDesignMatchesThePagesFitsItsShapeAndCutsNoCaption) {
    Desk d;
    const QStringList japanese = QFontDatabase::families(QFontDatabase::Japanese);
    auto inside = [&](QLabel* label) {
        const QFontMetrics fm(label->font());
        EXPECT_TRUE(japanese.contains(QFontInfo(label->font()).family()));
        const QRect ink = fm.tightBoundingRect(label->text())
                              .translated(0, label->contentsMargins().top() + fm.ascent());
        return ink.top() >= 0 && ink.bottom() < label->height() &&
               label->geometry().bottom() < label->window()->height() - 1;
    };
    for (int design = 1; design <= 6; ++design) {
        SCOPED_TRACE(design);
        RemoteWindow w(design, d.remotes.RemoteLive, d.t.settings, d.device);
        const DesignLayout* layout = LayoutOfDesign(design);
        ASSERT_EQ(w.buttonCount(), DesignByText(QString::number(design))->buttonCount);
        const QRegion shape = w.mask();
        for (const ButtonDef& b : layout->buttons) {
            EXPECT_EQ(w.imgB(b.id)->geometry(), QRect(b.left, b.top, 35, 20)) << b.id;
            EXPECT_EQ(w.lblFunc(b.id)->pos(), QPoint(b.labelLeft, b.labelTop)) << b.id;
            EXPECT_EQ(w.function(b.id), u"ボタン"_s + QString::number(b.id + 1));
            EXPECT_TRUE(shape.contains(w.imgB(b.id)->geometry())) << b.id;
        }
        EXPECT_TRUE(shape.contains(w.cmdClose()->geometry()));
        EXPECT_TRUE(shape.contains(w.lblDev()->geometry()));
        EXPECT_GE(w.lblDev()->y(), 9 + layout->panelA.height);
        // Corners rounded by a 15 by 15 ellipse.
        const int r = w.width() - 1, b = w.height() - 1;
        for (QPoint corner : {QPoint(0, 0), QPoint(1, 1), QPoint(r, 0), QPoint(0, b), QPoint(r, b)})
            EXPECT_FALSE(shape.contains(corner)) << corner.x() << "," << corner.y();
        for (QPoint point :
             {QPoint(4, 4), QPoint(r - 4, b - 4), QPoint(8, 0), QPoint(r, b / 2), QPoint(r / 2, b)})
            EXPECT_TRUE(shape.contains(point)) << point.x() << "," << point.y();

        w.setDeviceName(u"寝室の照明器具"_s);
        EXPECT_TRUE(inside(w.lblDev()));
        const std::pair<QString, int> cases[] = {
            {u"電源入"_s, 11},    {u"電源入A"_s, 8},
            {u"123456789"_s, 8},  {u"ｶﾅｶﾅｶﾅｶ"_s, 8}, // half-width: 1 byte
            {u"音量アップ"_s, 7}, {u""_s, 11}};
        for (const auto& [name, pixels] : cases) {
            w.setFunction(5, name);
            EXPECT_EQ(w.lblFunc(5)->font().pixelSize(), pixels) << name.toStdString();
            EXPECT_TRUE(inside(w.lblFunc(5))) << name.toStdString();
        }
    }
}

TEST(RemoteWindow, FirstPlaceIsTheWorkAreaCornerThenEachDesignKeepsItsOwn) {
    Desk d;
    const QPoint corner =
        QGuiApplication::primaryScreen()->availableGeometry().bottomRight() + QPoint(1, 1);
    {
        RemoteWindow w(5, d.remotes.RemoteLive, d.t.settings, d.device);
        EXPECT_EQ(w.pos(), corner - QPoint(w.width(), w.height()));
        w.show();
        // Dragged by its body: the window follows the pointer.
        QTest::mousePress(&w, Qt::LeftButton, {}, QPoint(150, 500));
        QTest::mouseMove(&w, QPoint(130, 470));
        QTest::mouseRelease(&w, Qt::LeftButton, {}, QPoint(130, 470));
        const QPoint dragged = corner - QPoint(w.width(), w.height()) - QPoint(20, 30);
        EXPECT_EQ(w.pos(), dragged);
        for (QWidget* notBody : std::initializer_list<QWidget*>{w.imgB(0), w.lblFunc(0)}) {
            QTest::mousePress(notBody, Qt::LeftButton, {}, QPoint(5, 5));
            QTest::mouseMove(notBody, QPoint(-40, -40));
            QTest::mouseRelease(notBody, Qt::LeftButton, {}, QPoint(-40, -40));
        }
        EXPECT_EQ(w.pos(), dragged);
        QTest::mouseClick(w.cmdClose(), Qt::LeftButton);
        EXPECT_FALSE(w.isVisible());
    }
    RemoteWindow again(5, d.remotes.RemoteLive, d.t.settings, d.device);
    EXPECT_EQ(again.pos(), corner - QPoint(again.width(), again.height()) - QPoint(20, 30));
    RemoteWindow other(3, d.remotes.RemoteLive, d.t.settings, d.device);
    EXPECT_EQ(other.pos(), corner - QPoint(other.width(), other.height()));
    // Stored twips between pixels round to the nearest one.
    d.t.settings.WriteIni(u"Pos", u"Remote2_T", u"1508");
    d.t.settings.WriteIni(u"Pos", u"Remote2_L", u"-22");
    RemoteWindow hand(2, d.remotes.RemoteLive, d.t.settings, d.device);
    EXPECT_EQ(hand.pos(), QPoint(-1, 101));
}

TEST(RemoteLauncher, ChoosingADeviceOpensItsRemoteAlone) {
    Desk d;
    d.remote(1, u"TV"_s, 4, {u"電源"_s});
    d.t.settings.WriteIni(u"Remote-1", u"Button-15", u"入力切替え");
    d.remote(3, u"照明"_s, 2, {});
    d.remote(4, u"壊れた"_s, 7, {});
    RemoteLauncher remotes(d.t.settings, d.events, d.device);

    remotes.ShowRemoteWindow(u"TV"_s, 1);
    RemoteWindow* tv = remotes.window(4);
    ASSERT_TRUE(tv);
    EXPECT_TRUE(tv->isVisible());
    EXPECT_TRUE(remotes.RemoteLive);
    EXPECT_EQ(tv->deviceName(), u"TV");
    EXPECT_EQ(tv->function(15), u"入力切替え");
    EXPECT_EQ(tv->function(1), QString());

    // The next choice closes the open remote first, which keeps its place.
    remotes.ShowRemoteWindow(u"照明"_s, 3);
    EXPECT_FALSE(remotes.window(4));
    EXPECT_FALSE(d.pos(u"Remote4_T").isEmpty());
    ASSERT_TRUE(remotes.window(2));
    // A design outside the six opens nothing, but still closes what was open.
    remotes.ShowRemoteWindow(u"壊れた"_s, 4);
    for (int design = 1; design <= 6; ++design)
        EXPECT_FALSE(remotes.window(design)) << design;

    // The same design again is a fresh window with its captions.
    remotes.ShowRemoteWindow(u"TV"_s, 1);
    remotes.ShowRemoteWindow(u"TV"_s, 1);
    ASSERT_TRUE(remotes.window(4));
    EXPECT_EQ(remotes.window(4)->function(0), u"電源");
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ASSERT_TRUE(remotes.window(4));
    EXPECT_TRUE(remotes.window(4)->isVisible());

    // A double click is two presses, the picture down between them; closed then, it ends quietly.
    bool downDuringPause = false;
    int ended = 0;
    QObject::connect(&d.device, &Transceiver::sendEnded, &remotes, [&] {
        if (++ended == 1) // the click's send; the double click's pause follows
            QTimer::singleShot(30, [&] { downDuringPause = remotes.window(4)->imgB(0)->isDown(); });
        else if (ended == 3)
            QTimer::singleShot(30, &remotes, &RemoteLauncher::UnloadAll);
    });
    doubleClick(remotes.window(4)->imgB(0));
    EXPECT_EQ(d.sent(), 2);
    EXPECT_TRUE(downDuringPause);
    EXPECT_FALSE(remotes.window(4)->imgB(0)->isDown());
    doubleClick(remotes.window(4)->imgB(0));
    EXPECT_FALSE(remotes.window(4));
    EXPECT_EQ(d.sent(), 4);
    remotes.ShowRemoteWindow(u"TV"_s, 1);

    // The close order unloads every remote.
    emit d.events.unloadRemoteWindows();
    EXPECT_FALSE(remotes.window(4));

    // Test mode shows its fixed devices without sending, whatever the registry says.
    d.t.settings.WriteIni(u"Tira", u"Testmode", u"1");
    d.remote(5, u"テレビ"_s, 2, {});
    remotes.RemoteLive = true;

    remotes.ShowRemoteWindow(u"エアコン"_s, 0);
    RemoteWindow* aircon = remotes.window(3);
    ASSERT_TRUE(aircon);
    EXPECT_FALSE(remotes.RemoteLive);
    EXPECT_EQ(aircon->function(4), u"暖/冷");

    remotes.ShowRemoteWindow(u"テレビ"_s, 0);
    EXPECT_FALSE(remotes.window(2));
    tv = remotes.window(4);
    ASSERT_TRUE(tv);
    EXPECT_EQ(tv->function(13), u"ch+");
    QTest::mouseClick(tv->imgB(0), Qt::LeftButton);
    EXPECT_EQ(d.sent(), 4);
    remotes.ShowRemoteWindow(u"照明"_s, 0);
    EXPECT_FALSE(remotes.window(4));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

TEST(RemoteWindow, RepeatedFailuresShareOneBoxPerKindAndKeepTheirSentenceWhole) {
    QWidget desk;
    MessageBoxPrompt prompt(&desk);
    prompt.Notice(u"send"_s, u"送信できませんでした。"_s);
    prompt.Notice(u"send"_s, u"送信できませんでした。"_s);
    prompt.Notice(u"device"_s, u"Tiraを有効にできませんでした。"_s);
    QList<QMessageBox*> boxes = desk.findChildren<QMessageBox*>();
    ASSERT_EQ(boxes.size(), 2);
    QStringList texts;
    for (QMessageBox* box : boxes) {
        EXPECT_FALSE(box->isModal());
        texts << box->text();
    }
    EXPECT_TRUE(texts.contains(u"送信できませんでした。（2 回）"_s))
        << texts.join(u'|').toStdString();
    // Once closed, the next failure opens a box again.
    for (QMessageBox* box : boxes)
        box->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    prompt.Notice(u"send"_s, u"送信できませんでした。"_s);
    boxes = desk.findChildren<QMessageBox*>();
    ASSERT_EQ(boxes.size(), 1);
    EXPECT_EQ(boxes[0]->text(), u"送信できませんでした。"_s);
    boxes[0]->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

    // A sentence is not broken inside: the editor's delete question stays one line.
    const QString text = RemoteEditor::DeleteRemoteText(u"寝室テレビ"_s);
    prompt.Notify(text);
    auto* box = desk.findChild<QMessageBox*>();
    ASSERT_NE(box, nullptr);
    QCoreApplication::processEvents();
    auto* label = box->findChild<QLabel*>(u"qt_msgbox_label"_s);
    ASSERT_NE(label, nullptr);
    EXPECT_GE(label->width(), label->fontMetrics().horizontalAdvance(text));
    box->close();
}
