#include "desktop/MessageBoxPrompt.h"

#include <QGuiApplication>
#include <QLabel>
#include <QLoggingCategory>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcPrompt, "kestrava.prompt")
const QString Title = u"Kestrava"_s;

// A box breaks a line wider than about 500 pixels anywhere, in a Japanese
// sentence between any two characters: give each line of the text its room,
// as far as the box's own limit on this screen allows.
void KeepLinesWhole(QMessageBox* box, const QString& text) {
    auto* label = box->findChild<QLabel*>(u"qt_msgbox_label"_s);
    const QScreen* screen = QGuiApplication::primaryScreen();
    if (!label || !screen)
        return;
    const int screenWidth = screen->availableGeometry().width();
    const int boxLimit = screenWidth <= 1024 ? screenWidth : std::min(screenWidth - 480, 1000);
    int widest = 0;
    for (const QString& line : text.split(u'\n'))
        widest = std::max(widest, label->fontMetrics().horizontalAdvance(line.trimmed()));
    // The icon and the margins take the rest of the box.
    label->setMinimumWidth(std::min(widest + 4, boxLimit - 120));
}

// The boxes speak Japanese whatever the desktop's language: the texts name
// the buttons ('はい', 'いいえ').
QMessageBox* MakeBox(QMessageBox::Icon icon, const QString& text,
                     QMessageBox::StandardButtons buttons, QWidget* parent) {
    auto* box = new QMessageBox(icon, Title, text, buttons, parent);
    const std::pair<QMessageBox::StandardButton, QString> names[] = {
        {QMessageBox::Yes, u"はい(&Y)"_s},
        {QMessageBox::No, u"いいえ(&N)"_s},
        {QMessageBox::Help, u"ヘルプ(&H)"_s},
        {QMessageBox::Ok, u"OK"_s},
    };
    for (const auto& [which, name] : names)
        if (QAbstractButton* b = box->button(which))
            b->setText(name);
    KeepLinesWhole(box, text);
    return box;
}

int Run(QMessageBox::Icon icon, const QString& text, QMessageBox::StandardButtons buttons,
        QWidget* parent) {
    std::unique_ptr<QMessageBox> box(MakeBox(icon, text, buttons, parent));
    return box->exec();
}
} // namespace

void MessageBoxPrompt::Information(const QString& text) {
    Run(QMessageBox::Information, text, QMessageBox::Ok, parent_);
}

void MessageBoxPrompt::Warning(const QString& text) {
    Run(QMessageBox::Warning, text, QMessageBox::Ok, parent_);
}

UserPrompt::Answer MessageBoxPrompt::Question(const QString& text) {
    return Run(QMessageBox::Question, text, QMessageBox::Yes | QMessageBox::No, parent_) ==
                   QMessageBox::Yes
               ? Answer::Yes
               : Answer::No;
}

UserPrompt::Answer MessageBoxPrompt::QuestionWithHelp(const QString& text,
                                                      const QString& helpPage) {
    std::unique_ptr<QMessageBox> box(MakeBox(QMessageBox::Question, text,
                                             QMessageBox::Yes | QMessageBox::No | QMessageBox::Help,
                                             parent_));
    box->setDefaultButton(QMessageBox::Yes);
    // Help opens the page and leaves the question standing.
    for (;;) {
        const int answer = box->exec();
        if (answer != QMessageBox::Help)
            return answer == QMessageBox::Yes ? Answer::Yes : Answer::No;
        if (openHelp)
            openHelp(helpPage);
    }
}

namespace {
QMessageBox* ShowNotice(const QString& text, QWidget* parent) {
    qCWarning(lcPrompt).noquote() << text;
    QMessageBox* box = MakeBox(QMessageBox::Warning, text, QMessageBox::Ok, parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setModal(false);
    box->show();
    return box;
}
} // namespace

void MessageBoxPrompt::Notify(const QString& text) {
    ShowNotice(text, parent_);
}

void MessageBoxPrompt::Notice(const QString& kind, const QString& text) {
    Shown& shown = notices_[kind];
    if (!shown.box) {
        shown = {ShowNotice(text, parent_), text, 1};
        return;
    }
    qCWarning(lcPrompt).noquote() << text;
    shown.count = shown.text == text ? shown.count + 1 : 1;
    shown.text = text;
    shown.box->setText(shown.count > 1 ? text + u"（"_s + QString::number(shown.count) + u" 回）"_s
                                       : text);
    shown.box->raise();
}
