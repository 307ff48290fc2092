#include "core/Log.h"

#include <QByteArray>
#include <QLoggingCategory>
#include <QString>

#include <cstdio>

namespace {

void writeLine(QtMsgType type, const QMessageLogContext&, const QString& message) {
    const char* level = "";
    switch (type) {
    case QtDebugMsg:
        level = "debug: ";
        break;
    case QtWarningMsg:
        level = "warning: ";
        break;
    case QtCriticalMsg:
    case QtFatalMsg:
        level = "error: ";
        break;
    case QtInfoMsg:
        break;
    }
    QByteArray line = message.toUtf8();
    std::fprintf(stderr, "kestrava: %s%s\n", level, line.constData());
    std::fflush(stderr);
}

} // namespace

void InstallLogHandler(bool verbose) {
    qInstallMessageHandler(writeLine);
    QLoggingCategory::setFilterRules(verbose
                                         ? QStringLiteral("*.debug=false\nkestrava.*.debug=true")
                                         : QStringLiteral("*.debug=false"));
}
