#include "reservations/AddNewWindow.h"
#include "app/Program.h"
#include "desktop/MainWindow.h"
#include "reservations/ReserveStore.h"
#include "support/FixedClock.h"
#include "support/MainParts.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QLabel>
#include <QRadioButton>
#include <QTableView>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Desk {
    TempFolder t;
    FixedClock clock{QDateTime(QDate(2026, 11, 23), QTime(12, 0, 30))}; // a Monday
    ScriptedPrompt prompt;
    Program app{t.folder, t.settings, clock, prompt};
    std::unique_ptr<MainWindow> window;

    Desk() {
        t.settings.WriteIni(u"Tira", u"Testmode", u"1");
        window = std::make_unique<MainWindow>(MainPartsOf(app));
    }
    template <typename T> T* in(QWidget* w, const QString& name) {
        T* c = w->findChild<T*>(name);
        EXPECT_NE(c, nullptr) << name.toStdString();
        return c;
    }
    void click(QWidget* w, const QString& name) {
        QTest::mouseClick(in<QAbstractButton>(w, name), Qt::LeftButton);
    }
    QStringList lines(const QString& name) {
        return Reserve::ReadLines(t.path(u"testmode/reserve/"_s + name));
    }
};

} // namespace

// Through its controls: the checks in order, 11 PM stored as 23, moves and
// deletes, the moment's list and the main grid refilled each time.
TEST(AddNewWindow, AddsMovesAndDeletesOnOneMoment) {
    Desk d;
    auto* main = d.window.get();
    EXPECT_FALSE(d.in<QToolButton>(main, u"cmdDelRes"_s)->isEnabled()); // an empty store
    d.click(main, u"cmdTimer"_s);
    AddNewWindow* w = main->ShowAddNew();
    ASSERT_TRUE(w->isVisible());

    auto* device = d.in<QComboBox>(w, u"cmbDeviceName"_s);
    const int chosen = device->currentIndex();
    device->setCurrentIndex(-1);
    QTest::mouseClick(d.in<QComboBox>(w, u"cmbFunc"_s), Qt::LeftButton);
    device->setCurrentIndex(chosen);
    d.click(w, u"Option3"_s);
    d.click(w, u"Command1"_s);
    d.in<QComboBox>(w, u"Combo1"_s)->setCurrentText(u"11"_s);
    d.click(w, u"Option1"_s);
    d.in<QDateEdit>(w, u"DTPicker1"_s)->setDate(QDate(2026, 11, 23));
    d.click(w, u"Command1"_s); // 11:00 AM today is over
    EXPECT_EQ(d.prompt.shown,
              (QStringList{u"warning:先に機器番号、機器の名前を選択してください"_s,
                           u"warning:曜日が選択されていません"_s,
                           u"warning:予約時刻はすでに過ぎています。修正してください。"_s}));

    d.in<QComboBox>(w, u"Combo3"_s)->setCurrentText(u"PM"_s);
    d.in<QComboBox>(w, u"Combo2"_s)->setCurrentText(u"05"_s);
    d.in<QComboBox>(w, u"cmbFunc"_s)->setCurrentText(u"ch1"_s);
    d.click(w, u"Command1"_s);
    d.in<QComboBox>(w, u"cmbFunc"_s)->setCurrentText(u"電源"_s);
    d.click(w, u"Command1"_s);
    EXPECT_EQ(d.lines(u"2026_11_23 23_05"_s), (QStringList{u"テレビ|ch1"_s, u"テレビ|電源"_s}));
    auto* list = d.in<QTableWidget>(w, u"MSFlexGrid1"_s);
    ASSERT_EQ(list->rowCount(), 3);
    EXPECT_EQ(list->item(1, 4)->text(), u"電源"_s);
    EXPECT_EQ(d.app.scheduler.grid.rows().size(), 2u);
    EXPECT_TRUE(d.in<QToolButton>(main, u"cmdDelRes"_s)->isEnabled());

    list->selectRow(1);
    d.click(w, u"Command4"_s);
    EXPECT_EQ(d.lines(u"2026_11_23 23_05"_s), (QStringList{u"テレビ|電源"_s, u"テレビ|ch1"_s}));
    EXPECT_EQ(list->currentRow(), 0);
    EXPECT_EQ(d.app.scheduler.grid.rows()[0].function, u"電源"_s);
    d.click(w, u"Command6"_s);
    list->selectRow(0);
    d.click(w, u"Command6"_s);
    EXPECT_EQ(d.lines(u"2026_11_23 23_05"_s), QStringList{});
    EXPECT_FALSE(d.in<QToolButton>(main, u"cmdDelRes"_s)->isEnabled());

    // The hour display is a setting, stored at once.
    d.click(w, u"Option5"_s);
    EXPECT_EQ(d.t.settings.ReadIni(u"DataFormat", u"Time"), u"24hours"_s);
    EXPECT_EQ(d.in<QComboBox>(w, u"Combo1"_s)->count(), 24);
    EXPECT_FALSE(d.in<QComboBox>(w, u"Combo3"_s)->isVisible());
    w->close();
    EXPECT_FALSE(d.t.settings.ReadIni(u"Pos", u"AddNew_T").isEmpty());
}

// The main window shows the grid and the next reservation, and cmdDelRes opens the
// dialog on the selected row's moment.
TEST(AddNewWindow, EditOpensOnTheSelectedRowsMoment) {
    Desk d;
    d.t.writeFile(u"testmode/reserve/0100100 21_30", "A|x\r\nB|y\r\n");
    d.app.scheduler.FillGrid();
    d.app.scheduler.Tick();
    EXPECT_EQ(d.in<QLabel>(d.window.get(), u"lblTime"_s)->text(), u"2026/11/23 21:30"_s);
    auto* grid = d.in<QTableView>(d.window.get(), u"MSFlexGrid1"_s);
    EXPECT_EQ(grid->model()->rowCount(), 3);
    grid->setCurrentIndex(grid->model()->index(1, 1));
    d.click(d.window.get(), u"cmdDelRes"_s);
    AddNewWindow* w = d.window->ShowAddNew();
    EXPECT_TRUE(d.in<QRadioButton>(w, u"Option3"_s)->isChecked());
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(d.in<QCheckBox>(w, u"Check1_"_s + QString::number(i))->isChecked(),
                  i == 1 || i == 4);
    EXPECT_EQ(d.in<QComboBox>(w, u"Combo1"_s)->currentText(), u"09"_s);
    EXPECT_EQ(d.in<QComboBox>(w, u"Combo3"_s)->currentText(), u"PM"_s);

    // A moment whose file is full says so and stays as it was.
    const QByteArray full = "A|x\r\n" + QByteArray(Reserve::MaxFileBytes - 8, 'x');
    d.t.writeFile(u"testmode/reserve/0100100 21_30", full);
    d.click(w, u"Command1"_s);
    EXPECT_EQ(d.prompt.shown, QStringList{u"warning:この日付・時刻にはこれ以上予約できません"_s});
    EXPECT_EQ(d.t.readFile(u"testmode/reserve/0100100 21_30"), full);
}
