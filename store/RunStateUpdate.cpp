#include "RunStateUpdate.h"

void RunStateUpdate::Apply(const RunStateUpdate& change) {
    if (change.removeFirst) {
        const QVector<RunHistory::Event> before = history;
        *this = change;
        history = before + change.history;
        return;
    }
    history += change.history;
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
