#include "remotes/Press.h"
#include "support/LearningDesk.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QRadioButton>
#include <QScreen>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
QColor TextColour(QLabel* label) {
    return label->palette().color(QPalette::WindowText);
}
const QColor Red(255, 0, 0);
} // namespace

// The chosen design shows beside the wizard and locks after a signal; 完了 leaves nothing behind.
TEST(LearningWizard, LearnsFunctionsAndStoresThemAtTheEnd) {
    LearningDesk d;
    d.t.settings.WriteIni(u"Pos", u"Remote4_T", u"1500");
    d.t.settings.WriteIni(u"Pos", u"Remote4_L", u"3000");
    auto* w = d.study();
    ASSERT_NE(d.remotes.window(2), nullptr);
    EXPECT_FALSE(d.remotes.RemoteLive);
    QTest::mouseClick(w->optSelRemote[3], Qt::LeftButton); // テレビ20ボタン
    EXPECT_EQ(d.remotes.window(2), nullptr);
    ASSERT_NE(d.remotes.window(4), nullptr);
    const QRect picture = d.remotes.window(4)->frameGeometry();
    const QRect area = w->screen()->availableGeometry();
    EXPECT_FALSE(picture.intersects(w->frameGeometry()));
    EXPECT_TRUE(area.contains(picture));
    EXPECT_EQ(picture.top(), std::max(w->frameGeometry().top(), area.top()));
    w->txtDeviceName->setText(u"居間テレビ"_s);
    d.learn(w, u"電源"_s, 0);
    EXPECT_EQ(TextColour(w->lblStep[0]), Red); // back at the first step
    EXPECT_FALSE(w->Frame4->isEnabled());
    d.learn(w, u"ch1"_s, 1);
    EXPECT_EQ(d.lines(w),
              (QStringList{u"電源→ボタン1　NEC 0x4012"_s, u"ch1→ボタン2　NEC 0x4013"_s}));
    EXPECT_EQ(d.remotes.window(4)->function(1), u"ch1"_s);

    QPointer<LearningWindow> alive(w);
    QTest::mouseClick(w->cmdOK, Qt::LeftButton);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(alive.isNull());
    EXPECT_EQ(d.key(1, u"Design"), u"4"_s);
    EXPECT_TRUE(QDir(d.t.root()).entryList({u"*.tmp"_s}).isEmpty());
    EXPECT_EQ(d.remotes.window(4), nullptr);
    EXPECT_FALSE(d.t.settings.ReadIni(u"Pos", u"Study_T").isEmpty());
    EXPECT_EQ(d.t.settings.ReadIni(u"Pos", u"Remote4_L"), u"3000"_s);
    EXPECT_FALSE(d.device.TiraActive);
    EXPECT_TRUE(d.prompt.shown.isEmpty()) << d.prompt.shown.join(u'\n').toStdString();
}

// No name, a bad character, a failed capture (retried), an empty list at 完了 (nothing stored).
TEST(LearningWizard, RefusesAndRetries) {
    LearningDesk d;
    auto* w = d.study();
    QTest::mouseClick(w->cmdFuncOK, Qt::LeftButton);
    EXPECT_EQ(d.prompt.shown, QStringList{u"warning:機能名を指定してください"_s});
    d.prompt.shown.clear();
    QTest::keyClicks(w->txtFunc, u"a/"_s);
    EXPECT_EQ(d.prompt.shown,
              QStringList{u"warning:文字列には \"* / : < > ? \\ | は使えません。"_s});
    EXPECT_EQ(w->txtFunc->text(), u"a/"_s);
    d.prompt.shown.clear();
    w->txtFunc->setText(u"電源"_s);

    // The transceiver hears nothing: the capture runs out and fails.
    d.device.captureTimeoutMs = 100;
    d.captureDelayMs = 5000;
    QTest::mouseClick(w->cmdFuncOK, Qt::LeftButton);
    EXPECT_EQ(w->lblState->text(), u"失敗しました"_s);
    EXPECT_EQ(TextColour(w->lblState), Red);
    EXPECT_TRUE(w->cmdRetry->isVisible());
    EXPECT_TRUE(w->Frame4->isEnabled());

    d.sim()->captureDelayMs = 20;
    d.device.captureTimeoutMs = 2000;
    d.clickPictureWhenAsked(w, 5);
    QTest::mouseClick(w->cmdRetry, Qt::LeftButton);
    EXPECT_FALSE(w->cmdRetry->isVisible());
    EXPECT_EQ(d.lines(w), QStringList{u"電源→ボタン6　NEC 0x4012"_s});

    // A list emptied by 削除 stores nothing, not even the device.
    w->lstSignals->item(0)->setSelected(true);
    QTest::mouseClick(w->cmdDel, Qt::LeftButton);
    QTest::mouseClick(w->cmdOK, Qt::LeftButton);
    EXPECT_EQ(d.key(1, u"Device"), QString());
    EXPECT_TRUE(d.prompt.shown.isEmpty());
}

