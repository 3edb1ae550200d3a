#pragma once

#include <QDateTime>
#include <QStringList>

class TriggerObject;

// Walks a trigger's start times the way the two firing modes do: in timer mode
// each follow-up computes from the previous start time itself; in polling mode
// every computation starts from the beginning of a minute, and after a run the
// next start lies in a later minute, as the poll has it. `now` is also the
// current moment for a default start. Each entry is a start time
// "yyyy-MM-dd hh:mm:ss", or "finished" / "error", which end the walk.
class StartTimeSeries {
public:
    static QStringList Compute(TriggerObject& object, const QDateTime& now, quint64 count, bool poll);
};
