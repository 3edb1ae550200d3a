#pragma once

#include "FireTables.h"
#include "MissedRunCatchUp.h"
#include "OccurrenceRecorder.h"

#include <QString>

#include <functional>
#include <memory>

class FireHost;
class RunStateRecorder;
class TriggerFire;
class TriggerObject;

// What the parts of the fire worker share: the fire tables, what became of
// each start, the missed-run catch-up and the way to the agent. Owned by the
// worker; the parts keep a reference.
class FiringContext {
public:
    FiringContext(FireTables& tables, FireHost& host) : tables(tables), host(host) {}

    static bool IsTimerMode();
    // Marks the trigger ended, tells the agent and the history, and logs it.
    void EndTrigger(TriggerObject* object, const QString& fireClass);
    // A plan ran on its schedule: a catch-up waiting for it is void.
    void NoteRun(const QString& planUuid);
    // A fire for the plan of the mode in force, listed in the date-time
    // table; null when the plan has one already. Under the table's lock.
    TriggerFire* NewDateTimeFireLocked(TriggerObject* object) { return newDateTimeFireLocked(object); }

    FireTables& tables;
    FireHost& host;
    OccurrenceRecorder occurrences;
    // Where runs, schedules and occurrences are recorded; null records nothing.
    RunStateRecorder* runState = nullptr;
    // Made by the worker's Init on the application thread; touched only there.
    std::unique_ptr<MissedRunCatchUp> catchUp;
    std::function<TriggerFire*(TriggerObject*)> newDateTimeFireLocked;
};
