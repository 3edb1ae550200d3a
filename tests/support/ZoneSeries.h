#pragma once

#include "TriggerBuilder.h"
#include "ZoneScope.h"

#include "triggers/LocalTime.h"
#include "triggers/StartTimeSeries.h"

#include <QStringList>

// "yyyy-MM-dd hh:mm:ss[.zzz]" in the current zone, as the trigger texts read:
// the first reading of a repeated hour.
inline qint64 Instant(const char* text) {
    const QString t = text;
    const qint64 msecs = t.size() == 23 ? t.mid(20).toLongLong() : 0;
    return LocalTime::Parse(t.left(19)).toMSecsSinceEpoch() + msecs;
}

// The start times of a trigger computed in `zone` from a first computation at
// `now`, joined by '|'.
inline QString Series(const char* zone, const TriggerDefinition& definition, const char* now, int count,
                      bool poll) {
    const ZoneScope scope(zone);
    TriggerObject object = MakeTrigger("plan", definition);
    return StartTimeSeries::Compute(object, Instant(now), static_cast<quint64>(count), poll).join('|');
}
