#include "learning/LearningWindow.h"

#include "core/ProgramEvents.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "core/UserPrompt.h"
#include "infrared/Transceiver.h"
#include "remotes/Registry.h"
#include "remotes/RemoteLauncher.h"
#include "remotes/RemoteWindow.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QEventLoop>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

const QString LearningWindow::Title = u"Kestrava - リモコン信号の学習"_s;
const QString LearningWindow::NoFunctionText = u"機能名を指定してください"_s;
const QString LearningWindow::NoDesignText = u"リモコンの型を選択してください。"_s;
const QString LearningWindow::NotStoredText =
    u"学習した信号を保存できませんでした。ディスクの空きを確かめてから、もう一度「完了」を押して"
    u"ください。"_s;
const QString LearningWindow::SessionFullText =
    u"一度に学習できる信号は100個までです。"
    u"いったん「完了」で保存してから、「学習済みリモコンの編集」で続けてください。"_s;

namespace {
const QColor Black(0, 0, 0);
const QColor Red(255, 0, 0);
const QColor White(255, 255, 255);
const QColor Yellow(255, 255, 0);
const QColor Green(0, 255, 0);

void Colour(QLabel* label, const QColor& colour) {
    QPalette p = label->palette();
    p.setColor(QPalette::WindowText, colour);
    label->setPalette(p);
}

// Counts the passes that are running, so that the window is not deleted
// under one of them.
struct BusyScope {
    explicit BusyScope(int& n) : n_(n) { ++n_; }
    ~BusyScope() { --n_; }
    int& n_;
};
} // namespace

LearningWindow::LearningWindow(LearningParts parts, Transceiver& device, RemoteLauncher& remotes,
                               const QString& objectName, const QString& positionKey,
                               const QString& deviceLabel, QWidget* parent)
    : QWidget(parent, Qt::Window), app_(parts), device_(device), remotes_(remotes),
      session_(parts.folder), positionKey_(positionKey) {
    setObjectName(objectName);
    setWindowTitle(Title);
    frameDevice = new QGroupBox(u"機器名"_s, this);
    frameDevice->setObjectName(u"frameDevice"_s);
    lblDevice = new QLabel(deviceLabel, frameDevice);
    lblDevice->setObjectName(u"lblDevice"_s);
    timUnload.setInterval(1000);
    timUnload.setSingleShot(true);
    connect(&timUnload, &QTimer::timeout, this, &LearningWindow::closeWindow);
    // The program's close order takes this window down with the others.
    connect(&app_.events, &ProgramEvents::unloadWindows, this, &LearningWindow::closeWindow);
}

LearningWindow::~LearningWindow() = default;

