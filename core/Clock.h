#pragma once

#include <QDateTime>

// The present time. Everything that compares or stamps times asks this, so
// tests can set the hour.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;
};

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }
};

// The system clock moved by a fixed amount. Only for tests of the whole
// program, so that the minute of a reservation can be brought near
// (KESTRAVA_TEST_CLOCK_OFFSET_MS).
class OffsetClock final : public Clock {
public:
    explicit OffsetClock(qint64 offsetMs) : offsetMs(offsetMs) {}
    QDateTime now() const override { return QDateTime::currentDateTime().addMSecs(offsetMs); }

    const qint64 offsetMs;
};
