#pragma once

#include "RunHistory.h"
#include "RunStateRecorder.h"

#include <QHash>
#include <QString>

#include <optional>

// The changes of one plan waiting to be written. What a change leaves empty
// keeps its stored value.
struct RunStateUpdate {
    struct Run {
        QString due;
        qint64 handedMSecs;
    };
    struct Result {
        quint64 code;
        qint64 atMSecs;
    };

    bool removeFirst = false;
    quint64 triggerType = 0; // with a run or a schedule
    std::optional<Run> run;
    std::optional<RunStateRecorder::Schedule> schedule;
    std::optional<Result> result;
    RunHistory::Events history;

    // A later change of the same plan on top of this one.
    void Apply(const RunStateUpdate& change);
};

// The changes of a batch, merged per plan.
using RunStateBatch = QHash<QString, RunStateUpdate>;
