#include "remotes/RemoteWindow.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/Wait.h"
#include "infrared/Transmission.h"
#include "remotes/DesignLayout.h"
#include "remotes/Registry.h"

#include <QBitmap>
#include <QCloseEvent>
#include <QFontDatabase>
#include <QGraphicsDropShadowEffect>
#include <QGuiApplication>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QPushButton>
#include <QScreen>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize ButtonSize{35, 20};
// Function names are 41 pixels wide; 12 high fills the gap to the next row.
constexpr QSize LabelSize{41, 12};
constexpr QSize CloseSize{18, 17};
constexpr int CornerEllipse = 15;

QPixmap picture(const QString& base) {
    QPixmap p(u":/pic/"_s + base);
    if (p.isNull()) {
        // Never expected (the pictures are built in), but a button must stay visible.
        p = QPixmap(ButtonSize);
        p.fill(Qt::darkGray);
    }
    return p;
}

int TwipsToPixels(qint64 twips) {
    double px = std::round(double(twips) / RemoteWindow::TwipsPerPixel);
    return int(std::clamp(px, -1.0e6, 1.0e6));
}

// The client rectangle with corners rounded by an ellipse of 15 by 15.
QRegion RoundedRegion(QSize size) {
    QBitmap bits(size);
    bits.fill(Qt::color0);
    QPainter p(&bits);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::color1);
    p.drawRoundedRect(QRectF(QPointF(0, 0), QSizeF(size)), CornerEllipse / 2.0,
                      CornerEllipse / 2.0);
    p.end();
    return QRegion(bits);
}

// Captions and the device name use a Japanese family, sized in pixels as the
// classic program's points were at 96 dpi. A Latin default font would borrow
// the Japanese glyphs from another font, and its own smaller metrics would
// then cut them off (電 read as 雷).
QFont RemoteFont(int points) {
    static const QString family = [] {
        const QStringList installed = QFontDatabase::families(QFontDatabase::Japanese);
        for (const char* f : {"Noto Sans CJK JP", "Source Han Sans JP", "IPAexGothic", "IPAGothic",
                              "VL Gothic", "TakaoGothic"})
            if (installed.contains(QLatin1StringView(f)))
                return QString::fromLatin1(f);
        return installed.value(0);
    }();
    QFont font;
    if (!family.isEmpty())
        font.setFamilies({family});
    font.setPixelSize(RemoteWindow::PixelsOfPoints(points));
    return font;
}

// Fonts with a tall ascent (Noto CJK) would put the lower part of the glyphs
// outside a 12-pixel label; the text moves up into the unused ascent instead.
// Returns the height the text then needs.
int LiftText(QLabel* label) {
    QFontMetrics fm(label->font());
    const int unused = std::max(0, fm.ascent() + fm.tightBoundingRect(u"国ボ"_s).top() - 1);
    // Qt counts margins below zero as zero unless the safe area is left out.
    label->setAttribute(Qt::WA_ContentsMarginsRespectsSafeArea, false);
    label->setContentsMargins(0, -unused, 0, 0);
    return fm.height() - unused;
}

} // namespace

RemoteButton::RemoteButton(int id, const QString& pictureBase, QWidget* parent)
    : QWidget(parent), id_(id), off_(picture(pictureBase + u".gif"_s)),
      on_(picture(pictureBase + u"-p.gif"_s)) {
    setFixedSize(ButtonSize);
}

void RemoteButton::setDown(bool down) {
    if (down_ == down)
        return;
    down_ = down;
    update();
}

void RemoteButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.drawPixmap(rect(), down_ ? on_ : off_);
}

void RemoteButton::mousePressEvent(QMouseEvent* event) {
    // Accepted, so that a press on a button never drags the window.
    event->accept();
    if (event->button() != Qt::LeftButton)
        return;
    armed_ = true;
    setDown(true);
}

void RemoteButton::mouseReleaseEvent(QMouseEvent* event) {
    event->accept();
    if (event->button() != Qt::LeftButton)
        return;
    setDown(false);
    bool click = armed_ && rect().contains(event->position().toPoint());
    armed_ = false;
    if (click)
        emit clicked(id_);
}

