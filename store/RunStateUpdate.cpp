#include "RunStateUpdate.h"

#include "triggers/LocalTime.h"

void RunStateUpdate::Apply(const RunStateUpdate& change) {
    Take(change);
    // The recorder leaves the text of a computed start to the writer's thread.
    if (schedule && schedule->nextStart.isEmpty() && schedule->nextStartMSecs != 0) {
        schedule->nextStart = LocalTime::FormatWall(
            schedule->nextStartMSecs + static_cast<qint64>(schedule->nextStartOffsetSecs) * 1000);
    }
}

void RunStateUpdate::Take(const RunStateUpdate& change) {
    if (change.removeFirst) {
        RunHistory::Events before = history;
        *this = change;
        before.append(change.history.constData(), change.history.size());
        history = before;
        return;
    }
    history.append(change.history.constData(), change.history.size());
    if (change.run || change.schedule) {
        triggerType = change.triggerType;
    }
    if (change.run) {
        run = change.run;
    }
    if (change.schedule) {
        schedule = change.schedule;
    }
    if (change.result) {
        result = change.result;
    }
}
