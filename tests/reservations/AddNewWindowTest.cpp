#include "reservations/AddNewWindow.h"
#include "reservations/ReserveStore.h"
#include "support/Desktop.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QRadioButton>
#include <QTableView>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Desk : Desktop {
    Desk() : Desktop(true) {}
    QStringList lines(const QString& name) {
        return Reserve::ReadLines(t.path(u"testmode/reserve/"_s + name));
    }
};

} // namespace

// The checks in order, 11 PM stored as 23, moves and deletes refilling both lists.
TEST(AddNewWindow, AddsMovesAndDeletesOnOneMoment) {
    Desk d;
    MainWindow* main = d.window.get();
    EXPECT_FALSE(d.find<QToolButton>(u"cmdDelRes"_s)->isEnabled()); // an empty store
    d.click(u"cmdTimer"_s);
    AddNewWindow* w = main->ShowAddNew();
    ASSERT_TRUE(w->isVisible());

    auto* device = d.find<QComboBox>(u"cmbDeviceName"_s, w);
    const int chosen = device->currentIndex();
    device->setCurrentIndex(-1);
    QTest::mouseClick(d.find<QComboBox>(u"cmbFunc"_s, w), Qt::LeftButton);
    device->setCurrentIndex(chosen);
    d.click(u"Option3"_s, w);
    d.click(u"Command1"_s, w);
    d.find<QComboBox>(u"Combo1"_s, w)->setCurrentText(u"11"_s);
    d.click(u"Option1"_s, w);
    d.find<QDateEdit>(u"DTPicker1"_s, w)->setDate(QDate(2026, 11, 23));
    d.click(u"Command1"_s, w); // 11:00 AM today is over
    EXPECT_EQ(d.prompt.shown,
              (QStringList{u"warning:先に機器番号、機器の名前を選択してください"_s,
                           u"warning:曜日が選択されていません"_s,
                           u"warning:予約時刻はすでに過ぎています。修正してください。"_s}));

    d.find<QComboBox>(u"Combo3"_s, w)->setCurrentText(u"PM"_s);
    d.find<QComboBox>(u"Combo2"_s, w)->setCurrentText(u"05"_s);
    d.find<QComboBox>(u"cmbFunc"_s, w)->setCurrentText(u"ch1"_s);
    d.click(u"Command1"_s, w);
    d.find<QComboBox>(u"cmbFunc"_s, w)->setCurrentText(u"電源"_s);
    d.click(u"Command1"_s, w);
    EXPECT_EQ(d.lines(u"2026_11_23 23_05"_s), (QStringList{u"テレビ|ch1"_s, u"テレビ|電源"_s}));
    auto* list = d.find<QTableWidget>(u"MSFlexGrid1"_s, w);
    ASSERT_EQ(list->rowCount(), 3);
    EXPECT_EQ(list->item(1, 4)->text(), u"電源"_s);
    EXPECT_EQ(d.app.scheduler.grid.rows().size(), 2u);
    EXPECT_TRUE(d.find<QToolButton>(u"cmdDelRes"_s)->isEnabled());

    list->selectRow(1);
    d.click(u"Command4"_s, w);
    EXPECT_EQ(d.lines(u"2026_11_23 23_05"_s), (QStringList{u"テレビ|電源"_s, u"テレビ|ch1"_s}));
    EXPECT_EQ(list->currentRow(), 0);
    EXPECT_EQ(d.app.scheduler.grid.rows()[0].function, u"電源"_s);
    d.click(u"Command6"_s, w);
    list->selectRow(0);
    d.click(u"Command6"_s, w);
    EXPECT_EQ(d.lines(u"2026_11_23 23_05"_s), QStringList{});
    EXPECT_FALSE(d.find<QToolButton>(u"cmdDelRes"_s)->isEnabled());

    // The hour display is a setting, stored at once.
    d.click(u"Option5"_s, w);
    EXPECT_EQ(d.t.settings.ReadIni(u"DataFormat", u"Time"), u"24hours"_s);
    EXPECT_EQ(d.find<QComboBox>(u"Combo1"_s, w)->count(), 24);
    EXPECT_FALSE(d.find<QComboBox>(u"Combo3"_s, w)->isVisible());
    w->close();
    EXPECT_FALSE(d.t.settings.ReadIni(u"Pos", u"AddNew_T").isEmpty());
}

// cmdDelRes opens the dialog on the selected row's moment.
TEST(AddNewWindow, EditOpensOnTheSelectedRowsMoment) {
    Desk d;
    d.t.writeFile(u"testmode/reserve/0100100 21_30", "A|x\r\nB|y\r\n");
    d.app.scheduler.FillGrid();
    auto* grid = d.find<QTableView>(u"MSFlexGrid1"_s);
    EXPECT_EQ(grid->model()->rowCount(), 3);
    grid->setCurrentIndex(grid->model()->index(1, 1));
    d.click(u"cmdDelRes"_s);
    AddNewWindow* w = d.window->ShowAddNew();
    EXPECT_TRUE(d.find<QRadioButton>(u"Option3"_s, w)->isChecked());
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(d.find<QCheckBox>(u"Check1_"_s + QString::number(i), w)->isChecked(),
                  i == 1 || i == 4);
    EXPECT_EQ(d.find<QComboBox>(u"Combo1"_s, w)->currentText(), u"09"_s);
    EXPECT_EQ(d.find<QComboBox>(u"Combo3"_s, w)->currentText(), u"PM"_s);

    // A moment whose file is full says so and stays as it was.
    const QByteArray full = "A|x\r\n" + QByteArray(Reserve::MaxFileBytes - 8, 'x');
    d.t.writeFile(u"testmode/reserve/0100100 21_30", full);
    d.click(u"Command1"_s, w);
    EXPECT_EQ(d.prompt.shown, QStringList{u"warning:この日付・時刻にはこれ以上予約できません"_s});
    EXPECT_EQ(d.t.readFile(u"testmode/reserve/0100100 21_30"), full);
}