// The air-conditioner design asks first; No to overwriting keeps everything intact.
TEST(LearningWizard, AirconQuestionOverwriteAndClosing) {
    LearningDesk d;
    d.remote(1, u"エアコン"_s, 2, {u"暖房"_s});
    auto* w = d.study();

    QTest::mouseClick(w->optSelRemote[2], Qt::LeftButton);
    ASSERT_EQ(d.prompt.shown.size(), 1);
    EXPECT_TRUE(
        d.prompt.shown[0].endsWith(u"\r\n\r\nこの型（エアコン6ボタン）で学習を開始しますか？"_s));
    EXPECT_EQ(d.prompt.helpPages, QStringList{u"learning.html#aircon"_s});
    EXPECT_EQ(d.remotes.window(2), nullptr);
    w->txtFunc->setText(u"冷房"_s);
    QTest::mouseClick(w->cmdFuncOK, Qt::LeftButton);
    EXPECT_EQ(d.prompt.shown.last(), u"info:リモコンの型を選択してください。"_s);

    d.prompt.answers = {UserPrompt::Answer::Yes};
    QTest::mouseClick(w->optSelRemote[2], Qt::LeftButton);
    ASSERT_NE(d.remotes.window(3), nullptr);
    w->txtDeviceName->setText(u"エアコン"_s);
    d.learn(w, u"冷房"_s, 0);

    d.prompt.shown.clear();
    QTest::mouseClick(w->cmdOK, Qt::LeftButton); // answered No
    EXPECT_EQ(d.prompt.shown, QStringList{u"question:"_s + LearningWizard::OverwriteText});
    EXPECT_TRUE(w->isVisible());
    EXPECT_EQ(d.lines(w), QStringList{u"冷房→ボタン1　NEC 0x4012"_s});

    // Closed while it waits for a picture: nothing is kept, no window or temporary left.
    QPointer<LearningWindow> alive(w);
    QObject::connect(w, &LearningWindow::stepChanged, w, [&](int step) {
        if (step == 2)
            QTimer::singleShot(0, w, [&] { w->close(); });
    });
    w->txtFunc->setText(u"電源"_s);
    QTest::mouseClick(w->cmdFuncOK, Qt::LeftButton);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(alive.isNull());
    EXPECT_EQ(d.remotes.window(3), nullptr);
    EXPECT_TRUE(QDir(d.t.root()).entryList({u"*.tmp"_s}).isEmpty());
    EXPECT_EQ(d.key(1, u"Design"), u"2"_s);
}

