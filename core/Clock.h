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