void RemoteButton::mouseDoubleClickEvent(QMouseEvent* event) {
    event->accept();
    if (event->button() != Qt::LeftButton)
        return;
    // The second press of a pair arrives only as this event; the release that
    // follows must not count once more.
    armed_ = false;
    emit doubleClicked(id_);
}

RemoteWindow::RemoteWindow(int design, const bool& remoteLive, SettingsStore& settings,
                           Transceiver& device, QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint), design_(design),
      layout_(LayoutOfDesign(design)), remoteLive_(remoteLive), settings_(settings),
      device_(device), panelA_(picture(u"panelA.jpg"_s)), panelB_(picture(u"panelB.jpg"_s)) {
    Q_ASSERT(layout_);
    setWindowTitle(u"リモコン"_s);
    setFixedSize(ClientSize(design));

    QPalette white = palette();
    white.setColor(QPalette::WindowText, Qt::white);

    const int count = int(layout_->buttons.size());
    buttons_.resize(size_t(count));
    labels_.resize(size_t(count));
    for (const ButtonDef& def : layout_->buttons) {
        auto* button = new RemoteButton(def.id, def.picture, this);
        button->move(def.left, def.top);
        connect(button, &RemoteButton::clicked, this, &RemoteWindow::clickButton);
        connect(button, &RemoteButton::doubleClicked, this, &RemoteWindow::doubleClickButton);
        buttons_[size_t(def.id)] = button;

        auto* label = new QLabel(this);
        label->setTextFormat(Qt::PlainText);
        label->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
        label->setPalette(white);
        label->setGeometry(QRect(QPoint(def.labelLeft, def.labelTop), LabelSize));
        label->installEventFilter(this);
        labels_[size_t(def.id)] = label;
    }
    for (int id = 0; id < count; ++id)
        setFunction(id, Placeholder(id));
    // Captions reach into the gap above the next row; they stay readable on
    // top of its buttons, and let clicks through to them or to the body.
    for (QLabel* label : labels_) {
        label->raise();
        label->setAttribute(Qt::WA_TransparentForMouseEvents);
        // A dark rim keeps the white text readable where it lies on a key.
        auto* rim = new QGraphicsDropShadowEffect(label);
        rim->setBlurRadius(3);
        rim->setOffset(0, 0);
        rim->setColor(QColor(0, 0, 0, 255));
        label->setGraphicsEffect(rim);
    }

    // The device name stands where the page puts it, raised where the window
    // is shorter than the page's panel (design 2) so that it is not cut.
    const int faceRight = 9 + layout_->panelA.width;
    lblDev_ = new QLabel(this);
    lblDev_->setTextFormat(Qt::PlainText);
    lblDev_->setPalette(white);
    lblDev_->setFont(RemoteFont(10));
    lblDev_->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    const int nameHeight = LiftText(lblDev_);
    const int nameTop = std::min(layout_->nameTop, height() - 2 - nameHeight);
    lblDev_->setGeometry(20, nameTop, faceRight - CloseSize.width() - 2 - 20, nameHeight);
    lblDev_->installEventFilter(this);

    cmdClose_ = new QPushButton(u"×"_s, this);
    cmdClose_->setToolTip(u"閉じる"_s);
    cmdClose_->setFocusPolicy(Qt::NoFocus);
    cmdClose_->setGeometry(QRect(
        QPoint(faceRight - CloseSize.width(), std::min(nameTop, height() - 3 - CloseSize.height())),
        CloseSize));
    connect(cmdClose_, &QPushButton::clicked, this, &QWidget::close);

    setMask(RoundedRegion(size()));
    placeAtStart();
}

QSize RemoteWindow::ClientSize(int design) {
    switch (design) {
    case 1:
        return {171, 407};
    case 2:
        return {164, 222};
    case 3:
        return {127, 188};
    case 4:
        return {170, 324};
    case 5:
        return {217, 518};
    case 6:
        return {268, 517};
    }
    return {};
}

void RemoteWindow::setDeviceName(const QString& name) {
    lblDev_->setText(name);
}

QString RemoteWindow::deviceName() const {
    return lblDev_->text();
}

