#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <memory>

// A single-shot timer for a moment of the monotonic clock, to the microsecond.
// QTimer counts whole milliseconds from when it is started; a held key's
// frames must keep their protocol's period within one or two.
class MonotonicTimer : public QObject {
    Q_OBJECT
public:
    explicit MonotonicTimer(QObject* parent = nullptr);
    ~MonotonicTimer() override;

    // CLOCK_MONOTONIC, in ns.
    static qint64 NowNs();
    // Fires once at that moment; at once when it has passed.
    void StartAt(qint64 ns);
    void Stop();
    bool IsActive() const { return active_; }

signals:
    void timeout();

private:
    int fd_ = -1;
    std::unique_ptr<QSocketNotifier> notifier_;
    QTimer fallback_; // without a timerfd: to the millisecond
    bool active_ = false;
};
