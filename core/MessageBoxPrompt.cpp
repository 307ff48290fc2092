#include "core/MessageBoxPrompt.h"

#include <QLoggingCategory>
#include <QMessageBox>
#include <QPushButton>

#include <memory>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcPrompt, "kestrava.prompt")
const QString Title = u"Kestrava"_s;

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
