#include "reservations/AddNewWindow.h"

#include "core/Clock.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "remotes/Registry.h"
#include "reservations/ReserveGrid.h"
#include "reservations/ReserveStore.h"
#include "reservations/Scheduler.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDateEdit>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLoggingCategory>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QTableWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcAddNew, "kestrava.reserve")
constexpr int TwipsPerPixel = 15;

QStringList twoDigits(int from, int to) {
    QStringList out;
    for (int i = from; i <= to; ++i)
        out << QString::number(i).rightJustified(2, u'0');
    return out;
}

QPushButton* button(QWidget* parent, const QString& name, const QString& text) {
    auto* b = new QPushButton(text, parent);
    b->setObjectName(name);
    return b;
}
} // namespace

const QString AddNewWindow::Title = u"Kestrava　－　予約の追加、編集"_s;

AddNewWindow::AddNewWindow(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
                           UserPrompt& prompt, Scheduler& scheduler, QWidget* parent)
    : QWidget(parent, Qt::Window), folder_(folder), settings_(settings), clock_(clock),
      prompt_(prompt), scheduler_(scheduler) {
    setObjectName(u"frmAddNew"_s);
    setWindowTitle(Title);
    setAttribute(Qt::WA_DeleteOnClose);
    SettingsStore& s = settings_;

    auto* dateBox = new QGroupBox(u"日付の指定"_s, this);
    auto* dateGrid = new QGridLayout(dateBox);
    auto* days = new QButtonGroup(this);
    const QString captions[] = {{},        u"1回だけ"_s,   u"毎日"_s,
                                u"毎週"_s, u"AM/PM表示"_s, u"24時間表示"_s};
    for (int i = 1; i <= 5; ++i) {
        option_[i] = new QRadioButton(captions[i], this);
        option_[i]->setObjectName(u"Option"_s + QString::number(i));
    }
    for (int i = 1; i <= 3; ++i)
        days->addButton(option_[i]);
    dtPicker1_ = new QDateEdit(this);
    dtPicker1_->setObjectName(u"DTPicker1"_s);
    dtPicker1_->setDisplayFormat(u"yyyy/MM/dd"_s);
    dtPicker1_->setCalendarPopup(true);
    dtPicker1_->setToolTip(u"日付を選択"_s);
    dateGrid->addWidget(option_[1], 0, 0);
    dateGrid->addWidget(dtPicker1_, 0, 1, 1, 7);
    dateGrid->addWidget(option_[2], 1, 0);
    dateGrid->addWidget(option_[3], 2, 0);
    for (int i = 0; i < 7; ++i) {
        check1_[i] = new QCheckBox(Reserve::DayLetters.at(i), this);
        check1_[i]->setObjectName(u"Check1_"_s + QString::number(i));
        check1_[i]->setEnabled(false);
        dateGrid->addWidget(check1_[i], 2, i + 1);
        connect(check1_[i], &QCheckBox::toggled, this, &AddNewWindow::RefreshList);
    }

    auto* timeBox = new QGroupBox(u"時刻の指定"_s, this);
    auto* timeRow = new QHBoxLayout(timeBox);
    auto* hourModes = new QButtonGroup(this);
    hourModes->addButton(option_[4]);
    hourModes->addButton(option_[5]);
    combo1_ = new QComboBox(this);
    combo2_ = new QComboBox(this);
    combo3_ = new QComboBox(this);
    combo1_->setObjectName(u"Combo1"_s);
    combo2_->setObjectName(u"Combo2"_s);
    combo3_->setObjectName(u"Combo3"_s);
    combo2_->addItems(twoDigits(0, 59));
    combo3_->addItems({u"AM"_s, u"PM"_s});
    timeRow->addWidget(combo1_);
    timeRow->addWidget(new QLabel(u"時"_s, this));
    timeRow->addWidget(combo2_);
    timeRow->addWidget(new QLabel(u"分"_s, this));
    timeRow->addWidget(combo3_);
    timeRow->addWidget(option_[4]);
    timeRow->addWidget(option_[5]);

    auto* opBox = new QGroupBox(u"操作の選択"_s, this);
    auto* opGrid = new QGridLayout(opBox);
    cmbDeviceName_ = new QComboBox(this);
    cmbDeviceName_->setObjectName(u"cmbDeviceName"_s);
    cmbFunc_ = new QComboBox(this);
    cmbFunc_->setObjectName(u"cmbFunc"_s);
    cmbFunc_->installEventFilter(this);
    QPushButton* command1 = button(this, u"Command1"_s, u"追加"_s);
    opGrid->addWidget(new QLabel(u"操作対象機器"_s, this), 0, 0);
    opGrid->addWidget(cmbDeviceName_, 0, 1);
    opGrid->addWidget(new QLabel(u"操作する機能"_s, this), 1, 0);
    opGrid->addWidget(cmbFunc_, 1, 1);
    opGrid->addWidget(command1, 1, 2);

    auto* listBox = new QGroupBox(u"この日付・時刻に予約されている項目の実行順序"_s, this);
    auto* listRow = new QHBoxLayout(listBox);
    grid_ = new QTableWidget(1, 5, this);
    grid_->setObjectName(u"MSFlexGrid1"_s);
    grid_->setHorizontalHeaderLabels(
        {u"順序"_s, u"日付/曜日"_s, u"時刻"_s, u"機器名"_s, u"機能名"_s});
    grid_->setColumnWidth(0, 600 / TwipsPerPixel);
    for (int c = 1; c < ReserveGrid::ColumnCount; ++c)
        grid_->setColumnWidth(c, ReserveGrid::ColumnTwips[c] / TwipsPerPixel);
    // The names share what the box has beyond the fixed columns.
    for (int c : {int(ReserveGrid::Device), int(ReserveGrid::Function)})
        grid_->horizontalHeader()->setSectionResizeMode(c, QHeaderView::Stretch);
    grid_->verticalHeader()->hide();
    grid_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    grid_->setSelectionBehavior(QAbstractItemView::SelectRows);
    grid_->setSelectionMode(QAbstractItemView::SingleSelection);
    auto* moves = new QVBoxLayout;
    QPushButton* command4 = button(this, u"Command4"_s, u"上へ移動"_s);
    QPushButton* command5 = button(this, u"Command5"_s, u"下へ移動"_s);
    QPushButton* command6 = button(this, u"Command6"_s, u"削除"_s);
    moves->addWidget(command4);
    moves->addWidget(command5);
    moves->addStretch();
    moves->addWidget(command6);
    listRow->addWidget(grid_);
    listRow->addLayout(moves);

    QPushButton* command2 = button(this, u"Command2"_s, u"閉じる"_s);
    auto* all = new QVBoxLayout(this);
    for (QWidget* w : {static_cast<QWidget*>(dateBox), static_cast<QWidget*>(timeBox),
                       static_cast<QWidget*>(opBox), static_cast<QWidget*>(listBox)})
        all->addWidget(w);
    all->addWidget(command2, 0, Qt::AlignRight);
    resize(640, 520);

    // The place of the last time.
    const QString top = s.Read(Key::PositionTop(u"AddNew"));
    const QString left = s.Read(Key::PositionLeft(u"AddNew"));
    if (!top.isEmpty() && !left.isEmpty()) {
        move(int(Val(left) / TwipsPerPixel), int(Val(top) / TwipsPerPixel));
    } else if (QScreen* screen = QGuiApplication::primaryScreen()) {
        // First use: the middle of the screen, not over the main window.
        QRect frame(QPoint(), size());
        frame.moveCenter(screen->availableGeometry().center());
        move(frame.topLeft());
    }

    const bool h24 = s.Read(Key::DateFormat) == u"24hours";
    option_[h24 ? 5 : 4]->setChecked(true);
    setHourMode(h24, false);
    option_[1]->setChecked(true);
    dtPicker1_->setDate(clock_.now().date());

    const DeviceList devices = FillDevices(s);
    for (const DeviceListItem& item : devices.items)
        cmbDeviceName_->addItem(item.name, item.id ? QVariant(*item.id) : QVariant());
    cmbDeviceName_->setCurrentIndex(devices.items.empty() ? -1 : 0);
    fillFunctions();

    connect(cmbDeviceName_, &QComboBox::currentIndexChanged, this, &AddNewWindow::fillFunctions);
    for (int i = 1; i <= 3; ++i)
        connect(option_[i], &QRadioButton::toggled, this, [this, i](bool on) {
            if (!on)
                return;
            for (QCheckBox* c : check1_)
                c->setEnabled(i == 3);
            RefreshList();
        });
    connect(option_[4], &QRadioButton::clicked, this, [this] { setHourMode(false, true); });
    connect(option_[5], &QRadioButton::clicked, this, [this] { setHourMode(true, true); });
    for (QComboBox* c : {combo1_, combo2_, combo3_})
        connect(c, &QComboBox::currentIndexChanged, this, &AddNewWindow::RefreshList);
    connect(dtPicker1_, &QDateEdit::dateChanged, this, &AddNewWindow::RefreshList);
    connect(command1, &QPushButton::clicked, this, &AddNewWindow::Add);
    connect(command4, &QPushButton::clicked, this, [this] { Move(true); });
    connect(command5, &QPushButton::clicked, this, [this] { Move(false); });
    connect(command6, &QPushButton::clicked, this, &AddNewWindow::Delete);
    connect(command2, &QPushButton::clicked, this, &QWidget::close);
    RefreshList();
}

