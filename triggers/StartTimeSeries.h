#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

class TriggerObject;

// Walks a trigger's start times the way the two firing modes do: in timer mode
// each follow-up computes from the previous start itself; in polling mode every
// computation starts from the beginning of a minute, and after a run the next
// start lies in a later minute, as the poll has it. `now` is also the current
// moment for a default start.
class StartTimeSeries {
public:
    struct Entry {
        quint64 state = 0; // 3 a start; 2 finished or 1 error end the walk
        qint64 msecs = 0;
        int offsetSecs = 0;
        bool movedByGap = false;
        bool inRepeatedHour = false;

        // "yyyy-MM-dd hh:mm:ss", or "finished" / "error".
        QString Text() const;
    };

    // `afterRun`: the trigger has just run at `now`, as when a walk goes on
    // from a start the service already holds.
    static QVector<Entry> Walk(TriggerObject& object, qint64 now, quint64 count, bool poll, bool afterRun);
    static Entry StartAt(qint64 msecs, bool movedByGap);
    // The texts of a walk from a first computation at `now`.
    static QStringList Compute(TriggerObject& object, qint64 now, quint64 count, bool poll);
};
