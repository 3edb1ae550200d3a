#pragma once

#include "framework/Clock.h"

// Shifts the process clock for the lifetime of a test and puts it back after.
class ClockShift {
public:
    explicit ClockShift(const QDateTime& now) { Clock::shiftTo(now); }
    ~ClockShift() { Clock::reset(); }
    ClockShift(const ClockShift&) = delete;
    ClockShift& operator=(const ClockShift&) = delete;

    void To(const QDateTime& now) { Clock::shiftTo(now); }
};