void AddNewWindow::setHourMode(bool h24, bool store) {
    if (store)
        settings_.Write(Key::DateFormat, h24 ? u"24hours" : u"AMPM");
    const QSignalBlocker quiet(combo1_);
    combo1_->clear();
    combo1_->addItems(twoDigits(0, h24 ? 23 : 11));
    combo1_->setCurrentIndex(0);
    combo3_->setVisible(!h24);
    RefreshList();
}

void AddNewWindow::fillFunctions() {
    cmbFunc_->clear();
    const int index = cmbDeviceName_->currentIndex();
    if (index < 0)
        return;
    if (IsTestMode(settings_)) {
        for (const TestModeDevice& d : TestModeDevices())
            if (d.name == cmbDeviceName_->currentText())
                for (const auto& [id, name] : d.functions)
                    cmbFunc_->addItem(name);
    } else {
        for (const QString& f :
             ReadRemoteButtons(settings_, cmbDeviceName_->itemData(index).toInt()))
            if (!f.isEmpty())
                cmbFunc_->addItem(f);
    }
}

QString AddNewWindow::FileName() const {
    QString day;
    if (option_[1]->isChecked()) {
        day = dtPicker1_->date().toString(u"yyyy/MM/dd");
    } else if (option_[2]->isChecked()) {
        day = u"1111111"_s;
    } else {
        std::array<bool, 7> mask{};
        for (int i = 0; i < 7; ++i)
            mask[i] = check1_[i]->isChecked();
        day = Reserve::MaskFor(mask);
    }
    int hour = combo1_->currentText().toInt();
    if (option_[4]->isChecked() && combo3_->currentText() == u"PM")
        hour += 12;
    return Reserve::NameFor(day, QString::number(hour).rightJustified(2, u'0') + u':' +
                                     combo2_->currentText());
}

