#include "app/Program.h"
#include "core/Clock.h"
#include "desktop/MainWindow.h"
#include "exchange/ExchangeWindows.h"
#include "remotes/Registry.h"
#include "support/MainParts.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Desk {
    Desk() {
        t.folder.CreateDataFolders();
        t.writeRemote(1, u"TV"_s, 1, {u"電源"_s});
        t.writeRemote(3, u"エアコン"_s, 1, {u"電源"_s});
    }
    template <typename T> T* open(QAction* item, const QString& name) {
        item->trigger();
        T* w = window.findChild<T*>(name);
        EXPECT_TRUE(w && w->isVisible());
        return w;
    }
    TempFolder t;
    SystemClock clock;
    ScriptedPrompt prompt;
    Program app{t.folder, t.settings, clock, prompt};
    MainWindow window{MainPartsOf(app)};
    QTemporaryDir out;
};

} // namespace

// Export: both refusals, a folder made level by level, a failure that keeps the window and files.
TEST(ExchangeWindows, ExportedArchivesImportAgain) {
    Desk d;
    d.t.writeRemote(2, u"a/b"_s, 1, {u"電源"_s}); // cannot name a file
    auto* w = d.open<ExportWindow>(d.window.MFileX, u"frmExport"_s);
    ASSERT_NE(w, nullptr);
    ASSERT_EQ(w->lstDevices->count(), 3);

    QTest::mouseClick(w->cmdExport, Qt::LeftButton);
    w->lstDevices->item(0)->setSelected(true);
    w->lstDevices->item(2)->setSelected(true);
    QTest::mouseClick(w->cmdExport, Qt::LeftButton);
    EXPECT_EQ(d.prompt.shown, (QStringList{u"warning:"_s + ExportWindow::NothingChosenText,
                                           u"warning:"_s + ExportWindow::NoFolderText}));

    const QString dir = d.out.filePath(u"x/y"_s);
    w->chooseFolder = [&](const QString&) { return dir; };
    QTest::mouseClick(w->cmdRefer, Qt::LeftButton);
    QTest::mouseClick(w->cmdExport, Qt::LeftButton);
    EXPECT_FALSE(w->isVisible());
    EXPECT_EQ(QDir(dir).entryList(QDir::Files, QDir::Name),
              (QStringList{u"TV.kxp"_s, u"エアコン.kxp"_s}));

    w = d.open<ExportWindow>(d.window.MFileX, u"frmExport"_s);
    w->txtLoc->setText(d.out.filePath(u"z"_s));
    w->chkAll->click();
    QTest::mouseClick(w->cmdExport, Qt::LeftButton);
    EXPECT_EQ(d.prompt.shown.last(), u"warning:"_s + ExportWindow::FailedText);
    EXPECT_TRUE(w->isVisible());
    EXPECT_EQ(QDir(d.out.filePath(u"z"_s)).entryList(QDir::Files), QStringList{u"TV.kxp"_s});
    w->close();

    // Import: over a known remote only with chkDuplicate; a refused archive told; list refilled.
    for (const auto* name : {u"bad.kxp", u"notes.txt"}) {
        QFile junk(dir + u'/' + QString::fromUtf16(name));
        ASSERT_TRUE(junk.open(QIODevice::WriteOnly) && junk.write("junk") == 4);
    }
    d.t.settings.DeleteIniSection(RemoteSection(1));
    d.t.settings.DeleteIniSection(RemoteSection(2));
    d.t.settings.WriteIni(RemoteSection(3), ButtonKey(0), u"変更"_s);
    d.window.ShowAtStart();

    auto* in = d.open<ImportWindow>(d.window.MFileI, u"frmImport"_s);
    ASSERT_NE(in, nullptr);
    in->txtLoc->setText(d.out.filePath(u"missing"_s));
    EXPECT_EQ(in->lstFiles->count(), 0);
    in->txtLoc->setText(dir);
    ASSERT_EQ(in->lstFiles->count(), 3);
    d.prompt.shown.clear();
    in->chkAll->click();
    QTest::mouseClick(in->cmdImport, Qt::LeftButton);
    EXPECT_FALSE(in->isVisible());
    ASSERT_EQ(d.prompt.shown.size(), 1);
    EXPECT_TRUE(d.prompt.shown[0].startsWith(u"warning:bad.kxp はインポートできませんでした。"_s));
    EXPECT_EQ(d.t.settings.ReadIni(RemoteSection(1), u"Device"), u"TV"_s);
    EXPECT_EQ(d.t.settings.ReadIni(RemoteSection(3), ButtonKey(0)), u"変更"_s);
    EXPECT_EQ(d.window.findChild<QComboBox*>(u"cmbDeviceName"_s)->count(), 2);

    in = d.open<ImportWindow>(d.window.MFileI, u"frmImport"_s);
    in->txtLoc->setText(dir);
    in->lstFiles->item(2)->setSelected(true);
    in->chkDuplicate->click();
    QTest::mouseClick(in->cmdImport, Qt::LeftButton);
    EXPECT_EQ(d.t.settings.ReadIni(RemoteSection(2), ButtonKey(0)), u"電源"_s);
    EXPECT_EQ(d.t.settings.ReadIni(RemoteSection(3), u"Device"), QString());
}
