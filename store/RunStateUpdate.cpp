#include "RunStateUpdate.h"

void RunStateUpdate::Apply(const RunStateUpdate& change) {
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
