#pragma once

#include <QStringList>
#include <QtGlobal>

#include <utility>

// The log lines written while it lives.
struct LogLines {
    static inline QStringList lines;
    QtMessageHandler previous;
    LogLines() {
        lines.clear();
        previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { lines << text; });
    }
    ~LogLines() { qInstallMessageHandler(previous); }
    QStringList take() { return std::exchange(lines, {}); }
    QString text() const { return lines.join(u'\n'); }
};
