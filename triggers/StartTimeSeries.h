#pragma once

#include <QDateTime>
#include <QStringList>

class TriggerObject;

// Walks a trigger's start times the way the two firing modes do: in timer mode
// each follow-up computes from the previous start time itself; in polling mode
// every computation starts from the beginning of a minute. Each entry is a
// start time "yyyy-MM-dd hh:mm:ss", or "finished" / "error", which end the walk.
class StartTimeSeries {
public:
    static QStringList Compute(TriggerObject& object, const QDateTime& now, quint64 count, bool poll);
    static QDateTime MinuteStart(const QDateTime& t);
};
