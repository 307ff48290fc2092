#include "camera/PreviewWindow.h"

#include "camera/Camera.h"
#include "camera/CameraDialogs.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenuBar>
#include <QPixmap>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {
// The live picture is redrawn this often while the window shows.
constexpr int RefreshMs = 200;

// A camera stopped meanwhile takes its dialog with it.
template <typename Dialog> void OpenCameraDialog(Camera& camera, QWidget* parent) {
    auto* dialog = new Dialog(camera, parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(&camera, &Camera::stopped, dialog, &QDialog::reject);
    dialog->open();
}
} // namespace

PreviewWindow::PreviewWindow(Camera& camera, const ProgramFolder& folder, SettingsStore& settings,
                             std::function<bool()> ending, QWidget* parent)
    : QMainWindow(parent, Qt::Window | Qt::WindowStaysOnTopHint), camera_(camera), folder_(folder),
      settings_(settings), ending_(std::move(ending)) {
    setWindowTitle(u"Kestrava - 画像のキャプチャ"_s);
    auto* central = new QWidget(this);
    auto* layout = new QHBoxLayout(central);
    picture_ = new QLabel(central);
    picture_->setFixedSize(320, 240);
    picture_->setStyleSheet(u"background: black"_s);
    layout->addWidget(picture_);
    auto* side = new QVBoxLayout;
    list_ = new QListWidget(central);
    side->addWidget(list_);
    start_ = new QPushButton(u"Start"_s, central);
    stop_ = new QPushButton(u"Stop"_s, central);
    cap_ = new QPushButton(u"Cap"_s, central);
    close_ = new QPushButton(u"Close"_s, central);
    save_ = new QPushButton(u"SAVE"_s, central);
    for (QPushButton* b : {start_, stop_, cap_, close_, save_})
        side->addWidget(b);
    layout->addLayout(side);
    setCentralWidget(central);

    QMenu* capture = menuBar()->addMenu(u"キャプチャ設定(&C)"_s);
    // The open camera's own controls and formats, changed while it streams.
    source_ = capture->addAction(u"ビデオソース選択(&S)"_s, this,
                                 [this] { OpenCameraDialog<ControlsDialog>(camera_, this); });
    format_ = capture->addAction(u"ビデオフォーマット選択(&F)"_s, this,
                                 [this] { OpenCameraDialog<FormatDialog>(camera_, this); });
    QMenu* option = menuBar()->addMenu(u"オプション(&O)"_s);
    alwaysShow_ = option->addAction(u"プレビュー画面を常に表示(&A)"_s);
    alwaysShow_->setCheckable(true);
    alwaysShow_->setChecked(settings_.IsOn(Key::PreviewAlwaysShow));
    // toggled by the user only: the start-up check above came before the connect
    connect(alwaysShow_, &QAction::toggled, this,
            [this](bool on) { settings_.Write(Key::PreviewAlwaysShow, on ? u"1" : u"0"); });

    for (const CaptureDevice& d : camera_.devices())
        list_->addItem(d.name);
    if (settings_.Read(Key::CameraDevice) == u"test")
        list_->addItem(u"test"_s);
    if (list_->count() > 0)
        list_->setCurrentRow(0);

    // The buttons follow the camera's started and stopped below.
    connect(start_, &QPushButton::clicked, this, [this] { camera_.start(); });
    for (QPushButton* b : {stop_, close_})
        connect(b, &QPushButton::clicked, this, [this] { camera_.stop(); });
    connect(cap_, &QPushButton::clicked, this, [this] {
        const QImage image = camera_.frame();
        if (image.isNull())
            return;
        picture_->setPixmap(QPixmap::fromImage(image));
        image.save(folder_.path(u"TEST.bmp"), "BMP");
    });
    connect(save_, &QPushButton::clicked, this,
            [this] { camera_.saveJpeg(folder_.path(u"test.jpg")); });

    // The pages and setup start and stop the camera too.
    connect(&camera_, &Camera::started, this, &PreviewWindow::updateButtons);
    connect(&camera_, &Camera::stopped, this, &PreviewWindow::updateButtons);

    auto* timer = new QTimer(this);
    timer->setInterval(RefreshMs);
    connect(timer, &QTimer::timeout, this, &PreviewWindow::refresh);
    timer->start();
    updateButtons();
}

void PreviewWindow::refresh() {
    // Hidden, the picture costs nothing.
    if (!isVisible() || !camera_.running())
        return;
    const QImage image = camera_.frame();
    if (!image.isNull())
        picture_->setPixmap(QPixmap::fromImage(image));
}

void PreviewWindow::updateButtons() {
    const bool running = camera_.running();
    start_->setEnabled(!running && list_->count() > 0);
    stop_->setEnabled(running);
    cap_->setEnabled(running);
    source_->setEnabled(running);
    format_->setEnabled(running);
}

void PreviewWindow::closeEvent(QCloseEvent* event) {
    // The camera stays connected while the pages use it.
    if (settings_.IsOn(Key::TakePic) && !(ending_ && ending_())) {
        event->ignore();
        if (!settings_.IsOn(Key::PreviewAlwaysShow))
            hide();
        return;
    }
    camera_.stop();
    event->accept();
}