void AddNewWindow::EditFile(const QString& name) {
    if (!Reserve::IsValidName(name))
        return;
    if (Reserve::IsRepeating(name)) {
        const QStringView mask = QStringView(name).left(7);
        (mask == u"1111111" ? option_[2] : option_[3])->setChecked(true);
        if (mask != u"1111111")
            for (int i = 0; i < 7; ++i)
                check1_[i]->setChecked(mask[i] == u'1');
    } else {
        option_[1]->setChecked(true);
        dtPicker1_->setDate(QDate::fromString(name.left(10), u"yyyy_MM_dd"));
    }
    const QString time = Reserve::TimeText(name);
    int hour = time.left(2).toInt();
    if (option_[4]->isChecked()) {
        combo3_->setCurrentIndex(hour >= 12 ? 1 : 0);
        if (hour >= 12)
            hour -= 12;
    }
    combo1_->setCurrentText(QString::number(hour).rightJustified(2, u'0'));
    combo2_->setCurrentText(time.mid(3, 2));
    RefreshList();
}

void AddNewWindow::RefreshList() {
    if (!grid_)
        return;
    const QString name = FileName();
    const QStringList lines = Reserve::ReadLines(Reserve::Folder(folder_, settings_) + u'/' + name);
    grid_->clearContents();
    grid_->setRowCount(1);
    int row = 0;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (lines[i].isEmpty())
            continue;
        const Reserve::Operation op = Reserve::SplitLine(lines[i]);
        grid_->insertRow(row);
        const QString cells[] = {QString::number(i + 1), Reserve::DayText(name),
                                 Reserve::TimeText(name), op.device, op.function};
        for (int c = 0; c < 5; ++c) {
            auto* item = new QTableWidgetItem(cells[c]);
            item->setTextAlignment(Qt::AlignCenter);
            grid_->setItem(row, c, item);
        }
        ++row;
    }
}

