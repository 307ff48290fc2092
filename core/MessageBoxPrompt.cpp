#include "core/MessageBoxPrompt.h"

#include <QLoggingCategory>
#include <QMessageBox>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcPrompt, "kestrava.prompt")
const QString Title = u"Kestrava"_s;
} // namespace

void MessageBoxPrompt::Information(const QString& text) {
    QMessageBox::information(parent_, Title, text);
}

void MessageBoxPrompt::Warning(const QString& text) {
    QMessageBox::warning(parent_, Title, text);
}

UserPrompt::Answer MessageBoxPrompt::Question(const QString& text) {
    return QMessageBox::question(parent_, Title, text, QMessageBox::Yes | QMessageBox::No) ==
                   QMessageBox::Yes
               ? Answer::Yes
               : Answer::No;
}

UserPrompt::Answer MessageBoxPrompt::QuestionWithHelp(const QString& text,
                                                      const QString& helpPage) {
    QMessageBox box(QMessageBox::Question, Title, text, QMessageBox::Yes | QMessageBox::No,
                    parent_);
    box.addButton(QMessageBox::Help);
    box.setDefaultButton(QMessageBox::Yes);
    // Help opens the page and leaves the question standing.
    for (;;) {
        const int answer = box.exec();
        if (answer != QMessageBox::Help)
            return answer == QMessageBox::Yes ? Answer::Yes : Answer::No;
        if (openHelp)
            openHelp(helpPage);
    }
}

void MessageBoxPrompt::Notify(const QString& text) {
    qCWarning(lcPrompt).noquote() << text;
    auto* box = new QMessageBox(QMessageBox::Warning, Title, text, QMessageBox::Ok, parent_);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setModal(false);
    box->show();
}