void LearningWindow::build(const QString& signalFrameTitle) {
    auto* top = new QVBoxLayout(this);
    top->setSizeConstraint(QLayout::SetMinimumSize);
    top->addWidget(frameDevice);

    Frame4 = new QGroupBox(u"リモコンの型"_s, this);
    Frame4->setObjectName(u"Frame4"_s);
    auto* designs = new QGridLayout(Frame4);
    for (const Design& d : Designs()) {
        auto* option = new QRadioButton(d.name, Frame4);
        option->setObjectName(u"optSelRemote_"_s + QString::number(d.optionIndex));
        optSelRemote[size_t(d.optionIndex)] = option;
        designs->addWidget(option, d.optionIndex / 2, d.optionIndex % 2);
    }
    top->addWidget(Frame4);

    frameSignals = new QGroupBox(signalFrameTitle, this);
    frameSignals->setObjectName(u"frameSignals"_s);
    auto* frame = new QVBoxLayout(frameSignals);
    const QStringList steps = {
        u"１．これから学習するボタンの機能名を入力してください"_s,
        u"２．Tiraの受光部から約2cmの距離でリモコンのボタンを押してください。"_s,
        u"３． リモコン画像のボタンを１つ押してください。"_s,
    };
    for (int i = 0; i < 3; ++i) {
        lblStep[size_t(i)] = new QLabel(steps[i], frameSignals);
        lblStep[size_t(i)]->setObjectName(u"lblStep_"_s + QString::number(i));
        Colour(lblStep[size_t(i)], Black);
    }
    frame->addWidget(lblStep[0]);
    auto* nameRow = new QHBoxLayout;
    Label2 = new QLabel(u"機能名"_s, frameSignals);
    Label2->setObjectName(u"Label2"_s);
    txtFunc = new QLineEdit(frameSignals);
    txtFunc->setObjectName(u"txtFunc"_s);
    cmdFuncOK = new QPushButton(u"決定"_s, frameSignals);
    cmdFuncOK->setObjectName(u"cmdFuncOK"_s);
    nameRow->addWidget(Label2);
    nameRow->addWidget(txtFunc, 1);
    nameRow->addWidget(cmdFuncOK);
    frame->addLayout(nameRow);
    Label1 = new QLabel(u"（例：電源、ch1、音量+ など）"_s, frameSignals);
    Label1->setObjectName(u"Label1"_s);
    frame->addWidget(Label1);
    frame->addWidget(lblStep[1]);
    frame->addWidget(lblStep[2]);

    auto* stateRow = new QHBoxLayout;
    lblState = new QLabel(u"待機中"_s, frameSignals);
    lblState->setObjectName(u"lblState"_s);
    lblState->setAlignment(Qt::AlignCenter);
    lblState->setAutoFillBackground(true);
    lblState->setMinimumHeight(28);
    {
        QPalette p = lblState->palette();
        p.setColor(QPalette::Window, QColor(32, 32, 48));
        lblState->setPalette(p);
        QFont f = lblState->font();
        f.setBold(true);
        lblState->setFont(f);
    }
    Colour(lblState, White);
    cmdRetry = new QPushButton(u"再試行"_s, frameSignals);
    cmdRetry->setObjectName(u"cmdRetry"_s);
    cmdRetry->hide();
    stateRow->addWidget(lblState, 1);
    stateRow->addWidget(cmdRetry);
    frame->addLayout(stateRow);

    lstSignals = new QListWidget(frameSignals);
    lstSignals->setObjectName(u"lstSignals"_s);
    lstSignals->setSelectionMode(QAbstractItemView::ExtendedSelection);
    lstSignals->setMinimumHeight(110);
    frame->addWidget(lstSignals, 1);
    cmdDel = new QPushButton(u"選択行を削除"_s, frameSignals);
    cmdDel->setObjectName(u"cmdDel"_s);
    // A capture jitters; the code it carries does not.
    chkClean = new QCheckBox(u"プロトコルがわかる信号は整えて保存する"_s, frameSignals);
    chkClean->setObjectName(u"chkClean"_s);
    chkClean->setChecked(true);
    auto* delRow = new QHBoxLayout;
    delRow->addWidget(chkClean);
    delRow->addStretch(1);
    delRow->addWidget(cmdDel);
    frame->addLayout(delRow);
    top->addWidget(frameSignals, 1);

    auto* closeRow = new QHBoxLayout;
    cmdOK = new QPushButton(u"完了"_s, this);
    cmdOK->setObjectName(u"cmdOK"_s);
    cmdCancel = new QPushButton(u"キャンセル"_s, this);
    cmdCancel->setObjectName(u"cmdCancel"_s);
    closeRow->addStretch(1);
    closeRow->addWidget(cmdOK);
    closeRow->addWidget(cmdCancel);
    top->addLayout(closeRow);

    connect(txtFunc, &QLineEdit::textChanged, this,
            [this](const QString& text) { warnOnBadName(text, &funcWarned_); });
    connect(txtFunc, &QLineEdit::returnPressed, cmdFuncOK, &QPushButton::click);
    connect(cmdFuncOK, &QPushButton::clicked, this, &LearningWindow::funcOK);
    connect(cmdRetry, &QPushButton::clicked, this, &LearningWindow::retry);
    connect(cmdDel, &QPushButton::clicked, this, &LearningWindow::deleteSelected);
    connect(cmdOK, &QPushButton::clicked, this, [this] {
        if (busy())
            return; // a pass is running; finishing now would store half of it
        finish();
    });
    connect(cmdCancel, &QPushButton::clicked, this, [this] {
        device_.DeActivateTira();
        closeWindow();
    });
    restorePosition();
}

int LearningWindow::selectedDesign() const {
    for (size_t i = 0; i < optSelRemote.size(); ++i)
        if (optSelRemote[i] && optSelRemote[i]->isChecked())
            return DesignByOption(int(i))->id;
    return 0;
}

void LearningWindow::setStep(int step) {
    for (int i = 0; i < 3; ++i)
        Colour(lblStep[size_t(i)], i == step ? Red : Black);
    emit stepChanged(step);
}

void LearningWindow::setState(const QString& text, const QColor& colour) {
    lblState->setText(text);
    Colour(lblState, colour);
}

RemoteWindow* LearningWindow::designWindow() const {
    return remotes_.window(selectedDesign());
}

RemoteWindow* LearningWindow::showDesign(int design) {
    unloadDesigns();
    remotes_.RemoteLive = false;
    RemoteWindow* w = remotes_.Open(design);
    shownDesign_ = w ? design : 0;
    if (!w)
        return nullptr;
    const QString key = u"Remote"_s + QString::number(design);
    keptPlace_ = {design, app_.settings.Read(Key::PositionTop(key)),
                  app_.settings.Read(Key::PositionLeft(key))};
    placeBeside(w);
    w->setDeviceName(deviceName());
    // Keys not learned yet show their number, to be told apart when clicked.
    for (int k = 0; k < w->buttonCount(); ++k)
        w->setFunction(k, captions_[size_t(k)].isEmpty() ? RemoteWindow::Placeholder(k)
                                                         : captions_[size_t(k)]);
    return w;
}

