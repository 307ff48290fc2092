#include "core/UserPrompt.h"

#include <QLoggingCategory>

namespace {
Q_LOGGING_CATEGORY(lcPrompt, "kestrava.prompt")

QString oneLine(QString text) {
    return text.replace(QLatin1StringView("\r\n"), QLatin1StringView(" / "))
        .replace(QChar(u'\n'), QLatin1StringView(" / "));
}
} // namespace

void HeadlessPrompt::Information(const QString& text) {
    qCInfo(lcPrompt).noquote() << oneLine(text);
}

void HeadlessPrompt::Warning(const QString& text) {
    qCWarning(lcPrompt).noquote() << oneLine(text);
}

UserPrompt::Answer HeadlessPrompt::Question(const QString& text) {
    qCInfo(lcPrompt).noquote() << oneLine(text) << "-> No";
    return Answer::No;
}

void HeadlessPrompt::Notify(const QString& text) {
    qCWarning(lcPrompt).noquote() << oneLine(text);
}
