#include "core/Log.h"

#include <QByteArray>
#include <QLoggingCategory>
#include <QString>

#include <cstdio>

namespace {

const char* programName = "kestrava";

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
    std::fprintf(stderr, "%s: %s%s\n", programName, level, line.constData());
    std::fflush(stderr);
}

} // namespace

void InstallLogHandler(bool verbose, const char* program) {
    programName = program;
    qInstallMessageHandler(writeLine);
    QLoggingCategory::setFilterRules(verbose
                                         ? QStringLiteral("*.debug=false\nkestrava.*.debug=true")
                                         : QStringLiteral("*.debug=false"));
}
