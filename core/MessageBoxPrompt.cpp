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

void MessageBoxPrompt::Notify(const QString& text) {
    qCWarning(lcPrompt).noquote() << text;
    auto* box = new QMessageBox(QMessageBox::Warning, Title, text, QMessageBox::Ok, parent_);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setModal(false);
    box->show();
}