void AddNewWindow::Add() {
    UserPrompt& prompt = prompt_;
    bool anyDay = false;
    for (QCheckBox* c : check1_)
        anyDay = anyDay || c->isChecked();
    if (option_[3]->isChecked() && !anyDay)
        return prompt.Warning(u"曜日が選択されていません"_s);
    if (combo1_->currentText().isEmpty() || combo2_->currentText().isEmpty() ||
        combo3_->currentText().isEmpty())
        return prompt.Warning(u"時刻が指定されていません"_s);
    if (cmbDeviceName_->currentText().isEmpty())
        return prompt.Warning(u"操作対象機器が選択されていません"_s);
    if (cmbFunc_->currentText().isEmpty())
        return prompt.Warning(u"操作する機能が指定されていません"_s);
    const QString name = FileName();
    if (option_[1]->isChecked()) {
        const QString at = Reserve::DayText(name) + u' ' + Reserve::TimeText(name) + u":00"_s;
        if (at <= clock_.now().toString(u"yyyy/MM/dd HH:mm:ss"))
            return prompt.Warning(u"予約時刻はすでに過ぎています。修正してください。"_s);
    }
    const Reserve::AddResult added =
        Reserve::AddLine(Reserve::Folder(folder_, settings_) + u'/' + name,
                         cmbDeviceName_->currentText(), cmbFunc_->currentText());
    if (added != Reserve::AddResult::Added) {
        qCWarning(lcAddNew) << "the dialog's add was refused:" << Reserve::AddRefusalReason(added);
        return prompt.Warning(Reserve::AddRefusalText(added));
    }
    RefreshList();
    scheduler_.FillGrid();
}

int AddNewWindow::selectedLine() const {
    const int row = grid_->currentRow();
    if (row < 0 || row >= grid_->rowCount() - 1 || !grid_->item(row, 0))
        return 0;
    return grid_->item(row, 0)->text().toInt();
}

void AddNewWindow::Move(bool up) {
    const int row = grid_->currentRow();
    const int line = selectedLine();
    if (line == 0)
        return;
    const QString path = Reserve::Folder(folder_, settings_) + u'/' + FileName();
    if (!Reserve::MoveLine(path, line, up))
        return;
    RefreshList();
    grid_->selectRow(up ? row - 1 : row + 1);
    scheduler_.FillGrid();
}

void AddNewWindow::Delete() {
    const int line = selectedLine();
    if (line == 0)
        return;
    Reserve::DeleteLine(Reserve::Folder(folder_, settings_) + u'/' + FileName(), line);
    RefreshList();
    scheduler_.FillGrid();
}

// A function can only be chosen for a device: say so instead of opening an
// empty list.
bool AddNewWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == cmbFunc_ && event->type() == QEvent::MouseButtonPress &&
        cmbDeviceName_->currentText().isEmpty()) {
        prompt_.Warning(u"先に機器番号、機器の名前を選択してください"_s);
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void AddNewWindow::closeEvent(QCloseEvent* event) {
    settings_.Write(Key::PositionTop(u"AddNew"), QString::number(y() * TwipsPerPixel));
    settings_.Write(Key::PositionLeft(u"AddNew"), QString::number(x() * TwipsPerPixel));
    event->accept();
}
