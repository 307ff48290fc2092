#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a Qt signal on the event loop (the handler only
// writes a byte into a socket pair).
class SignalWatcher : public QObject {
    Q_OBJECT
public:
    explicit SignalWatcher(QObject* parent = nullptr);
    ~SignalWatcher() override;

signals:
    void terminationRequested(int signalNumber);

private:
    QSocketNotifier* notifier_ = nullptr;
};
