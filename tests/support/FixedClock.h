#pragma once

#include "core/Clock.h"

// A clock that stands still at whatever time the test sets.
class FixedClock final : public Clock {
public:
    explicit FixedClock(QDateTime at = {}) : at(std::move(at)) {}
    QDateTime now() const override { return at; }

    QDateTime at;
};
