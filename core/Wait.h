#pragma once

#include <QEventLoop>
#include <QObject>
#include <QTimer>

// Lets events run until sender emits signal or timeoutMs passes (a negative
// timeout waits for the signal alone). True when the signal came. This is the
// program's only way of waiting: handlers may run nested inside it, so callers
// read shared state before they wait.
template <typename Sender, typename Signal>
bool WaitForSignal(const Sender* sender, Signal signal, int timeoutMs) {
    QEventLoop loop;
    bool fired = false;
    QObject::connect(sender, signal, &loop, [&] {
        fired = true;
        loop.quit();
    });
    QTimer timer;
    if (timeoutMs >= 0) {
        timer.setSingleShot(true);
        QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
        timer.start(timeoutMs);
    }
    loop.exec();
    return fired;
}

// A pause with events running.
inline void WaitMs(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}