void RemoteWindow::setFunction(int buttonId, const QString& function) {
    QLabel* label = lblFunc(buttonId);
    if (!label)
        return;
    label->setText(function);
    label->setFont(RemoteFont(FitLabel(function)));
    // The caption's box is the classic 12 pixels; a font that needs more
    // grows it downwards rather than cutting the characters.
    label->resize(LabelSize.width(), std::max(LabelSize.height(), LiftText(label)));
}

int RemoteWindow::PixelsOfPoints(int points) {
    return (points * 96 + 36) / 72;
}

QString RemoteWindow::Placeholder(int buttonId) {
    return u"ボタン"_s + QString::number(buttonId + 1);
}

QString RemoteWindow::function(int buttonId) const {
    QLabel* label = lblFunc(buttonId);
    return label ? label->text() : QString();
}

RemoteButton* RemoteWindow::imgB(int buttonId) const {
    return buttonId >= 0 && buttonId < buttonCount() ? buttons_[size_t(buttonId)] : nullptr;
}

QLabel* RemoteWindow::lblFunc(int buttonId) const {
    return buttonId >= 0 && buttonId < buttonCount() ? labels_[size_t(buttonId)] : nullptr;
}

QString RemoteWindow::posKey() const {
    return u"Remote"_s + QString::number(design_);
}

void RemoteWindow::placeAtStart() {
    const QString top = settings_.Read(Key::PositionTop(posKey()));
    if (!top.isEmpty()) {
        const QString left = settings_.Read(Key::PositionLeft(posKey()));
        move(TwipsToPixels(Val(left)), TwipsToPixels(Val(top)));
        return;
    }
    // First use of this design: the lower right corner of the work area, 5 twips in.
    QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    const qint64 bottom = qint64(area.y() + area.height()) * TwipsPerPixel;
    const qint64 right = qint64(area.x() + area.width()) * TwipsPerPixel;
    move(TwipsToPixels(right - width() * TwipsPerPixel - 5),
         TwipsToPixels(bottom - height() * TwipsPerPixel - 5));
}

void RemoteWindow::paintEvent(QPaintEvent*) {
    QPainter p(this);
    // The body picture rounds its corners wider than the window does, onto the
    // pages' grey; inside the window's corners the case's dark outline goes on.
    p.fillRect(rect(), QColor(0x14, 0x16, 0x19));
    QPainterPath body;
    body.addRoundedRect(QRectF(rect()), 19, 19);
    p.setRenderHint(QPainter::Antialiasing);
    p.setClipPath(body);
    p.drawPixmap(QRect(0, 0, width(), height()), panelB_);
    p.setClipping(false);
    p.drawPixmap(QRect(9, 9, layout_->panelA.width, layout_->panelA.height), panelA_);
}

void RemoteWindow::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    dragging_ = true;
    dragStart_ = event->position().toPoint();
}

void RemoteWindow::mouseMoveEvent(QMouseEvent* event) {
    if (dragging_)
        move(pos() - dragStart_ + event->position().toPoint());
}

void RemoteWindow::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        dragging_ = false;
}

bool RemoteWindow::eventFilter(QObject* watched, QEvent* event) {
    // The labels are no drag handles: their presses end with them.
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
    case QEvent::MouseMove:
    case QEvent::MouseButtonRelease:
        return true;
    default:
        return QWidget::eventFilter(watched, event);
    }
}

void RemoteWindow::closeEvent(QCloseEvent* event) {
    settings_.Write(Key::PositionTop(posKey()), QString::number(y() * TwipsPerPixel));
    settings_.Write(Key::PositionLeft(posKey()), QString::number(x() * TwipsPerPixel));
    event->accept();
}

void RemoteWindow::clickButton(int buttonId) {
    QPointer<RemoteWindow> self(this);
    if (remoteLive_) {
        // A failure shows a box, during which this window may be closed.
        TXSignal(device_, deviceName(), function(buttonId));
    } else {
        emit keyClicked(buttonId);
    }
    if (self)
        emit buttonClicked(buttonId);
}

void RemoteWindow::doubleClickButton(int buttonId) {
    QPointer<RemoteButton> button(imgB(buttonId));
    if (!button)
        return;
    // A full press: down, click, visibly down for 100 ms, up.
    button->setDown(true);
    clickButton(buttonId);
    if (!button)
        return;
    button->repaint();
    WaitMs(100);
    if (button)
        button->setDown(false);
}
