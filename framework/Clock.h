#pragma once

#include <QDateTime>

// The one place where the process reads the current date-time. Tests shift it
// instead of sleeping; a CI check refuses direct reads anywhere else.
class Clock {
public:
    static QDateTime now();
    static qint64 nowMSecsSinceEpoch();

    static void setOffsetMSecs(qint64 offset);
    static qint64 offsetMSecs();
    // Shifts the clock so that now() reads the given local date-time.
    static void shiftTo(const QDateTime& target);
    static void reset();
};
