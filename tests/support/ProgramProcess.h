#pragma once

#include "core/Wait.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>

#include <csignal>
#include <functional>

// The real program, started headless on a folder of the test's own.
class ProgramProcess {
public:
    enum Platform { NoDisplay, KeepPlatform };

    // inChild runs in the new process before the program (e.g. to drop privileges).
    explicit ProgramProcess(QStringList args,
                            QProcessEnvironment env = QProcessEnvironment::systemEnvironment(),
                            Platform platform = NoDisplay, std::function<void()> inChild = {}) {
        if (inChild)
            process.setChildProcessModifier(inChild);
        // Never the machine's own logind: a test must not put it to sleep.
        if (!env.contains(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS")))
            env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
                       QStringLiteral("unix:path=/nonexistent/kestrava-test-bus"));
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        if (platform == NoDisplay)
            env.remove(QStringLiteral("QT_QPA_PLATFORM"));
        process.setProcessEnvironment(env);
        process.start(QStringLiteral(KESTRAVA_BINARY), args);
        process.waitForStarted(5000);
    }
    ~ProgramProcess() {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(5000);
        }
    }

    // Waits, with events running, until stderr holds text.
    bool waitForLog(const QString& text, int timeoutMs = 10000) {
        QElapsedTimer timer;
        timer.start();
        while (!log().contains(text)) {
            if (process.state() == QProcess::NotRunning || timer.elapsed() > timeoutMs)
                return false;
            WaitForSignal(&process, &QProcess::readyReadStandardError,
                          int(timeoutMs - timer.elapsed()));
        }
        return true;
    }
    QString log() {
        err += process.readAllStandardError();
        return QString::fromUtf8(err);
    }
    bool finish(int timeoutMs = 10000) { return process.waitForFinished(timeoutMs); }
    bool stop(int signal = SIGTERM, int timeoutMs = 10000) {
        ::kill(pid_t(process.processId()), signal);
        return finish(timeoutMs);
    }

    // The web port it reports once listening; 0 when it does not.
    quint16 webPort(int timeoutMs = 10000) {
        if (!waitForLog(QStringLiteral("listening on port "), timeoutMs))
            return 0;
        auto m = QRegularExpression(QStringLiteral("listening on port (\\d+)")).match(log());
        return m.hasMatch() ? quint16(m.captured(1).toUInt()) : 0;
    }

    QProcess process;
    QByteArray err;
};
