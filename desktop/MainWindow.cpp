#include "desktop/MainWindow.h"
#include "core/SettingKeys.h"

#include "core/NetAddress.h"
#include "core/ProgramEvents.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "desktop/AboutWindow.h"
#include "desktop/OpenHelp.h"
#include "exchange/ExchangeWindows.h"
#include "power/Power.h"
#include "power/SuspendWindow.h"
#include "reachability/AddressWatch.h"
#include "remotes/Registry.h"
#include "reservations/AddNewWindow.h"
#include "reservations/Scheduler.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDialog>
#include <QFileSystemWatcher>
#include <QHeaderView>
#include <QHostAddress>
#include <QLabel>
#include <QLoggingCategory>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>
#include <QTableView>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcMainWindow, "kestrava.mainwindow")

constexpr int CaptionHeight = 18; // the drawn title strip while the menu shows
constexpr int HeaderHeight =
    (MainWindow::HeightWithMenuTwips - MainWindow::HeightWithoutMenuTwips) /
    MainWindow::TwipsPerPixel;
constexpr int LcdTop = 24, LcdHeight = 34;
const QColor LcdText(0x1c, 0x34, 0x1c);

const QString PanelStyle = uR"(
QToolButton {
    color: #e8eef2; font-size: 11px;
    background: qlineargradient(x1:0, y1:0, x2:0, y2:1, stop:0 #66717d, stop:1 #2e353d);
    border: 1px solid #15191d; border-radius: 3px; padding: 0px 3px;
}
QToolButton:hover { background: qlineargradient(x1:0, y1:0, x2:0, y2:1,
    stop:0 #7a8693, stop:1 #3a434c); }
QToolButton:pressed { background: #1d2227; }
QToolButton:disabled { color: #808a94; }
QTableView { font-size: 11px; background: #eef2ee; gridline-color: #b7c0b7;
    border: 1px solid #15191d; }
QHeaderView::section { font-size: 11px; background: #d5dbd5; border: 0px;
    border-right: 1px solid #b7c0b7; padding: 0px; }
QComboBox { font-size: 12px; }
)"_s;

QIcon PanelIcon() {
    // A tiny picture of the panel with its lit sender lamp.
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    QLinearGradient body(0, 0, 0, 32);
    body.setColorAt(0, QColor(0x5a, 0x64, 0x70));
    body.setColorAt(1, QColor(0x20, 0x26, 0x2c));
    p.setBrush(body);
    p.setPen(QPen(QColor(0x10, 0x12, 0x14), 1.5));
    p.drawRoundedRect(QRectF(2, 6, 28, 20), 4, 4);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0xa8, 0xc8, 0x92));
    p.drawRect(QRectF(6, 10, 14, 7));
    p.setBrush(QColor(0xff, 0x40, 0x30));
    p.drawEllipse(QPointF(25, 13.5), 2.6, 2.6);
    return QIcon(pixmap);
}

QToolButton* PanelButton(QWidget* parent, const QString& name, const QString& text,
                         const QString& tip) {
    auto* b = new QToolButton(parent);
    b->setObjectName(name);
    b->setText(text);
    b->setToolTip(tip);
    b->setFocusPolicy(Qt::NoFocus);
    return b;
}
// Shows a window that may already be open in front of the others.
void bringUp(QWidget* w) {
    w->show();
    w->raise();
    w->activateWindow();
}

} // namespace

MainWindow::MainWindow(MainParts parts, QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint), app_(std::move(parts)) {
    setObjectName(u"frmMain"_s);
    setWindowIcon(PanelIcon());
    setStyleSheet(PanelStyle);
    buildMenus();
    buildPanel();
    ShowMenu(false);

    tray_ = new QSystemTrayIcon(PanelIcon(), this);
    tray_->setToolTip(u"Kestrava"_s);
    // Queued: removing the icon deletes the X11 widget that emits the click.
    connect(tray_, &QSystemTrayIcon::activated, this, &MainWindow::trayActivated,
            Qt::QueuedConnection);

    // Another process may change the registry (kestrava --import): setting.ini is
    // replaced by a rename, which the folder's watch sees.
    auto* watcher = new QFileSystemWatcher({app_.folder.root()}, this);
    auto* settle = new QTimer(this);
    settle->setSingleShot(true);
    settle->setInterval(200);
    connect(watcher, &QFileSystemWatcher::directoryChanged, settle, qOverload<>(&QTimer::start));
    connect(settle, &QTimer::timeout, this, [this] {
        const DeviceList list = ::FillDevices(app_.settings);
        bool same = int(list.items.size()) == cmbDeviceName_->count();
        for (int i = 0; same && i < cmbDeviceName_->count(); ++i)
            same = cmbDeviceName_->itemText(i) == list.items[size_t(i)].name;
        if (!same)
            FillDevices();
    });
    timComboVisible_.setInterval(10000);
    timComboVisible_.setSingleShot(true);
    connect(&timComboVisible_, &QTimer::timeout, this, [this] { cmbDeviceName_->hide(); });
    connect(&app_.addressWatch, &AddressWatch::localUrlDue, this, &MainWindow::ShowLocalAddress);
    connect(&app_.addressWatch, &AddressWatch::urlShown, this,
            [this](const QString& url) { lblAddr_->setText(url); });
    connect(&app_.events, &ProgramEvents::unloadWindows, this, [this] {
        // A box left open would keep its own event loop, and the program, alive.
        for (QWidget* w : QApplication::topLevelWidgets())
            if (auto* dialog = qobject_cast<QDialog*>(w); dialog && dialog->isVisible())
                dialog->reject();
        if (addNew_)
            addNew_->close();
        timComboVisible_.stop();
        hide();
    });
    // Last in the close order: the position, then the tray icon goes.
    connect(&app_.events, &ProgramEvents::closed, this, [this] {
        StorePosition();
        tray_->hide();
    });
}

MainWindow::~MainWindow() {
    delete addNew_; // it shows the application, which outlives no window
}

void MainWindow::buildMenus() {
    menuBar_ = new QMenuBar(this);
    menuBar_->setNativeMenuBar(false);
    auto item = [this](QMenu* menu, const QString& name, const QString& caption, bool enabled) {
        QAction* a = menu->addAction(caption);
        a->setObjectName(name);
        a->setEnabled(enabled);
        return a;
    };
    QMenu* file = menuBar_->addMenu(u"ファイル(&F)"_s);
    file->setObjectName(u"MFile"_s);
    MFileX = item(file, u"MFileX"_s, u"学習済み信号のエクスポート(&X)"_s, true);
    MFileI = item(file, u"MFileI"_s, u"学習済み信号のインポート(&I)"_s, true);
    connect(MFileX, &QAction::triggered, this, &MainWindow::showExport);
    connect(MFileI, &QAction::triggered, this, &MainWindow::showImport);
    file->addSeparator();
    MEnd = item(file, u"MEnd"_s, u"終了(&E)"_s, true);
    connect(MEnd, &QAction::triggered, this, &QWidget::close);

    QMenu* settei = menuBar_->addMenu(u"設定(&O)"_s);
    settei->setObjectName(u"MSettei"_s);
    MTira = item(settei, u"MTira"_s, u"全般設定(&T)"_s, true);
    connect(MTira, &QAction::triggered, &app_.events, &ProgramEvents::setupRequested);
    QMenu* study = settei->addMenu(u"リモコン信号の学習(&S)"_s);
    study->setObjectName(u"MStudy"_s);
    MStudyNew = item(study, u"MStudyNew"_s, u"新しいリモコンの学習(&N)"_s, true);
    MEditRemote = item(study, u"MEditRemote"_s, u"学習済みリモコンの編集(&E)"_s, true);
    connect(MStudyNew, &QAction::triggered, this, &MainWindow::studyRequested);
    connect(MEditRemote, &QAction::triggered, this, &MainWindow::editRequested);
    MClimate = item(settei, u"MClimate"_s, u"エアコン(&A)"_s, true);
    connect(MClimate, &QAction::triggered, this, &MainWindow::climateRequested);

    MScene = menuBar_->addMenu(u"シーン(&C)"_s);
    MScene->setObjectName(u"MScene"_s);
    SetScenes({});

    QMenu* help = menuBar_->addMenu(u"ヘルプ(&H)"_s);
    help->setObjectName(u"MHelp"_s);
    MHelpFile = item(help, u"MHelpFile"_s, u"目次とキーワード(&C)"_s, true);
    connect(MHelpFile, &QAction::triggered, this, [this] { OpenHelp(u"index.html"_s, this); });
    help->addSeparator();
    MVersion = item(help, u"MVersion"_s, u"バージョン情報(&A)"_s, true);
    connect(MVersion, &QAction::triggered, this, &MainWindow::showAbout);
}

void MainWindow::buildPanel() {
    command1_[0] = PanelButton(this, u"Command1_0"_s, u"▼"_s, u"メニューを表示"_s);
    command1_[1] = PanelButton(this, u"Command1_1"_s, u"▲"_s, u"メニューを隠す"_s);
    connect(command1_[0], &QToolButton::clicked, this, [this] { ShowMenu(true); });
    connect(command1_[1], &QToolButton::clicked, this, [this] { ShowMenu(false); });
    command11_ = PanelButton(this, u"Command11"_s, u"－"_s, u"タスクトレイに収納"_s);
    connect(command11_, &QToolButton::clicked, this, [this] { showMinimized(); });
    command12_ = PanelButton(this, u"Command12"_s, u"×"_s, u"終了"_s);
    connect(command12_, &QToolButton::clicked, this, &QWidget::close);

    auto lcdLabel = [this](const QString& name, const QString& text) {
        auto* l = new QLabel(text, this);
        l->setObjectName(name);
        QPalette pal = l->palette();
        pal.setColor(QPalette::WindowText, LcdText);
        l->setPalette(pal);
        QFont f = l->font();
        f.setPixelSize(12);
        l->setFont(f);
        return l;
    };
    label3_ = lcdLabel(u"Label3"_s, u"URL"_s);
    lblAddr_ = lcdLabel(u"lblAddr"_s, {});
    labelTime_ = lcdLabel(u"LabelTime"_s, u"次の予約"_s);
    lblTime_ = lcdLabel(u"lblTime"_s, {});
    for (QLabel* l : {label3_, labelTime_}) {
        QFont f = l->font();
        f.setBold(true);
        l->setFont(f);
    }

    // The reservation list: a view of the scheduler's grid.
    ReserveGrid& model = app_.scheduler.grid;
    grid_ = new QTableView(this);
    grid_->setObjectName(u"MSFlexGrid1"_s);
    grid_->setModel(&model);
    grid_->setColumnHidden(ReserveGrid::File, true);
    for (int c = ReserveGrid::Day; c < ReserveGrid::ColumnCount; ++c)
        grid_->setColumnWidth(c, ReserveGrid::ColumnTwips[c] / TwipsPerPixel);
    grid_->horizontalHeader()->setStretchLastSection(true);
    grid_->verticalHeader()->hide();
    grid_->verticalHeader()->setDefaultSectionSize(15);
    grid_->horizontalHeader()->setFixedHeight(16);
    grid_->horizontalHeader()->setDefaultAlignment(Qt::AlignCenter);
    grid_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    grid_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    grid_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    grid_->setSelectionBehavior(QAbstractItemView::SelectRows);
    grid_->setSelectionMode(QAbstractItemView::SingleSelection);
    grid_->setFocusPolicy(Qt::NoFocus);
    // 次の予約: when the next reservation is due. It changes with the grid, and
    // when a minute passes (a repeating row that came due moves on).
    connect(&model, &QAbstractItemModel::modelReset, this, &MainWindow::ShowNextReserve);
    connect(&app_.scheduler, &Scheduler::timeShown, this, [this](const QString& now) {
        const QString minute = now.left(16); // "yyyy/mm/dd hh:mm"
        if (minute != shownMinute_) {
            shownMinute_ = minute;
            ShowNextReserve();
        }
    });
    ShowNextReserve();

    command2_[0] = PanelButton(this, u"Command2_0"_s, u"▲"_s, u"予約一覧を上へ"_s);
    command2_[1] = PanelButton(this, u"Command2_1"_s, u"▼"_s, u"予約一覧を下へ"_s);
    for (int i = 0; i < 2; ++i)
        connect(command2_[i], &QToolButton::clicked, this, [this, i] {
            QScrollBar* bar = grid_->verticalScrollBar();
            bar->setValue(bar->value() + (i == 1 ? 1 : -1)); // clamped at both ends
        });

    cmdRemocon_ = PanelButton(this, u"cmdRemocon"_s, u"リモコン"_s, u"リモコンを表示して実行"_s);
    connect(cmdRemocon_, &QToolButton::clicked, this, [this] {
        FillDevices();
        cmbDeviceName_->show();
        cmbDeviceName_->raise();
        timComboVisible_.start();
    });
    cmbDeviceName_ = new QComboBox(this);
    cmbDeviceName_->setObjectName(u"cmbDeviceName"_s);
    cmbDeviceName_->hide();
    connect(cmbDeviceName_, &QComboBox::activated, this, &MainWindow::deviceChosen);

    cmdTimer_ = PanelButton(this, u"cmdTimer"_s, u"予約追加"_s, u"予約を追加"_s);
    cmdDelRes_ = PanelButton(this, u"cmdDelRes"_s, u"予約編集"_s, u"選択行の予約を編集"_s);
    connect(cmdTimer_, &QToolButton::clicked, this, [this] { ShowAddNew(); });
    connect(cmdDelRes_, &QToolButton::clicked, this, [this] {
        const QModelIndex current = grid_->currentIndex();
        if (current.isValid())
            ShowAddNew(grid_->model()->index(current.row(), ReserveGrid::File).data().toString());
    });
    auto rowsChanged = [this] { cmdDelRes_->setEnabled(!app_.scheduler.grid.rows().empty()); };
    connect(&model, &QAbstractItemModel::modelReset, this, rowsChanged);
    rowsChanged();
    cmdSuspend_ = PanelButton(this, u"cmdSuspend"_s, u"休止"_s, u"休止状態にします"_s);
    cmdSuspend_->hide();
    connect(cmdSuspend_, &QToolButton::clicked, &app_.power, &Power::SuspendPressed);
    new SuspendWindow(app_.power, this);
}

void MainWindow::layOut() {
    const int top = menuShown_ ? HeaderHeight : 0;
    menuBar_->setGeometry(0, CaptionHeight, WidthPixels, HeaderHeight - CaptionHeight);
    menuBar_->setVisible(menuShown_);
    for (QToolButton* b : {command1_[0], command1_[1]})
        b->setGeometry(WidthPixels - 66, top + 4, 20, 17);
    command11_->setGeometry(WidthPixels - 44, top + 4, 20, 17);
    command12_->setGeometry(WidthPixels - 22, top + 4, 18, 17);

    const int lcd = top + LcdTop;
    label3_->setGeometry(12, lcd + 2, 56, 15);
    lblAddr_->setGeometry(70, lcd + 2, WidthPixels - 82, 15);
    labelTime_->setGeometry(12, lcd + 17, 56, 15);
    lblTime_->setGeometry(70, lcd + 17, WidthPixels - 82, 15);

    const int gridTop = lcd + LcdHeight + 4;
    grid_->setGeometry(6, gridTop, WidthPixels - 34, 48);
    command2_[0]->setGeometry(WidthPixels - 26, gridTop, 20, 23);
    command2_[1]->setGeometry(WidthPixels - 26, gridTop + 25, 20, 23);

    const int row = gridTop + 52;
    cmdRemocon_->setGeometry(6, row, 74, 22);
    cmbDeviceName_->setGeometry(84, row, 180, 22);
    cmdTimer_->setGeometry(84, row, 70, 22);
    cmdDelRes_->setGeometry(158, row, 70, 22);
    cmdSuspend_->setGeometry(WidthPixels - 62, row, 56, 22);
}

void MainWindow::SetScenes(const QList<QPair<int, QString>>& scenes) {
    MScene->clear();
    for (const auto& [id, name] : scenes) {
        // A name is the user's text: an & in it is no shortcut.
        QAction* a = MScene->addAction(QString(name).replace(u'&', u"&&"_s));
        connect(a, &QAction::triggered, this, [this, id] { emit sceneRequested(id); });
    }
    if (scenes.isEmpty())
        MScene->addAction(u"（シーンはありません）"_s)->setEnabled(false);
}

void MainWindow::ShowMenu(bool shown) {
    const QPoint kept = pos();
    menuShown_ = shown;
    setWindowTitle(shown ? u"Kestrava"_s : QString());
    command1_[1]->setVisible(shown);
    command1_[0]->setVisible(!shown);
    const int twips = shown ? HeightWithMenuTwips : HeightWithoutMenuTwips;
    setFixedSize(WidthPixels, twips / TwipsPerPixel);
    layOut();
    move(kept);
    update();
}

void MainWindow::UpdateSuspendButton() {
    cmdSuspend_->setVisible(app_.settings.IsOn(Key::PowerControl));
}

void MainWindow::ShowAtStart() {
    SettingsStore& s = app_.settings;
    // Main_L counts only when Main_T is there; a negative value keeps the default.
    const QString mainT = s.Read(Key::PositionTop(u"Main"));
    if (!mainT.isEmpty()) {
        QPoint p = pos();
        if (qint64 t = Val(mainT); t >= 0)
            p.setY(int(t / TwipsPerPixel));
        if (qint64 l = Val(s.Read(Key::PositionLeft(u"Main"))); l >= 0)
            p.setX(int(l / TwipsPerPixel));
        move(p);
    }
    const bool hide = s.IsOn(Key::Hide) && trayAvailable;
    if (!hide)
        show();
    UpdateSuspendButton();
    FillDevices();
    ShowLocalAddress();
    if (hide)
        AddTrayIcon();
}

void MainWindow::FillDevices() {
    DeviceList list = ::FillDevices(app_.settings);
    cmbDeviceName_->clear();
    for (const DeviceListItem& item : list.items)
        cmbDeviceName_->addItem(item.name, item.id ? QVariant(*item.id) : QVariant());
    cmbDeviceName_->setPlaceholderText(list.shownText);
    cmbDeviceName_->setCurrentIndex(-1);
}

AddNewWindow* MainWindow::ShowAddNew(const QString& editFile) {
    if (!addNew_)
        addNew_ =
            new AddNewWindow(app_.folder, app_.settings, app_.clock, app_.prompt, app_.scheduler);
    if (!editFile.isEmpty())
        addNew_->EditFile(editFile);
    bringUp(addNew_);
    return addNew_;
}

void MainWindow::ShowNextReserve() {
    lblTime_->setText(app_.scheduler.GetNextReserve());
}

void MainWindow::ShowLocalAddress() {
    lblAddr_->setText(app_.addressWatch.LocalUrl());
}

void MainWindow::setComboHideMs(int ms) {
    timComboVisible_.setInterval(ms);
    if (timComboVisible_.isActive())
        timComboVisible_.start();
}

void MainWindow::deviceChosen(int index) {
    // Each choice gives the list another ten seconds.
    timComboVisible_.stop();
    timComboVisible_.start();
    const QString name = cmbDeviceName_->itemText(index);
    if (name.isEmpty() || name == u"選択して下さい")
        return;
    emit remoteWindowRequested(name, cmbDeviceName_->itemData(index).toInt());
}

void MainWindow::AddTrayIcon() {
    if (!trayAvailable) {
        // Hidden without a tray there would be no way back: stay minimised
        // on the task bar, and start shown next time.
        qCWarning(lcMainWindow) << "no system tray; the window stays minimised";
        if (!isMinimized())
            showMinimized();
        return;
    }
    tray_->show();
    hide();
    app_.settings.Write(Key::Hide, u"1");
}

void MainWindow::RemoveTrayIcon() {
    tray_->hide();
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void MainWindow::trayActivated(QSystemTrayIcon::ActivationReason reason) {
    if (reason == QSystemTrayIcon::Trigger) {
        RemoveTrayIcon();
        app_.settings.Write(Key::Hide, u"0");
    } else if (reason == QSystemTrayIcon::Context) {
        // Back on the screen, but the next start is in the tray again.
        RemoveTrayIcon();
    }
}

void MainWindow::StorePosition() {
    const QPoint p = pos();
    if (p.x() < 0 || p.y() < 0)
        return;
    app_.settings.Write(Key::PositionTop(u"Main"), QString::number(p.y() * TwipsPerPixel));
    app_.settings.Write(Key::PositionLeft(u"Main"), QString::number(p.x() * TwipsPerPixel));
}

void MainWindow::showExport() {
    if (!export_)
        export_ = new ExportWindow(app_.folder, app_.settings, app_.prompt, this);
    bringUp(export_);
}

void MainWindow::showImport() {
    if (!import_) {
        import_ = new ImportWindow(app_.folder, app_.settings, app_.prompt, this);
        connect(import_, &ImportWindow::devicesChanged, this, &MainWindow::FillDevices);
    }
    bringUp(import_);
}

void MainWindow::showAbout() {
    if (!about_)
        about_ = new AboutWindow(lblAddr_->text() + u"/"_s, this);
    bringUp(about_);
}

void MainWindow::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF outer = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QLinearGradient body(0, 0, 0, height());
    body.setColorAt(0, QColor(0x4b, 0x55, 0x60));
    body.setColorAt(0.5, QColor(0x33, 0x3a, 0x42));
    body.setColorAt(1, QColor(0x1f, 0x24, 0x29));
    p.setPen(QPen(QColor(0x0e, 0x10, 0x12), 1));
    p.setBrush(body);
    p.drawRect(outer);

    const int top = menuShown_ ? HeaderHeight : 0;
    if (menuShown_) {
        p.fillRect(QRect(1, 1, width() - 2, CaptionHeight - 1), QColor(0x1b, 0x2a, 0x3d));
        p.setPen(QColor(0xe8, 0xee, 0xf2));
        QFont f = font();
        f.setPixelSize(12);
        f.setBold(true);
        p.setFont(f);
        p.drawText(QRect(0, 0, width(), CaptionHeight), Qt::AlignCenter, windowTitle());
    }

    // The maker's plate and the sender lamp.
    QFont brand = font();
    brand.setPixelSize(13);
    brand.setBold(true);
    brand.setLetterSpacing(QFont::AbsoluteSpacing, 2);
    p.setFont(brand);
    p.setPen(QColor(0xd8, 0xde, 0xe4));
    p.drawText(QRect(12, top + 3, 160, 19), Qt::AlignLeft | Qt::AlignVCenter, u"KESTRAVA"_s);
    QRadialGradient lamp(QPointF(128, top + 12.5), 5);
    lamp.setColorAt(0, QColor(0xff, 0x8a, 0x70));
    lamp.setColorAt(1, QColor(0xb0, 0x18, 0x10));
    p.setPen(QPen(QColor(0x10, 0x10, 0x10), 1));
    p.setBrush(lamp);
    p.drawEllipse(QPointF(128, top + 12.5), 4, 4);

    // The display window behind the URL and the next reservation.
    const QRectF lcd(6.5, top + LcdTop + 0.5, width() - 13, LcdHeight);
    QLinearGradient glass(0, lcd.top(), 0, lcd.bottom());
    glass.setColorAt(0, QColor(0xc4, 0xda, 0xb2));
    glass.setColorAt(1, QColor(0x9e, 0xbd, 0x8a));
    p.setPen(QPen(QColor(0x0e, 0x10, 0x12), 1));
    p.setBrush(glass);
    p.drawRoundedRect(lcd, 3, 3);
}

void MainWindow::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return QWidget::mousePressEvent(event);
    dragStart_ = event->globalPosition().toPoint() - pos();
    dragActive_ = true;
}

void MainWindow::mouseMoveEvent(QMouseEvent* event) {
    if (!dragActive_)
        return QWidget::mouseMoveEvent(event);
    QPoint p = event->globalPosition().toPoint() - dragStart_;
    move(qMax(p.x(), 0), qMax(p.y(), 0));
}

void MainWindow::mouseReleaseEvent(QMouseEvent* event) {
    dragActive_ = false;
    QWidget::mouseReleaseEvent(event);
}

void MainWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    // Minimising always goes to the tray; after the state change has settled.
    if (event->type() == QEvent::WindowStateChange && isMinimized())
        QMetaObject::invokeMethod(this, &MainWindow::AddTrayIcon, Qt::QueuedConnection);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    event->accept();
    app_.close();
}