// Test mode closes the window; no transceiver asks for the setup. One learning window at a time.
TEST(LearningWizard, TestModeAndMissingPort) {
    {
        LearningDesk d;
        d.t.settings.WriteIni(u"Tira", u"Testmode", u"1");
        QPointer<LearningWindow> w = d.study();
        EXPECT_EQ(d.prompt.shown,
                  QStringList{u"info:テストモードではリモコン信号の学習は行えません。"_s});
        EXPECT_TRUE(QTest::qWaitFor([&] { return w.isNull(); }, 3000));
        d.edit();
        EXPECT_EQ(d.prompt.shown.last(),
                  u"info:テストモードではリモコン信号の学習はできません。"_s);
    }
    LearningDesk d;
    d.t.settings.WriteIni(u"Tira", u"Device", u"");
    QSignalSpy setup(&d.windows, &LearningLauncher::setupWanted);
    QPointer<LearningWindow> w = d.study();
    EXPECT_EQ(d.windows.OpenEdit(), w.data());
    w->txtFunc->setText(u"電源"_s);
    QTest::mouseClick(w->cmdFuncOK, Qt::LeftButton);
    EXPECT_EQ(
        d.prompt.shown,
        QStringList{
            u"warning:Tiraで使用するCOMポート番号が指定されていません。　設定を行ってください。"_s});
    EXPECT_EQ(setup.count(), 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(w.isNull());
}

// The editor lists remotes 1 to 100, deletes and adds functions at 完了, and whole remotes.
TEST(RemoteEditor, EditsAndDeletesRemotes) {
    LearningDesk d;
    d.remote(1, u"TV"_s, 4, {u"電源"_s, u"ch1"_s, u"ch2"_s});
    d.remote(2, u"BD"_s, 2, {u"再生"_s});
    d.remote(101, u"遠い"_s, 2, {u"x"_s});
    auto* w = d.edit();
    ASSERT_EQ(w->cmbDeviceName->count(), 2);
    EXPECT_EQ(w->cmbDeviceName->currentText(), u"TV"_s);
    EXPECT_TRUE(w->optSelRemote[3]->isChecked());
    EXPECT_FALSE(w->optSelRemote[3]->isEnabled());
    EXPECT_EQ(d.lines(w), (QStringList{u"電源→ボタン1　NEC 0x1000"_s, u"ch1→ボタン2　NEC 0x1001"_s,
                                       u"ch2→ボタン3　NEC 0x1002"_s}));
    ASSERT_NE(d.remotes.window(4), nullptr);
    EXPECT_EQ(d.remotes.window(4)->function(2), u"ch2"_s);
    EXPECT_NE(TextColour(w->lblStep[0]), Red);
    QApplication::setActiveWindow(w);
    w->txtFunc->setFocus();
    EXPECT_EQ(TextColour(w->lblStep[0]), Red);

    // Delete ch1, add 音量+ and a line learned here then deleted, not stored.
    d.learn(w, u"音量+"_s, 5);
    d.learn(w, u"間違い"_s, 6);
    w->lstSignals->clearSelection();
    for (int row : {1, 4})
        w->lstSignals->item(row)->setSelected(true);
    QTest::mouseClick(w->cmdDel, Qt::LeftButton);
    QTest::mouseClick(w->cmdOK, Qt::LeftButton);
    EXPECT_TRUE(d.t.readFile(u"setting.ini").contains("Button-1=\r\n")); // kept, empty
    EXPECT_FALSE(QFile::exists(d.t.path(u"IRSignals/TV-ch1.bin")));
    EXPECT_EQ(d.key(1, u"Button-5"), u"音量+"_s);
    EXPECT_FALSE(QFile::exists(d.t.path(u"IRSignals/TV-間違い.bin")));

    // Delete the whole TV remote: asked first, BD keeps its number.
    w = d.edit();
    d.prompt.answers = {UserPrompt::Answer::Yes};
    QTest::mouseClick(w->cmdDelRem, Qt::LeftButton);
    EXPECT_EQ(
        d.prompt.shown.last(),
        u"question:機器名:TV の記録済みリモコン信号はすべて削除されます。　よろしいですか？"_s);
    EXPECT_EQ(d.key(2, u"Device"), u"BD"_s);
    EXPECT_EQ(FindRemoteSlot(d.t.settings, u"AMP"_s).slot(), 1); // the freed number is next
    EXPECT_FALSE(QFile::exists(d.t.path(u"IRSignals/TV-電源.bin")));
    EXPECT_EQ(w->cmbDeviceName->currentText(), u"BD"_s);
    ASSERT_NE(d.remotes.window(2), nullptr);
    QTest::mouseClick(w->cmdCancel, Qt::LeftButton);

    // Without remotes the window opens with its learning controls off.
    d.prompt.answers = {UserPrompt::Answer::Yes};
    w = d.edit();
    QTest::mouseClick(w->cmdDelRem, Qt::LeftButton);
    EXPECT_EQ(w->cmbDeviceName->count(), 0);
    for (QWidget* c : std::initializer_list<QWidget*>{w->txtFunc, w->cmdFuncOK, w->lstSignals,
                                                      w->cmdDel, w->lblStep[0]})
        EXPECT_FALSE(c->isEnabled());
}

// Names CP932 folds (〜 − ‖ £ ¬) are learned, fired, re-learned and deleted on the same files.
TEST(LearningWizard, NamesAreTheOnesSettingIniGivesBack) {
    LearningDesk d;
    auto* w = d.study();
    w->txtDeviceName->clear();
    LearningDesk::type(w->txtDeviceName, u"Café"_s);
    const QString cafe = u"warning:「é」は使えません。"_s;
    ASSERT_EQ(d.prompt.shown.size(), 1);
    EXPECT_TRUE(d.prompt.shown[0].startsWith(cafe)) << d.prompt.shown[0].toStdString();
    w->txtDeviceName->setText(u"AV〜1"_s);
    d.learn(w, u"音量−"_s, 0);
    d.learn(w, u"‖"_s, 1);
    w->txtFunc->setText(u"😀"_s);
    QTest::mouseClick(w->cmdFuncOK, Qt::LeftButton);
    EXPECT_EQ(d.prompt.shown.size(), 3); // warned while typed, refused at 決定
    EXPECT_TRUE(d.prompt.shown[2].startsWith(u"warning:「😀」は使えません。"_s));
    EXPECT_EQ(d.lines(w),
              (QStringList{u"音量－→ボタン1　NEC 0x4012"_s, u"∥→ボタン2　NEC 0x4013"_s}));
    QTest::mouseClick(w->cmdOK, Qt::LeftButton);
    EXPECT_EQ(d.key(1, u"Device"), u"AV～1"_s);
    EXPECT_EQ(d.key(1, u"Button-0"), u"音量－"_s);
    EXPECT_EQ(QDir(d.t.path(u"IRSignals")).entryList(QDir::Files),
              (QStringList{u"AV～1-∥.bin"_s, u"AV～1-音量－.bin"_s}));

    const int proofs = d.sent();
    for (const char16_t* button : {u"0", u"1"}) // as the pages send
        EXPECT_EQ(TXSignalById(d.device, u"1", button), SendResult::Sent);
    d.remotes.ShowRemoteWindow(u"AV～1"_s, 1);
    QTest::mouseClick(d.remotes.window(2)->imgB(0), Qt::LeftButton);
    EXPECT_EQ(d.sent(), proofs + 3);

    // Typed again as 〜 it is the same remote, replaced whole with an older version's file.
    d.t.writeFile(u"IRSignals/AV〜1-古い.bin", "x");
    w = d.study();
    w->txtDeviceName->setText(u"AV〜1"_s);
    d.learn(w, u"£¬"_s, 4);
    d.prompt.shown.clear();
    d.prompt.answers = {UserPrompt::Answer::Yes};
    QTest::mouseClick(w->cmdOK, Qt::LeftButton);
    EXPECT_EQ(d.prompt.shown, QStringList{u"question:"_s + LearningWizard::OverwriteText});
    EXPECT_EQ(d.key(2, u"Device"), QString());
    EXPECT_EQ(QDir(d.t.path(u"IRSignals")).entryList(QDir::Files),
              QStringList{u"AV～1-￡￢.bin"_s});

    // The editor deletes a function and then the remote, files and all.
    auto* e = d.edit();
    d.learn(e, u"−"_s, 5);
    e->lstSignals->clearSelection();
    e->lstSignals->item(0)->setSelected(true);
    QTest::mouseClick(e->cmdDel, Qt::LeftButton);
    QTest::mouseClick(e->cmdOK, Qt::LeftButton);
    EXPECT_EQ(QDir(d.t.path(u"IRSignals")).entryList(QDir::Files), QStringList{u"AV～1-－.bin"_s});
    e = d.edit();
    d.prompt.answers = {UserPrompt::Answer::Yes};
    QTest::mouseClick(e->cmdDelRem, Qt::LeftButton);
    EXPECT_TRUE(QDir(d.t.path(u"IRSignals")).entryList(QDir::Files).isEmpty());

    // A control character or half a surrogate pair is refused in either field.
    QTest::mouseClick(e->cmdCancel, Qt::LeftButton);
    w = d.study();
    const QString bad[] = {u"a"_s + QChar(0) + u"b"_s, u"a\tb"_s, u"a"_s + QChar(0x85) + u"b"_s,
                           u"a"_s + QChar(0xd800) + u"b"_s};
    for (const QString& name : bad) {
        d.prompt.shown.clear();
        w->txtDeviceName->setText(name);
        w->txtFunc->setText(name);
        d.clickPictureWhenAsked(w, 0);
        QTest::mouseClick(w->cmdFuncOK, Qt::LeftButton);
        EXPECT_FALSE(d.prompt.shown.isEmpty()); // at 決定, and while typed the first time
        for (const QString& shown : d.prompt.shown)
            EXPECT_TRUE(shown.startsWith(u"warning:名前には制御文字"_s)) << shown.toStdString();
        EXPECT_TRUE(d.lines(w).isEmpty());
    }
}
