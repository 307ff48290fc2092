#include "core/MonotonicTimer.h"

#include <QLoggingCategory>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {
Q_LOGGING_CATEGORY(lcTimer, "kestrava.timer")
} // namespace

MonotonicTimer::MonotonicTimer(QObject* parent)
    : QObject(parent), fd_(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
    fallback_.setSingleShot(true);
    fallback_.setTimerType(Qt::PreciseTimer);
    connect(&fallback_, &QTimer::timeout, this, [this] {
        active_ = false;
        emit timeout();
    });
    if (fd_ < 0) {
        qCWarning(lcTimer) << "no timerfd:" << qt_error_string(errno);
        return;
    }
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, [this] {
        uint64_t expirations = 0;
        if (::read(fd_, &expirations, sizeof expirations) != sizeof expirations || !active_)
            return;
        active_ = false;
        emit timeout();
    });
}

MonotonicTimer::~MonotonicTimer() {
    notifier_.reset();
    if (fd_ >= 0)
        ::close(fd_);
}

qint64 MonotonicTimer::NowNs() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void MonotonicTimer::StartAt(qint64 ns) {
    // A moment of 0 would disarm the timer: the earliest is 1 ns.
    ns = std::max<qint64>(ns, 1);
    const itimerspec at{{0, 0}, {time_t(ns / 1000000000), long(ns % 1000000000)}};
    active_ = true;
    if (fd_ >= 0 && ::timerfd_settime(fd_, TFD_TIMER_ABSTIME, &at, nullptr) == 0)
        return;
    fallback_.start(int(std::max<qint64>(0, (ns - NowNs() + 500000) / 1000000)));
}

void MonotonicTimer::Stop() {
    active_ = false;
    fallback_.stop();
    if (fd_ >= 0) {
        const itimerspec off{};
        ::timerfd_settime(fd_, 0, &off, nullptr);
        uint64_t expirations = 0;
        [[maybe_unused]] const auto n = ::read(fd_, &expirations, sizeof expirations);
    }
}
