#pragma once

#include <QDateTime>

// The one place where the process reads the current date-time. Tests shift it
// instead of sleeping; a CI check refuses direct reads anywhere else.
class Clock {
public:
    static QDateTime now();
    static qint64 nowMSecsSinceEpoch();
    // The same instant to the microsecond, for waits aimed at a due instant.
    static qint64 nowUSecsSinceEpoch();

    // Elapsed time that no step of the wall clock moves and no test shifts:
    // since boot, counting a suspend, and monotonic, which stops during one.
    // Compared with the wall clock they tell a sleep from a step.
    static qint64 sinceBootMSecs();
    static qint64 monotonicMSecs();

    static void setOffsetMSecs(qint64 offset);
    // Shifts the clock so that now() reads the given local date-time.
    static void shiftTo(const QDateTime& target);
    // Stops the clock at the given local date-time until reset, for tests that
    // look at single milliseconds.
    static void freezeAt(const QDateTime& moment);
    static void reset();

    // Local-time conversions ask the C library to re-check the zone each time;
    // with TZ unset that is a stat() of /etc/localtime per conversion, which
    // dominates the calendar arithmetic. Pinning TZ to the system zone file at
    // start-up reads it once; LocalZoneWatch notices a change of the system
    // zone and calls RereadLocalTimeZone.
    static void PinLocalTimeZone();
    // Has the C library read the zone file that TZ names (":/path") again. A
    // zone that TZ names by its name is the user's choice and stays.
    static void RereadLocalTimeZone();
};