void LearningWindow::unloadDesigns() {
    remotes_.UnloadAll();
    // The picture stood beside this window only while learning: the remote
    // keeps the place its owner gave it.
    if (keptPlace_.design) {
        const QString key = u"Remote"_s + QString::number(keptPlace_.design);
        app_.settings.Write(Key::PositionTop(key), keptPlace_.top);
        app_.settings.Write(Key::PositionLeft(key), keptPlace_.left);
        keptPlace_ = {};
    }
}

void LearningWindow::placeBeside(QWidget* picture) const {
    // Right of this window where the screen has room, else left of it; the
    // tops level, and all of it on the screen.
    QScreen* screen = this->screen() ? this->screen() : QGuiApplication::primaryScreen();
    if (!screen)
        return;
    constexpr int Gap = 8;
    const QRect area = screen->availableGeometry();
    const QRect me = frameGeometry();
    const QSize size = picture->frameGeometry().size();
    int x = me.right() + 1 + Gap;
    if (x + size.width() > area.right() + 1)
        x = me.left() - Gap - size.width();
    x = std::clamp(x, area.left(), std::max(area.left(), area.right() + 1 - size.width()));
    const int y =
        std::clamp(me.top(), area.top(), std::max(area.top(), area.bottom() + 1 - size.height()));
    picture->move(x, y);
}

QString LearningWindow::NameProblem(const QString& name) {
    return LearnedNameProblem(name);
}

void LearningWindow::warnOnBadName(const QString& text, QString* lastWarned) {
    const QString problem = NameProblem(text);
    if (!problem.isEmpty() && problem != *lastWarned)
        app_.prompt.Warning(problem);
    *lastWarned = problem;
}

void LearningWindow::refuseInTestMode(const QString& text) {
    app_.prompt.Information(text);
    timUnload.start();
}

void LearningWindow::funcOK() {
    if (busy())
        return;
    if (txtFunc->text().isEmpty()) {
        app_.prompt.Warning(NoFunctionText);
        return;
    }
    if (const QString problem = NameProblem(txtFunc->text()); !problem.isEmpty()) {
        app_.prompt.Warning(problem);
        return;
    }
    // From here on the name is the one setting.ini will give back.
    const QString function = ShiftJis::RoundTrip(txtFunc->text());
    if (!shownDesign_) {
        app_.prompt.Information(NoDesignText);
        return;
    }
    // Every signal of this window lies in its own numbered file until the end.
    if (session_.full()) {
        app_.prompt.Information(SessionFullText);
        return;
    }
    setStep(1);
    StudyCapture(function);
}

void LearningWindow::retry() {
    if (busy())
        return;
    setState(QString(), White);
    cmdRetry->hide();
    device_.CancelCaptureTira();
    StudyCapture(lastFunction_);
}

void LearningWindow::StudyCapture(const QString& function) {
    {
        BusyScope scope(busy_);
        studyPass(function);
    }
    // A close asked for during the pass happens now that it has unwound.
    if (closePending_ && !busy())
        close();
}

void LearningWindow::studyPass(const QString& function) {
    QPointer<LearningWindow> self(this);
    lastFunction_ = function;
    // The picture must be there to be clicked; it may have been closed.
    if (!designWindow() && shownDesign_)
        showDesign(shownDesign_);

    bool proved = false;
    if (device_.TiraActive) {
        device_.timDeactivate.stop();
        setState(u"信号を送信してください"_s, White);
        proved = captureAndProve();
    } else {
        setState(u"準備中...お待ちください。"_s, White);
        lblState->repaint();
        if (!device_.PortIsSet()) {
            app_.prompt.Warning(Transceiver::PortUnsetText);
            if (self)
                openPortSetup();
            if (self)
                closeWindow();
            return;
        }
        if (!device_.ActivateTira(device_.ConfiguredPort())) {
            app_.prompt.Warning(device_.CannotActivateMessage());
            if (self)
                closeWindow();
            return;
        }
        setState(u"信号を送信してください。"_s, White);
        proved = captureAndProve();
    }
    if (!self || closePending_)
        return;
    if (!proved) {
        cmdRetry->show();
        return;
    }

    setStep(2);
    int button = 0;
    if (!waitForPicture(&button)) {
        if (!self || closePending_)
            return;
        // The picture went away before a click: this capture is dropped.
        device_.CancelCaptureTira();
        device_.ClearAll();
        setStep(0);
        setState(u"待機中"_s, White);
        return;
    }
    learned(function, button);
}

