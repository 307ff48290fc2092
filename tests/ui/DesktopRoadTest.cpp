#include "desktop/MainWindow.h"
#include "support/LearningDesk.h"
#include "support/MainParts.h"

#include <QAction>
#include <QComboBox>
#include <QRadioButton>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

// Learn a remote from the menu, fire it from the list, re-teach it.
TEST(DesktopRoad, LearnOpenSendEditWithTheSimulator) {
    LearningDesk d;
    Program app(d.t.folder, d.t.settings, d.clock, d.prompt);
    MainWindow window(MainPartsOf(app));
    QObject::connect(&window, &MainWindow::studyRequested, &d.windows,
                     &LearningLauncher::OpenStudy);
    QObject::connect(&window, &MainWindow::editRequested, &d.windows, &LearningLauncher::OpenEdit);
    QObject::connect(&d.windows, &LearningLauncher::devicesChanged, &window,
                     &MainWindow::FillDevices);
    QObject::connect(&window, &MainWindow::remoteWindowRequested, &d.remotes,
                     &RemoteLauncher::ShowRemoteWindow);
    window.ShowAtStart();

    window.MStudyNew->trigger();
    auto* study = qobject_cast<LearningWizard*>(d.windows.current());
    ASSERT_TRUE(study);
    QTest::mouseClick(study->optSelRemote[3], Qt::LeftButton);
    study->txtDeviceName->clear();
    LearningDesk::type(study->txtDeviceName, u"寝室テレビ"_s);
    d.learn(study, u"電源"_s, 0);
    d.learn(study, u"入力切替"_s, 1);
    d.learn(study, u"音量+"_s, 2);
    const int proofs = d.sent();
    EXPECT_EQ(proofs, 3); // each capture was proved by sending it back
    QTest::mouseClick(study->cmdOK, Qt::LeftButton);

    auto* list = window.findChild<QComboBox*>(u"cmbDeviceName"_s);
    emit list->activated(list->findText(u"寝室テレビ"_s));
    RemoteWindow* remote = d.remotes.window(4);
    ASSERT_NE(remote, nullptr);
    EXPECT_EQ(remote->function(1), u"入力切替"_s);
    for (int k = 0; k < 3; ++k)
        QTest::mouseClick(remote->imgB(k), Qt::LeftButton);
    const QList<QByteArray> log = d.t.readFile(u"sim-transmit.log").trimmed().split('\n');
    ASSERT_EQ(log.size(), proofs + 3);
    // What the remote sent is what was learned: each send repeats its proof.
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(log[proofs + k].split(' ').last(), log[k].split(' ').last()) << k;
    EXPECT_TRUE(d.prompt.shown.isEmpty()) << d.prompt.shown.join(u'\n').toStdString();

    window.MEditRemote->trigger();
    auto* edit = qobject_cast<RemoteEditor*>(d.windows.current());
    ASSERT_TRUE(edit);
    EXPECT_EQ(edit->cmbDeviceName->currentText(), u"寝室テレビ"_s);
    const QByteArray oldPower = d.t.readFile(u"IRSignals/寝室テレビ-電源.bin");
    d.learn(edit, u"電源"_s, 0);
    QTest::mouseClick(edit->cmdOK, Qt::LeftButton);
    EXPECT_NE(d.t.readFile(u"IRSignals/寝室テレビ-電源.bin"), oldPower);
    EXPECT_EQ(d.key(1, u"Button-0"), u"電源"_s);
    EXPECT_EQ(d.key(1, u"Button-2"), u"音量+"_s);
}
