#pragma once

#include <QDate>
#include <QtGlobal>

// Readings of the local wall clock as milliseconds since 1970-01-01 00:00 on
// that clock, so that days and times of day are plain arithmetic, and their
// instants (milliseconds since the epoch).
//
// Every zone rule is decided by the UTC offsets in force, never by the
// daylight-saving flag: some zones (Dublin) count winter as their saving
// period, and others change by half an hour (Lord Howe) or at odd minutes
// (Chatham).
class WallTime {
public:
    static constexpr qint64 kDayMSecs = 86400000;
    static constexpr qint64 kMinuteMSecs = 60000;

    // How often the local clock shows a reading on its day.
    enum class Reading {
        Once,
        Twice, // in the hour that the clocks repeat when they go back
        Never, // in the gap that the clocks skip when they go forward
    };

    // Seconds east of UTC in force at an instant.
    static int OffsetAt(qint64 msecs);
    static qint64 Of(qint64 msecs) { return msecs + OffsetAt(msecs) * 1000LL; }
    // The instant the clock shows `wall`: the first of two in a repeated hour;
    // in a gap, the reading is taken with the offset in force before it, which
    // moves it on by the length of the gap (02:30 on a one-hour spring-forward
    // night becomes 03:30).
    static qint64 InstantOf(qint64 wall, Reading* reading = nullptr);
    // The first instant after `after` at which the clock shows `wall`: the
    // second reading of a repeated hour once the first has passed. Otherwise
    // as InstantOf.
    static qint64 InstantAfter(qint64 wall, qint64 after, Reading* reading = nullptr);

    static qint64 Make(const QDate& date, qint64 timeOfDayMSecs);
    static qint64 Day(qint64 wall) { return FloorDiv(wall, kDayMSecs); }
    static qint64 TimeOfDay(qint64 wall) { return wall - Day(wall) * kDayMSecs; }
    static QDate DateOf(qint64 wall);
    static qint64 StartOfDay(const QDate& date) { return Make(date, 0); }

    static qint64 FloorDiv(qint64 value, qint64 divisor);

private:
    struct Instants {
        qint64 first;
        qint64 second; // the later reading of a repeated hour, else first
        Reading reading;
    };
    static Instants InstantsOf(qint64 wall);
};