bool LearningWindow::captureAndProve() {
    QPointer<LearningWindow> self(this);
    const bool captured = device_.CaptureTira();
    if (!self)
        return false;
    if (!captured) {
        setState(u"失敗しました"_s, Red);
        return false;
    }
    setState(u"確認中"_s, Yellow);
    lblState->repaint();
    lastCode_ = TidyCapture(device_.SignalBuf, device_.SignalLen, chkClean->isChecked());
    const bool proved = device_.TestStudiedSignal();
    if (!self)
        return false;
    if (proved)
        setState(u"成功しました"_s, Green);
    else
        setState(u"失敗しました"_s, Red);
    device_.timDeactivate.start();
    return proved;
}

bool LearningWindow::waitForPicture(int* button) {
    RemoteWindow* picture = designWindow();
    if (!picture)
        return false;
    std::optional<int> clicked;
    QEventLoop loop;
    pictureLoop_ = &loop;
    connect(picture, &RemoteWindow::keyClicked, &loop, [&clicked, &loop](int buttonId) {
        clicked = buttonId;
        loop.quit();
    });
    // Closing the picture, this window or the program ends the wait.
    connect(picture, &QObject::destroyed, &loop, &QEventLoop::quit);
    connect(&app_.events, &ProgramEvents::unloadRemoteWindows, &loop, &QEventLoop::quit);
    loop.exec();
    pictureLoop_ = nullptr;
    if (!clicked || closePending_)
        return false;
    *button = *clicked;
    return true;
}

void LearningWindow::learned(const QString& function, int button) {
    QString error;
    const int n = session_.Add(device_.SignalBuf, function, button, &error);
    if (n == 0) {
        app_.prompt.Warning(u"学習した信号を保存できませんでした。"_s + u'\n' + error);
    } else {
        signalLearned();
        addLine(function, button, n, true,
                lastCode_.decoded() ? CodeDisplay(lastCode_) : QString());
        captions_[size_t(button)] = function;
        if (RemoteWindow* w = designWindow())
            w->setFunction(button, function);
    }
    setStep(0);
    txtFunc->clear();
    setState(u"待機中"_s, White);
    device_.CancelCaptureTira();
    device_.ClearAll();
}

void LearningWindow::addLine(const QString& function, int button, int data, bool learnedHere,
                             const QString& code) {
    QString text = function + u"→ボタン"_s + QString::number(button + 1);
    if (!code.isEmpty())
        text += u"　"_s + code;
    auto* item = new QListWidgetItem(text);
    item->setData(ItemDataRole, data);
    item->setData(NewSignalRole, learnedHere);
    item->setData(FunctionRole, function);
    lstSignals->addItem(item);
    if (learnedHere) {
        lstSignals->clearSelection();
        item->setSelected(true);
        lstSignals->setCurrentItem(item);
    }
}

void LearningWindow::deleteSelected() {
    for (int row = lstSignals->count() - 1; row >= 0; --row) {
        QListWidgetItem* item = lstSignals->item(row);
        if (!item->isSelected())
            continue;
        deleteLine(item);
        delete item;
    }
}

void LearningWindow::closeWindow() {
    if (busy()) {
        // A capture or the wait for the picture is running inside this
        // window's own handlers; end it and close once it has unwound.
        closePending_ = true;
        if (device_.CaptureWaiting == 1)
            device_.CancelCaptureTira();
        if (auto* loop = qobject_cast<QEventLoop*>(pictureLoop_.data()))
            loop->quit();
        return;
    }
    close();
}

void LearningWindow::closeEvent(QCloseEvent* event) {
    if (busy()) {
        event->ignore();
        closeWindow();
        return;
    }
    event->accept();
    // Unload: the pictures go, the place is kept, the temporaries are removed.
    unloadDesigns();
    storePosition();
    LearningSession::RemoveTempFiles(app_.folder);
}

void LearningWindow::restorePosition() {
    const QString top = app_.settings.Read(Key::PositionTop(positionKey_));
    if (top.isEmpty()) {
        // First use: the middle of the screen, with room for the picture beside.
        if (QScreen* screen = QGuiApplication::primaryScreen()) {
            QRect frame(QPoint(), sizeHint());
            frame.moveCenter(screen->availableGeometry().center());
            move(frame.topLeft());
        }
        return;
    }
    const QString left = app_.settings.Read(Key::PositionLeft(positionKey_));
    move(int(Val(left) / RemoteWindow::TwipsPerPixel), int(Val(top) / RemoteWindow::TwipsPerPixel));
}

void LearningWindow::storePosition() {
    app_.settings.Write(Key::PositionTop(positionKey_),
                        QString::number(y() * RemoteWindow::TwipsPerPixel));
    app_.settings.Write(Key::PositionLeft(positionKey_),
                        QString::number(x() * RemoteWindow::TwipsPerPixel));
}
