#include "WallTime.h"

#include <ctime>

namespace {
constexpr qint64 kJulianDayOfEpoch = 2440588;
} // namespace

qint64 WallTime::FloorDiv(qint64 value, qint64 divisor) {
    const qint64 quotient = value / divisor;
    return (value % divisor != 0 && (value < 0) != (divisor < 0)) ? quotient - 1 : quotient;
}

int WallTime::OffsetAt(qint64 msecs) {
    const time_t secs = static_cast<time_t>(FloorDiv(msecs, 1000));
    tm local = {};
    if (localtime_r(&secs, &local) == nullptr) {
        return 0;
    }
    return static_cast<int>(local.tm_gmtoff);
}

// The instant lies within 14 hours of the reading taken as UTC, so the offsets
// a day either side of it are those before and after any change near it.
WallTime::Instants WallTime::InstantsOf(qint64 wall) {
    const int before = OffsetAt(wall - kDayMSecs);
    const int after = OffsetAt(wall + kDayMSecs);
    const qint64 early = wall - before * 1000LL;
    if (before == after) {
        return {early, early, Reading::Once};
    }
    const qint64 late = wall - after * 1000LL;
    const bool earlyHolds = OffsetAt(early) == before;
    const bool lateHolds = OffsetAt(late) == after;
    if (earlyHolds && lateHolds) {
        return {qMin(early, late), qMax(early, late), Reading::Twice};
    }
    if (lateHolds) {
        return {late, late, Reading::Once};
    }
    return {early, early, earlyHolds ? Reading::Once : Reading::Never};
}

qint64 WallTime::InstantOf(qint64 wall, Reading* reading) {
    const Instants instants = InstantsOf(wall);
    if (reading != nullptr) {
        *reading = instants.reading;
    }
    return instants.first;
}

qint64 WallTime::InstantAfter(qint64 wall, qint64 after, Reading* reading) {
    const Instants instants = InstantsOf(wall);
    if (reading != nullptr) {
        *reading = instants.reading;
    }
    return instants.first <= after && instants.second > after ? instants.second : instants.first;
}

qint64 WallTime::Make(const QDate& date, qint64 timeOfDayMSecs) {
    return (date.toJulianDay() - kJulianDayOfEpoch) * kDayMSecs + timeOfDayMSecs;
}

QDate WallTime::DateOf(qint64 wall) {
    return QDate::fromJulianDay(Day(wall) + kJulianDayOfEpoch);
}
